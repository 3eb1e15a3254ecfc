#!/usr/bin/env python3
"""Lists the C++ functions whose bodies are longer than a limit.

    scripts/long-functions.py [--limit N] FOLDER...   # default limit 40

Prints one line per function, longest first: body lines, file:line of the
opening brace, and the line that opens it. A brace counts as a function's
when the text before it ends a parameter list (with const, override,
noexcept or a constructor's initialisers after it); lambdas and blocks
count with the function around them. A rough reader of C++ text, not a
parser: good enough to find what wants splitting.
"""
import argparse
import os
import re

BLOCK_KEYWORDS = re.compile(r"^\s*(namespace|class|struct|enum|union|if|for|while|switch|else|do|try|catch)\b")
FUNCTION_HEAD = re.compile(r"\)\s*(const)?\s*(override|final|noexcept)?\s*(->\s*[\w:<>]+)?\s*(:[\s\S]*)?$")


def code_of(line):
    """The line without its comment and with its literals emptied."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])*'", "''", line)
    return re.sub(r"//.*", "", line)


def head_before(lines, row, column):
    """The statement text that ends at a brace: back to the last ; { or }."""
    text = code_of(lines[row])[:column]
    while row > 0 and not re.search(r"[;{}]\s*$", code_of(lines[row - 1])):
        row -= 1
        text = code_of(lines[row]) + "\n" + text
        if len(text) > 600:
            break
    return text.strip()


def long_functions(path, limit):
    lines = open(path, encoding="utf-8", errors="replace").read().split("\n")
    stack = []  # (is_function, row, head)
    for row, line in enumerate(lines):
        code = code_of(line)
        for column, ch in enumerate(code):
            if ch == "{":
                head = head_before(lines, row, column)
                last = head.split("\n")[-1] if head else ""
                inside = any(is_function for is_function, _, _ in stack)
                is_function = bool(FUNCTION_HEAD.search(head)) and not BLOCK_KEYWORDS.search(last) and not inside
                stack.append((is_function, row, head.split("\n")[0]))
            elif ch == "}" and stack:
                is_function, start, head = stack.pop()
                length = row - start - 1
                if is_function and length > limit:
                    yield length, "%s:%d" % (path, start + 1), head[:90]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--limit", type=int, default=40)
    parser.add_argument("folders", nargs="+")
    args = parser.parse_args()
    found = []
    for folder in args.folders:
        for root, _, files in os.walk(folder):
            for name in sorted(files):
                if name.endswith((".cpp", ".h", ".c")):
                    found.extend(long_functions(os.path.join(root, name), args.limit))
    for length, where, head in sorted(found, reverse=True):
        print("%4d %s %s" % (length, where, head))
    print("%d function%s over %d lines" % (len(found), "" if len(found) == 1 else "s", args.limit))


if __name__ == "__main__":
    main()
