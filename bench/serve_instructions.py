#!/usr/bin/python3
"""Instructions `kavogps serve` spends per epoch, counted by callgrind.

  bench/serve_instructions.py KAVOGPS [--epochs N] [--rate HZ] [--clients N] [--keep DIR] [--daemon]

A pseudo-terminal plays data/walk.nmea's epochs to `serve --port` running
under callgrind, with N clients watching the JSON stream. serve runs twice,
for N and for 2N epochs; the difference over N is what one more epoch costs
in user space, start-up and shut-down cancelling out. Unlike CPU time on a
busy or virtual machine, the count is the same on every run; the kernel's
share (the reads, sends and wake-ups) is not in it. --keep leaves the
callgrind files in DIR, for callgrind_annotate. --daemon counts the Debian
gpsd daemon the same way (`gpsd -N -n -b`), for comparison.
"""
import argparse, os, selectors, shutil, socket, subprocess, sys, tempfile, time, tty

from serve_vs_gpsd import HERE, epochs, free_port


def instructions(kavogps, count, rate, clients, blocks, work):
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
    serve = subprocess.Popen(["valgrind", "--tool=callgrind", "--callgrind-out-file=" + out] + server,
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
    return int(total[-1].split()[-1]), heard


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kavogps")
    parser.add_argument("--epochs", type=int, default=100)
    parser.add_argument("--rate", type=float, default=5)
    parser.add_argument("--clients", type=int, default=1)
    parser.add_argument("--keep", help="a folder to leave the callgrind files in")
    parser.add_argument("--daemon", action="store_true", help="count gpsd instead of KAVOGPS")
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
        short, heard_short = instructions(server, options.epochs, options.rate, options.clients, blocks, work)
        long, heard_long = instructions(server, 2 * options.epochs, options.rate, options.clients, blocks, work)
    per_epoch = (long - short) / options.epochs
    print("%s, epochs %d and %d, %d client(s): %d and %d instructions, TPV heard %d and %d"
          % (os.path.basename(server), options.epochs, 2 * options.epochs, options.clients, short, long, heard_short, heard_long))
    print("instructions per epoch: %.0f" % per_epoch)


main()
