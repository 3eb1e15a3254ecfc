#!/usr/bin/env python3
"""The tool's own help and its documentation say the same: every command
and option `kavogps COMMAND --help` shows is in that command's section of
kavogps(1) and in the bash completion, no option is documented that --help
does not show, the defaults named agree, and the exit codes are the same.

  help_matches_docs.py KAVOGPS MAN-PAGE.scd BASH-COMPLETION
"""
import re
import subprocess
import sys

problems = []


def help_text(kavogps, *args):
    return subprocess.run([kavogps, *args], capture_output=True, text=True, timeout=30, check=True).stdout


def help_options(text):
    """Option name -> its description, from the Options section of --help."""
    options, current = {}, None
    for line in text.split("Options", 1)[1].split("\nExit status:")[0].splitlines() if "Options" in text else []:
        match = re.match(r"^  (?:-h, )?(--[a-z][a-z-]*)(.*)", line)
        if match:
            current = match.group(1)
            options[current] = match.group(2)
        elif current and line.startswith("    "):
            options[current] += " " + line.strip()
    return options


def man_sections(scd):
    """Command -> its '## command' section of the man page."""
    sections = {}
    for block in re.split(r"^## ", scd, flags=re.M)[1:]:
        sections[block.split()[0]] = block.split("\n# ", 1)[0]
    return sections


def man_options(section):
    """Option name -> its paragraph, for the options a section lists."""
    options = {}
    for match in re.finditer(r"^\*(-[a-z-]+)\*.*\n((?:\t.*\n)*)", section, flags=re.M):
        head, body = match.group(0).split("\n", 1)[0], match.group(2)
        for name in re.findall(r"\*(--[a-z][a-z-]*)\*", head):
            options[name] = body
    return options


def completion_options(completion, command):
    """The options the completion offers after `command`."""
    variables = dict(re.findall(r'^\s*local (\w+)="([^"]*)"', completion, flags=re.M))
    match = re.search(rf'^\s*{command}\) options="([^"]*)"', completion, flags=re.M)
    if not match:
        return None
    words = (match.group(1) + " $common").split()
    return {w for word in words for w in (variables.get(word[1:], "").split() if word.startswith("$") else [word])}


def defaults(text):
    return set(re.findall(r"\(default:? ([^\s,)]+(?:,[^\s,)]+)*)", " ".join(text.split())))


def main():
    kavogps, scd_path, completion_path = sys.argv[1:4]
    scd = open(scd_path, encoding="utf-8").read()
    completion = open(completion_path, encoding="utf-8").read()
    sections = man_sections(scd)
    receiver = man_options(scd.split("# RECEIVER OPTIONS", 1)[1].split("\n# ", 1)[0])

    overview = help_text(kavogps, "--help")
    commands = re.findall(r"^  ([a-z]+)  ", overview.split("Commands:", 1)[1], flags=re.M)
    for command in commands:
        if command not in sections:
            problems.append(f"kavogps(1) has no section for '{command}'")
            continue
        offered = completion_options(completion, command)
        if offered is None:
            problems.append(f"the completion does not offer '{command}'")
            offered = set()
        given = help_options(help_text(kavogps, command, "--help"))
        documented = man_options(sections[command])
        for option, description in given.items():
            if option not in documented:
                problems.append(f"kavogps(1) does not document '{command} {option}'")
                continue
            paragraph = receiver.get(option, "") if "RECEIVER OPTIONS" in documented[option] else documented[option]
            for value in defaults(description) - defaults(paragraph):
                problems.append(f"'{command} {option}': --help says default {value}, kavogps(1) does not")
            if option not in offered:
                problems.append(f"the completion does not offer '{command} {option}'")
        for option in documented.keys() - given.keys() - {"--help"}:
            problems.append(f"kavogps(1) documents '{command} {option}', which --help does not show")
        for option in offered - given.keys() - {"--help", "--version"}:
            problems.append(f"the completion offers '{command} {option}', which --help does not show")

    codes = dict(re.findall(r"^  ([0-9])  (.+)$", overview.split("Exit status:", 1)[1], flags=re.M))
    exit_section = scd.split("# EXIT STATUS", 1)[1].split("\n# ", 1)[0]
    man_codes = dict(re.findall(r"^\*([0-9])\*\n\t(.+)", exit_section, flags=re.M))
    if codes.keys() != man_codes.keys():
        problems.append(f"exit codes: --help has {sorted(codes)}, kavogps(1) has {sorted(man_codes)}")
    for code, text in codes.items():
        if man_codes.get(code, "").rstrip(".").lower() != text.lower():
            problems.append(f"exit code {code}: --help says '{text}', kavogps(1) '{man_codes.get(code)}'")
    if "--version" not in overview or "*--version*" not in scd:
        problems.append("--version is missing from --help or kavogps(1)")

    for problem in problems:
        print(problem, file=sys.stderr)
    print(f"{len(commands)} commands checked, {len(problems)} differences")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
