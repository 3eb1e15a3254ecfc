#!/usr/bin/env python3
"""`kavogps serve` started as a service manager starts it: with listening
sockets handed over (LISTEN_FDS, LISTEN_PID). Every handed socket answers
with a VERSION object and the default address stays unused; a descriptor
that is not a listening socket is refused.

  socket_activation.py [--manager python|systemd-socket-activate] KAVOGPS [SERVE-ARGS...]

`python` (the default) hands an IPv4 and, where the machine has one, an IPv6
loopback socket over as a service manager does; `systemd-socket-activate`
lets that program do it, for one IPv4 socket.
"""
import argparse
import fcntl
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time


def fail(message):
    print(f"socket activation: {message}", file=sys.stderr)
    sys.exit(1)


def listening(family, address):
    try:
        sock = socket.socket(family, socket.SOCK_STREAM)
        sock.bind((address, 0))
    except OSError:
        return None  # no such address family here
    sock.listen()
    return sock


def start_with_sockets(command, descriptors, log):
    """Forks and execs `command` with `descriptors` at 3, 4, ... and the
    variables naming them for the child itself."""
    pid = os.fork()
    if pid == 0:
        try:
            os.dup2(log.fileno(), 2)
            # Out of the way first, so that no descriptor is overwritten before it moved.
            copies = [fcntl.fcntl(fd, fcntl.F_DUPFD_CLOEXEC, 100) for fd in descriptors]
            for position, fd in enumerate(copies, start=3):
                os.dup2(fd, position)  # the copy at `position` is inheritable
            os.environ.update(LISTEN_FDS=str(len(descriptors)), LISTEN_PID=str(os.getpid()))
            os.execvp(command[0], command)
        finally:
            os._exit(127)
    return pid


def first_line(address, port, deadline):
    while True:
        try:
            with socket.create_connection((address, port), timeout=5) as peer:
                return json.loads(peer.makefile("r").readline())
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.1)


def exit_code(pid, seconds):
    """The exit status of `pid`, ended by force after `seconds`."""
    for _ in range(seconds * 10):
        done, status = os.waitpid(pid, os.WNOHANG)
        if done:
            return os.waitstatus_to_exitcode(status)
        time.sleep(0.1)
    os.kill(pid, signal.SIGKILL)
    os.waitpid(pid, 0)
    fail(f"serve did not end within {seconds} s")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--manager", choices=["python", "systemd-socket-activate"], default="python")
    parser.add_argument("kavogps")
    parser.add_argument("serve_args", nargs=argparse.REMAINDER)
    args = parser.parse_args()
    serve = [args.kavogps, "serve", *args.serve_args]
    log = tempfile.TemporaryFile("w+")

    sockets = [s for s in (listening(socket.AF_INET, "127.0.0.1"), listening(socket.AF_INET6, "::1")) if s]
    endpoints = [s.getsockname()[:2] for s in sockets]
    if args.manager == "python":
        pid = start_with_sockets(serve, [s.fileno() for s in sockets], log)
    else:
        # systemd-socket-activate binds itself: free the first port for it.
        del endpoints[1:]
        for s in sockets:
            s.close()
        address, port = endpoints[0]
        pid = subprocess.Popen(["systemd-socket-activate", "-l", f"{address}:{port}", *serve], stderr=log).pid
    for s in sockets:
        s.close()

    try:
        deadline = time.monotonic() + 20
        for address, port in endpoints:
            try:
                answer = first_line(address, port, deadline)
            except (OSError, ValueError) as e:
                fail(f"no line from {address} port {port}: {e}")
            if answer.get("class") != "VERSION":
                fail(f"{address} port {port} answered {answer} instead of a VERSION object")
    finally:
        os.kill(pid, signal.SIGTERM)
        code = exit_code(pid, 10)
    log.seek(0)
    said = log.read()
    if code != 0:
        fail(f"serve ended with status {code}:\n{said}")
    if ":2947" in said or "listening on" not in said:
        fail(f"serve did not listen on the handed sockets alone:\n{said}")

    # A descriptor that is not a listening socket is refused, not served.
    reader, writer = os.pipe()
    pid = start_with_sockets(serve, [reader], log)
    code = exit_code(pid, 10)
    os.close(reader)
    os.close(writer)
    if code != 1:
        fail("serve accepted a pipe as a listening socket")
    print(f"socket activation ({args.manager}): VERSION on {len(endpoints)} handed socket(s)")


if __name__ == "__main__":
    main()
