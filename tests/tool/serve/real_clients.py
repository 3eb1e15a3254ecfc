#!/usr/bin/python3
"""kavogps serve as the GPS daemon's own clients see it.

real_clients.py --data DIR [--pty] -- [EMULATOR...] KAVOGPS
Runs `serve` on a bundled recording and checks what gpspipe -w, gpspipe -r
and Python's gps module get; with --pty also a port with no receiver yet,
then a simulated receiver on a pseudo-terminal that comes, goes and comes
back, and two receivers beside a port without one, served at once. Waits
are hang guards only, each a few seconds: a server that never
answers fails the test quickly, not at ctest's limit.
"""
import json, os, queue, re, signal, socket, subprocess, sys, threading
import gps

WAIT = 20  # seconds any one answer may take

args = sys.argv[1:]
split = args.index("--")
options, tool = args[:split], args[split + 1:]
data = options[options.index("--data") + 1]


def said(process):
    """The next line serve writes to standard error, waiting at most WAIT."""
    try:
        return process.said.get(timeout=WAIT)
    except queue.Empty:
        sys.exit("serve said nothing for %d s" % WAIT)


def serve(*extra):
    process = subprocess.Popen(tool + ["serve", *extra, "--listen", "127.0.0.1:0"],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    process.said = queue.Queue()
    threading.Thread(target=lambda: [process.said.put(line) for line in process.stderr], daemon=True).start()
    while True:
        match = re.search(r"listening on 127\.0\.0\.1:(\d+)", said(process))
        if match:
            return process, int(match.group(1))


def stop(process):
    process.send_signal(signal.SIGINT)
    try:
        assert process.wait(WAIT) == 0, "serve did not end cleanly on an interruption"
    except subprocess.TimeoutExpired:
        process.kill()
        sys.exit("serve did not end within %d s of an interruption" % WAIT)


def check_checksum(sentence):
    body, _, given = sentence[1:].partition("*")
    total = 0
    for c in body:
        total ^= ord(c)
    assert given[:2].upper() == "%02X" % total, sentence


def recording_clients():
    process, port = serve(os.path.join(data, "walk.nmea"), "--interval", "10", "--repeat")
    try:
        out = subprocess.run(["gpspipe", "-w", "-n", "20", "127.0.0.1:%d" % port],
                             capture_output=True, text=True, timeout=WAIT).stdout
        objects = [json.loads(line) for line in out.splitlines()]
        assert [o["class"] for o in objects[:3]] == ["VERSION", "DEVICES", "WATCH"], objects[:3]
        tpvs = [o for o in objects if o["class"] == "TPV"]
        fixes = [o for o in tpvs if o["mode"] >= 2]
        assert len(fixes) >= 5 and all(o["mode"] == 3 for o in fixes), tpvs
        for tpv in fixes:  # the walk stays within a few hundred metres of its start
            assert abs(tpv["lat"] - 48.1173) < 0.01 and abs(tpv["lon"] - 11.5167) < 0.01, tpv
            assert tpv["time"].startswith("2024-05-14T10:"), tpv
        assert len({t["time"] for t in tpvs}) == len(tpvs), "one TPV per epoch"

        raw = subprocess.run(["gpspipe", "-r", "-n", "30", "127.0.0.1:%d" % port],
                             capture_output=True, text=True, timeout=WAIT).stdout.splitlines()
        sentences = [line for line in raw if line.startswith("$")]
        assert {s[3:6] for s in sentences} >= {"GGA", "GSA", "GSV", "RMC", "VTG"}, raw
        for sentence in sentences:
            check_checksum(sentence.strip())

        session = gps.gps(host="127.0.0.1", port=port, mode=gps.WATCH_ENABLE | gps.WATCH_JSON)
        fix = sky = False
        for _ in range(200):
            assert session.waiting(WAIT), "the gps module heard nothing for %d s" % WAIT
            report = session.next()
            fix |= report["class"] == "TPV" and session.fix.mode == gps.MODE_3D and \
                abs(session.fix.latitude - 48.1173) < 0.01
            sky |= report["class"] == "SKY" and len(session.satellites) == 12 and session.satellites_used > 0
            if fix and sky:
                break
        assert fix and sky, "the gps module saw no fix or no sky"
        session.close()
    finally:
        stop(process)


def watch(port):
    client = socket.create_connection(("127.0.0.1", port), timeout=WAIT)
    client.sendall(b'?WATCH={"enable":true,"json":true}\n')
    return client.makefile("r")


def next_object(stream, wanted):
    for line in stream:
        obj = json.loads(line)
        if wanted(obj):
            return obj
    sys.exit("the stream ended")


def receiver(link):
    sim = subprocess.Popen(tool + ["simulate", "--pty", "--rate", "5", "--duration", "600"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    device = re.search(r"(/dev/\S+)", sim.stdout.readline()).group(1)
    if os.path.lexists(link):
        os.remove(link)
    os.symlink(device, link)
    return sim


def receiver_comes_and_goes():
    folder = "/tmp/kvs%d" % os.getpid()  # short: the library takes port names of 18 characters
    os.mkdir(folder)
    link = folder + "/gps"
    process, port = serve("--port", link)  # before there is a receiver
    sim = None
    try:
        stream = watch(port)
        absent = next_object(stream, lambda o: o["class"] == "DEVICES")["devices"][0]
        assert absent["activated"] == 0 and absent["path"] == link, absent
        line = said(process)
        assert "cannot open " + link in line and "trying again every second" in line, line
        for _ in range(2):  # it comes, goes, and comes back
            sim = receiver(link)
            back = next_object(stream, lambda o: o["class"] == "DEVICE" and o["activated"] != 0)
            assert isinstance(back["activated"], str) and back["bps"] == 4800, back
            next_object(stream, lambda o: o["class"] == "TPV" and o["mode"] == 3)
            sim.send_signal(signal.SIGINT)
            sim.wait(WAIT)
            gone = next_object(stream, lambda o: o["class"] == "DEVICE")
            assert gone["activated"] == 0 and gone["path"] == link, gone
    finally:
        stop(process)
        if sim:
            sim.send_signal(signal.SIGINT)
            sim.wait(WAIT)
        if os.path.lexists(link):
            os.remove(link)
        os.rmdir(folder)


def two_receivers_and_one_missing():
    sims = [subprocess.Popen(tool + ["simulate", "--pty", "--rate", "5", "--duration", "600", "--seed", seed],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) for seed in ("1", "2")]
    devices = [re.search(r"(/dev/\S+)", sim.stdout.readline()).group(1) for sim in sims]
    missing = "/dev/kavogps-none"
    process, port = serve("--port", devices[0], "--port", missing, "--port", devices[1])
    try:
        out = subprocess.run(["gpspipe", "-w", "-n", "40", "127.0.0.1:%d" % port],
                             capture_output=True, text=True, timeout=WAIT).stdout
        objects = [json.loads(line) for line in out.splitlines()]
        listed = {d["path"]: d["activated"] for d in objects[1]["devices"]}
        assert listed.keys() == {devices[0], missing, devices[1]} and listed[missing] == 0, listed
        fixed = {o["device"] for o in objects if o["class"] == "TPV" and o["mode"] == 3}
        assert fixed == set(devices), fixed
        watch = socket.create_connection(("127.0.0.1", port), timeout=WAIT)
        watch.sendall(('?WATCH={"enable":true,"json":true,"device":"%s"}\n' % devices[1]).encode())
        stream = watch.makefile("r")
        for _ in range(10):
            tpv = next_object(stream, lambda o: o["class"] == "TPV")
            assert tpv["device"] == devices[1], tpv
    finally:
        stop(process)
        for sim in sims:
            sim.send_signal(signal.SIGINT)
            sim.wait(WAIT)


recording_clients()
if "--pty" in options:
    receiver_comes_and_goes()
    two_receivers_and_one_missing()
print("serve: gpspipe -w, gpspipe -r, the gps module" +
      (", a receiver late, gone and back, two receivers beside a missing one" if "--pty" in options else ""))
