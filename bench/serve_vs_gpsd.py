#!/usr/bin/python3
"""`kavogps serve` beside the Debian gpsd daemon, side by side.

  bench/serve_vs_gpsd.py KAVOGPS [--rate HZ] [--seconds S] [--clients 1,10,200] [--runs N] [--floor SERVER]

Each server reads its own pseudo-terminal; one simulated receiver writes
the same epochs (data/walk.nmea) to both at the same rate. N clients per
server watch the JSON stream. Latency runs from the last byte of an epoch
written to its pty to the TPV of that epoch received by a client; CPU is
the run time of all the server's threads over the run, memory its peak
resident set. CPU is also taken after each epoch: the median epoch's CPU
stands up to a virtual machine's stalls, which charge a thread that was
running for time it did not get, where the total over the run does not.
Each client count runs several times; the median of each figure is
reported after the runs themselves. --floor adds a third server, built as
bench_floor_server: it only reads each epoch and sends every client a line
of the same size, so its CPU is the kernel's part of serving the stream,
which no server goes below.
Loopback only. A benchmark, never a test: the figures depend on the machine.
"""
import argparse, json, os, selectors, shutil, socket, subprocess, sys, time, tty

HERE = os.path.dirname(os.path.abspath(__file__))


def epochs(path):
    blocks, date = [], "2024-05-14"
    for line in open(path, "rb").read().decode().splitlines(keepends=True):
        if line.startswith("$GPGGA"):
            t = line.split(",")[1]
            blocks.append(["%sT%s:%s:%s" % (date, t[0:2], t[2:4], t[4:6]), ""])
        if blocks:
            blocks[-1][1] += line
    return blocks


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def cpu_ms(pid):
    # Every thread's run time in nanoseconds: clock ticks are too coarse
    # for a server that works a fraction of a millisecond per epoch.
    tasks = os.listdir("/proc/%d/task" % pid)
    return sum(int(open("/proc/%d/task/%s/schedstat" % (pid, t)).read().split()[0]) for t in tasks) / 1e6


def peak_rss_mib(pid):
    for line in open("/proc/%d/status" % pid):
        if line.startswith("VmHWM:"):
            return int(line.split()[1]) / 1024
    return 0.0


def connect(port, deadline):
    while True:
        try:
            return socket.create_connection(("127.0.0.1", port))
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.05)


def run(commands, clients, rate, seconds, blocks):
    servers = {}
    try:
        return measure(commands, clients, rate, seconds, blocks, servers)
    finally:  # no server outlives its run, whatever happened
        for s in servers.values():
            if s["process"].poll() is None:
                s["process"].terminate()
                s["process"].wait(30)


def measure(commands, clients, rate, seconds, blocks, servers):
    for name, command in commands.items():
        master, slave = os.openpty()
        tty.setraw(slave)
        os.set_blocking(master, False)
        port, device = free_port(), os.ttyname(slave)
        command = [part.format(device=device, port=port) for part in command]
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        servers[name] = {"master": master, "slave": slave, "port": port, "process": process,
                         "written": {}, "latency": [], "heard": set()}
    sel = selectors.DefaultSelector()
    for name, s in servers.items():
        sel.register(s["master"], selectors.EVENT_READ, (name, None))  # whatever a server writes to its port
    period, index, names = 1.0 / rate, 0, list(servers)

    def write_epoch():
        nonlocal index
        key, text = blocks[index % len(blocks)]
        shift = index % len(names)  # each server's turn to be written first
        for name in names[shift:] + names[:shift]:
            os.write(servers[name]["master"], text.encode())
            servers[name]["written"][key] = time.monotonic()
        index += 1

    def pump(until):
        while time.monotonic() < until:
            for event, _ in sel.select(max(0.0, min(until - time.monotonic(), period))):
                name, peer = event.data
                if peer is None:
                    try:
                        os.read(event.fd, 65536)
                    except OSError:
                        pass
                    continue
                try:
                    data = event.fileobj.recv(65536)
                except ConnectionResetError:  # a server that refuses more clients
                    data = b""
                now = time.monotonic()
                if not data:
                    sel.unregister(event.fileobj)
                    continue
                peer["buffer"] += data
                *lines, peer["buffer"] = peer["buffer"].split(b"\n")
                s = servers[name]
                for line in lines:
                    if b'"TPV"' not in line:
                        continue
                    key = json.loads(line).get("time", "")[:19]
                    if key in s["written"] and peer["measure"]:
                        s["latency"].append(now - s["written"][key])
                        s["heard"].add(peer["id"])

    # The receivers start talking; then the clients come and watch.
    start = time.monotonic()
    for _ in range(int(rate * 3)):
        write_epoch()
        pump(time.monotonic() + period)
    peers = []
    for name, s in servers.items():
        for i in range(clients):
            sock = connect(s["port"], start + 30)
            sock.sendall(b'?WATCH={"enable":true,"json":true}\n')
            sock.setblocking(False)
            peer = {"buffer": b"", "measure": False, "id": i}
            peers.append(peer)
            sel.register(sock, selectors.EVENT_READ, (name, peer))
    for _ in range(int(rate * 2)):
        write_epoch()
        pump(time.monotonic() + period)
    for peer in peers:
        peer["measure"] = True
    cpu0 = {n: cpu_ms(s["process"].pid) for n, s in servers.items()}
    last, per_epoch = dict(cpu0), {n: [] for n in servers}
    next_due = time.monotonic()
    for _ in range(int(rate * seconds)):
        write_epoch()
        next_due += period
        pump(next_due)
        for name, s in servers.items():
            now = cpu_ms(s["process"].pid)
            per_epoch[name].append(now - last[name])
            last[name] = now
    pump(time.monotonic() + 1.0)
    rows = []
    for name, s in servers.items():
        pid = s["process"].pid
        cpu, rss = cpu_ms(pid) - cpu0[name], peak_rss_mib(pid)
        s["process"].terminate()
        s["process"].wait(30)
        lat = sorted(s["latency"]) or [float("nan")]
        pick = lambda q: lat[min(len(lat) - 1, int(q * len(lat)))] * 1000
        epoch_us = sorted(per_epoch[name])[len(per_epoch[name]) // 2] * 1000
        rows.append((clients, name, len(s["heard"]), pick(0.5), pick(0.99), lat[-1] * 1000, cpu, epoch_us, rss))
        os.close(s["master"])
        os.close(s["slave"])
    return rows


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kavogps")
    parser.add_argument("--rate", type=float, default=5)
    parser.add_argument("--seconds", type=float, default=30)
    parser.add_argument("--clients", default="1,10,200")
    parser.add_argument("--runs", type=int, default=3, help="runs per client count; the median of each figure")
    parser.add_argument("--floor", help="bench_floor_server, run beside the two as the kernel's floor")
    options = parser.parse_args()
    if not shutil.which("gpsd"):
        sys.exit("serve_vs_gpsd: needs gpsd (Debian package gpsd: apt-get install gpsd)")
    commands = {"gpsd": ["gpsd", "-N", "-n", "-b", "-S", "{port}", "{device}"],
                "serve": [options.kavogps, "serve", "--port", "{device}", "--listen", "127.0.0.1:{port}"]}
    if options.floor:
        commands["floor"] = [options.floor, "{device}", "{port}"]
    blocks = epochs(os.path.join(HERE, "..", "data", "walk.nmea"))
    header = "%7s %-6s %6s %8s %8s %8s %7s %9s %8s" % ("clients", "server", "heard", "p50 ms", "p99 ms", "max ms",
                                                     "CPU ms", "epoch us", "RSS MiB")
    line = "%7d %-6s %6d %8.2f %8.2f %8.2f %7.1f %9.1f %8.1f"
    print("each run:\n" + header)
    medians = []
    for n in [int(c) for c in options.clients.split(",")]:
        runs = []
        for _ in range(options.runs):
            rows = run(commands, n, options.rate, options.seconds, blocks)
            for row in rows:
                print(line % row, flush=True)
            runs.append(rows)
        for i, row in enumerate(runs[0]):
            column = lambda k: sorted(r[i][k] for r in runs)[len(runs) // 2]
            medians.append(row[:2] + tuple(column(k) for k in range(2, len(row))))
    print("\nmedian of %d runs:\n%s" % (options.runs, header))
    for row in medians:
        print(line % row)


if __name__ == "__main__":
    main()
