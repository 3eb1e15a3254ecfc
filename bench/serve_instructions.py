#!/usr/bin/python3
"""Instructions `kavogps serve` spends per epoch, counted by callgrind.

  bench/serve_instructions.py KAVOGPS [--epochs N] [--rate HZ] [--clients N] [--keep DIR] [--daemon] [--lines]

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
more than the instructions run.
"""
import argparse, collections, os, re, selectors, shutil, socket, subprocess, sys, tempfile, time, tty

from serve_vs_gpsd import HERE, epochs, free_port


def instructions(kavogps, count, rate, clients, blocks, work, per_instruction):
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
    """How often each instruction ran, by (object, address), from a
    callgrind file written with --dump-instr=yes --dump-line=no."""
    names, counts, obj, address, call_cost = {}, collections.Counter(), None, 0, False
    for line in open(path):
        if line.startswith(("ob=", "cob=")):  # an object is named where it first appears
            number, name = re.match(r"c?ob=\((\d+)\)\s*(.*)", line.strip()).groups()
            names.setdefault(number, name)
            if line.startswith("ob="):
                obj = names[number]
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
                counts[(obj, address)] += int(fields[1])
    return counts


def code_lines_per_epoch(short_file, long_file, epochs):
    # A line that ran in every epoch of the longer run's extra epochs counts
    # one; one that ran in a third of them, a third.
    short, long = executions(short_file), executions(long_file)
    most = collections.Counter()
    for key, count in long.items():
        line = (key[0], key[1] // 64)
        most[line] = max(most[line], count - short.get(key, 0))
    return sum(min(1.0, runs / epochs) for runs in most.values())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kavogps")
    parser.add_argument("--epochs", type=int, default=100)
    parser.add_argument("--rate", type=float, default=5)
    parser.add_argument("--clients", type=int, default=1)
    parser.add_argument("--keep", help="a folder to leave the callgrind files in")
    parser.add_argument("--daemon", action="store_true", help="count gpsd instead of KAVOGPS")
    parser.add_argument("--lines", action="store_true", help="count the lines of code run per epoch too")
    options = parser.parse_args()
    if options.daemon and not shutil.which("gpsd"):
        sys.exit("serve_instructions: needs gpsd (Debian package gpsd: apt-get install gpsd)")
    server = "gpsd" if options.daemon else options.kavogps
    if not shutil.which("valgrind"):
        sys.exit("serve_instructions: needs valgrind (Debian package valgrind: apt-get install valgrind)")
    blocks = epochs(os.path.join(HERE, "..", "data", "walk.nmea"))
    with tempfile.TemporaryDirectory() as scratch:
        work = options.keep or scratch
        os.makedirs(work, exist_ok=True)
        short, heard_short, short_file = instructions(server, options.epochs, options.rate, options.clients, blocks,
                                                      work, options.lines)
        long, heard_long, long_file = instructions(server, 2 * options.epochs, options.rate, options.clients, blocks,
                                                   work, options.lines)
        lines = code_lines_per_epoch(short_file, long_file, options.epochs) if options.lines else None
    per_epoch = (long - short) / options.epochs
    print("%s, epochs %d and %d, %d client(s): %d and %d instructions, TPV heard %d and %d"
          % (os.path.basename(server), options.epochs, 2 * options.epochs, options.clients, short, long, heard_short, heard_long))
    print("instructions per epoch: %.0f" % per_epoch)
    if lines is not None:
        print("lines of code run per epoch: %.0f (64 bytes each)" % lines)


main()
