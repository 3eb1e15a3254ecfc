#!/usr/bin/python3
"""kavogps serve feeding the real chronyd, through both reference clocks.

chrony_refclocks.py -- KAVOGPS
Runs chronyd on a scratch configuration (no clock changes, no network, its
command socket in a scratch folder) with a SOCK and an SHM refclock, and
`serve` on a simulated receiver with --chrony-sock and --ntp-shm. serve
starts before chronyd, so it must say chronyd is missing and then find it;
chronyc must show samples from both refclocks; when chronyd stops, serve
says so and goes on serving. Exits 77 (skipped) where chronyd cannot run.
Waits are hang guards only.
"""
import os, queue, re, shutil, signal, subprocess, sys, tempfile, threading, time

WAIT = 30  # seconds any one step may take
SKIP = 77

tool = sys.argv[sys.argv.index("--") + 1:]
chronyd = shutil.which("chronyd") or shutil.which("chronyd", path="/usr/sbin:/sbin")
chronyc = shutil.which("chronyc")
if not chronyd or not chronyc:
    print("skipped: chronyd and chronyc are not installed (Debian package chrony)")
    sys.exit(SKIP)

scratch = tempfile.mkdtemp(prefix="kvc")  # short: a socket path holds at most 107 characters
refclock = os.path.join(scratch, "refclock.sock")
command = os.path.join(scratch, "chronyd.sock")
unit = 100 + os.getpid() % 100  # a segment no system daemon uses
with open(os.path.join(scratch, "chrony.conf"), "w") as conf:
    conf.write(f"""refclock SOCK {refclock} refid SOCK poll 0
refclock SHM {unit} refid SHM poll 0
bindcmdaddress {command}
cmdport 0
port 0
pidfile {scratch}/chronyd.pid
""")


def lines_of(process):
    process.said = queue.Queue()
    threading.Thread(target=lambda: [process.said.put(line) for line in process.stderr], daemon=True).start()
    return process


def said(process, pattern):
    """Waits for a line of serve's standard error that matches `pattern`."""
    deadline = time.monotonic() + WAIT
    while time.monotonic() < deadline:
        try:
            line = process.said.get(timeout=max(0.1, deadline - time.monotonic()))
        except queue.Empty:
            break
        if re.search(pattern, line):
            return line
    sys.exit("serve never said /%s/" % pattern)


def start_chronyd():
    daemon = subprocess.Popen([chronyd, "-d", "-x", "-u", "root", "-f", os.path.join(scratch, "chrony.conf")],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    deadline = time.monotonic() + WAIT
    while not os.path.exists(refclock):
        if daemon.poll() is not None or time.monotonic() > deadline:
            daemon.kill()
            print("skipped: chronyd does not run here: " + daemon.stderr.read().strip()[-300:])
            sys.exit(SKIP)
        time.sleep(0.1)
    return daemon


def stop(process):
    if process and process.poll() is None:
        process.send_signal(signal.SIGINT)
        try:
            process.wait(WAIT)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def samples_of_each():
    """Waits until chronyc shows both refclocks reached, with samples."""
    deadline = time.monotonic() + WAIT
    sources = stats = ""
    while time.monotonic() < deadline:
        ask = lambda what: subprocess.run([chronyc, "-n", "-h", command, what], capture_output=True, text=True).stdout
        sources, stats = ask("sources"), ask("sourcestats")
        reach = {m.group(1): int(m.group(2), 8) for m in re.finditer(r"^#. (SOCK|SHM)\s+\d+\s+\d+\s+(\d+)", sources, re.M)}
        points = {m.group(1): int(m.group(2)) for m in re.finditer(r"^(SOCK|SHM)\s+(\d+)", stats, re.M)}
        if all(reach.get(r, 0) > 0 and points.get(r, 0) > 0 for r in ("SOCK", "SHM")):
            return
        time.sleep(1)
    sys.exit("chronyd got no samples from both refclocks:\n" + sources + stats)


sim = serve = daemon = None
try:
    sim = subprocess.Popen(tool + ["simulate", "--pty", "--rate", "5", "--duration", "600"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    device = re.search(r"(/dev/\S+)", sim.stdout.readline()).group(1)
    serve = lines_of(subprocess.Popen(
        tool + ["serve", "--port", device, "--chrony-sock", refclock, "--ntp-shm", str(unit), "--listen", "127.0.0.1:0"],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True))
    said(serve, "no socket at " + re.escape(refclock))  # before chronyd: told once, then tried again
    daemon = start_chronyd()
    said(serve, "chronyd takes the samples again")
    samples_of_each()
    stop(daemon)
    said(serve, "no socket at " + re.escape(refclock))
    assert serve.poll() is None, "serve ended when chronyd did"
finally:
    stop(daemon)
    stop(serve)
    stop(sim)
    shutil.rmtree(scratch, ignore_errors=True)
    # The segment outlives its users, as the daemons expect; a test's goes.
    subprocess.run(["ipcrm", "-M", hex(0x4E545030 + unit)], stderr=subprocess.DEVNULL)
print("chronyd: samples from SOCK and SHM; serve told of chronyd missing, found and gone")
