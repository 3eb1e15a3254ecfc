#!/usr/bin/python3
"""Instructions `kavogps serve` spends per epoch, counted by callgrind.

  bench/serve_instructions.py KAVOGPS [--epochs N] [--rate HZ] [--clients N] [--keep DIR] [--daemon] [--lines]
                               [--order FILE]

A pseudo-terminal plays data/walk.nmea's epochs to `serve --port` running
under callgrind, with N clients watching the JSON stream. serve runs twice,
for N and for 2N epochs; the difference over N is what one more epoch costs
in user space, start-up and shut-down cancelling out. Unlike CPU time on a
busy or virtual machine, the count is the same on every run; the kernel's
share (the reads, sends and wake-ups) is not in it. --keep leaves the
callgrind files in DIR, for callgrind_annotate. --daemon counts the Debian
gpsd daemon the same way (`gpsd -N -n -b`), for comparison. --lines also
counts the 64-byte lines of code run per epoch: where caches are cold at
each epoch (a virtual machine whose host runs other work on the same
processor between epochs), each costs a fetch from memory, and their number weighs
more than the instructions run, and so does each 4 KiB page they lie on
(a walk of the page tables when its address is no longer cached).
--order writes the functions of the tool and the library that an epoch
runs, busiest first, as the linker's order for them: cmake/hot_code.order
is made this way, so that they share as few pages as they can.
"""
import argparse, collections, os, re, selectors, shutil, socket, subprocess, sys, tempfile, time, tty

from serve_vs_gpsd import HERE, epochs, free_port


def instructions(kavogps, count, rate, clients, blocks, work, per_instruction, mangled):
    master, slave = os.openpty()
    tty.setraw(slave)
    port, out = free_port(), os.path.join(work, "callgrind.%d" % count)
    if kavogps == "gpsd":
        server = ["gpsd", "-N", "-n", "-b", "-S", str(port), os.ttyname(slave)]
        # The daemon gives up root before it writes the file: make it one it
        # may write, in a folder it may pass through (but not write to).
        open(out, "w").close()
        os.chmod(out, 0o666)
        os.chmod(work, os.stat(work).st_mode | 0o111)
    else:
        server = [kavogps, "serve", "--port", os.ttyname(slave), "--listen", "127.0.0.1:%d" % port]
    extra = ["--dump-instr=yes", "--dump-line=no"] if per_instruction else []
    extra += ["--demangle=no"] if mangled else []
    serve = subprocess.Popen(["valgrind", "--tool=callgrind", "--callgrind-out-file=" + out] + extra + server,
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    sel, peers = selectors.DefaultSelector(), []
    try:
        deadline = time.monotonic() + 60
        while len(peers) < clients:
            try:
                peer = socket.create_connection(("127.0.0.1", port))
            except OSError:
                if time.monotonic() > deadline or serve.poll() is not None:
                    sys.exit("serve_instructions: serve did not listen")
                time.sleep(0.2)
                continue
            peer.sendall(b'?WATCH={"enable":true,"json":true}\n')
            peer.setblocking(False)
            sel.register(peer, selectors.EVENT_READ)
            peers.append(peer)
        heard = 0
        for index in range(count):
            os.write(master, blocks[index % len(blocks)][1].encode())
            until = time.monotonic() + 1.0 / rate
            while time.monotonic() < until:
                for key, _ in sel.select(max(0.0, until - time.monotonic())):
                    heard += key.fileobj.recv(65536).count(b'"TPV"')
        time.sleep(1.0)
        serve.terminate()
        _, err = serve.communicate(timeout=60)
    finally:
        if serve.poll() is None:
            serve.kill()
        for peer in peers:
            peer.close()
        os.close(master)
        os.close(slave)
    total = [line for line in err.decode().splitlines() if "Collected :" in line]
    if not total:
        sys.exit("serve_instructions: callgrind printed no total:\n" + err.decode()[-2000:])
    return int(total[-1].split()[-1]), heard, out


def executions(path):
    """How often each instruction ran, by (object, function, address), from
    a callgrind file written with --dump-instr=yes --dump-line=no."""
    names, counts, obj, function, address, call_cost = {}, collections.Counter(), None, None, 0, False
    for line in open(path):
        if line.startswith(("ob=", "cob=", "fn=", "cfn=")):  # named where first seen, by number after
            kind, number, name = re.match(r"(c?(?:ob|fn))=\((\d+)\)\s*(.*)", line.strip()).groups()
            names.setdefault(kind[-2:] + number, name)
            if kind == "ob":
                obj = names["ob" + number]
            elif kind == "fn":
                function = re.sub(r"'\d+$", "", names["fn" + number])  # a recursion's depth mark
        elif line.startswith("calls="):
            call_cost = True  # the next line is the call's inclusive cost
        elif line[0] in "0123456789+-*":
            fields = line.split()
            position = fields[0]
            if position.startswith("0x"):
                address = int(position, 16)
            elif position[0] in "+-":
                address += int(position)
            if call_cost:
                call_cost = False
            elif len(fields) > 1:
                counts[(obj, function, address)] += int(fields[1])
    return counts


def per_epoch_runs(short_file, long_file):
    short = executions(short_file)
    return {key: count - short.get(key, 0) for key, count in executions(long_file).items()}


def code_per_epoch(runs, epochs, size):
    # A line (or page) that ran in every epoch of the longer run's extra
    # epochs counts one; one that ran in a third of them, a third.
    most = collections.Counter()
    for (obj, _, address), count in runs.items():
        most[(obj, address // size)] = max(most[(obj, address // size)], count)
    return sum(min(1.0, count / epochs) for count in most.values())


def hot_functions(runs):
    # The tool's and the library's own: only their links can order them.
    busy = collections.Counter()
    for (obj, function, _), count in runs.items():
        if count > 0 and re.search(r"/(kavogps|libKavoMobileGPS[^/]*)$", obj or ""):
            busy[function] += count
    return [function for function, _ in busy.most_common()]


ORDER_HEADER = """\
# The functions of libKavoMobileGPS and kavogps that an epoch of
# `kavogps serve` runs, busiest first: the linker (lld) lays them out in this
# order, ahead of the rest, so that an epoch's code lies on a few pages.
# A name that no longer exists is passed over, so a stale list costs speed,
# never a build. Made by:
#   bench/serve_instructions.py build/release/tools/kavogps/kavogps --order cmake/hot_code.order
"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kavogps")
    parser.add_argument("--epochs", type=int, default=100)
    parser.add_argument("--rate", type=float, default=5)
    parser.add_argument("--clients", type=int, default=1)
    parser.add_argument("--keep", help="a folder to leave the callgrind files in")
    parser.add_argument("--daemon", action="store_true", help="count gpsd instead of KAVOGPS")
    parser.add_argument("--lines", action="store_true", help="count the lines of code run per epoch too")
    parser.add_argument("--order", help="write the link order of the functions an epoch runs to this file")
    options = parser.parse_args()
    if options.daemon and options.order:
        parser.error("--order lists the tool's and the library's functions: not with --daemon")
    if options.daemon and not shutil.which("gpsd"):
        sys.exit("serve_instructions: needs gpsd (Debian package gpsd: apt-get install gpsd)")
    server = "gpsd" if options.daemon else options.kavogps
    if not shutil.which("valgrind"):
        sys.exit("serve_instructions: needs valgrind (Debian package valgrind: apt-get install valgrind)")
    blocks = epochs(os.path.join(HERE, "..", "data", "walk.nmea"))
    mangled = bool(options.order)  # the linker orders by symbol name
    by_address = options.lines or mangled
    with tempfile.TemporaryDirectory() as scratch:
        work = options.keep or scratch
        os.makedirs(work, exist_ok=True)
        short, heard_short, short_file = instructions(server, options.epochs, options.rate, options.clients, blocks,
                                                      work, by_address, mangled)
        long, heard_long, long_file = instructions(server, 2 * options.epochs, options.rate, options.clients, blocks,
                                                   work, by_address, mangled)
        runs = per_epoch_runs(short_file, long_file) if by_address else None
    per_epoch = (long - short) / options.epochs
    print("%s, epochs %d and %d, %d client(s): %d and %d instructions, TPV heard %d and %d"
          % (os.path.basename(server), options.epochs, 2 * options.epochs, options.clients, short, long, heard_short, heard_long))
    print("instructions per epoch: %.0f" % per_epoch)
    if options.lines:
        print("lines of code run per epoch: %.0f (64 bytes each), on %.0f pages (4 KiB)"
              % (code_per_epoch(runs, options.epochs, 64), code_per_epoch(runs, options.epochs, 4096)))
    if options.order:
        with open(options.order, "w") as out:
            out.write(ORDER_HEADER + "".join(name + "\n" for name in hot_functions(runs)))


main()
