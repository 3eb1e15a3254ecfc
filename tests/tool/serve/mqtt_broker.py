#!/usr/bin/python3
"""kavogps serve --mqtt against a real broker, and --nmea-socket as a reader sees it.

mqtt_broker.py --data DIR -- KAVOGPS
Starts Debian's mosquitto on a loopback port with a scratch configuration
and checks with mosquitto_sub that every epoch of a recording arrives on
tpv, in order; that a late subscriber gets the retained tpv first; that
status says online, and offline when serve ends or is killed; and that
publishing resumes after the broker is restarted, without restarting serve.
Exits 77 (skipped) where mosquitto is not installed. Waits are hang
guards only.
"""
import json, os, queue, re, shutil, signal, socket, subprocess, sys, tempfile, threading, time

WAIT = 20  # seconds any one step may take
PREFIX = "fleet/test"

args = sys.argv[1:]
split = args.index("--")
options, tool = args[:split], args[split + 1:]
data = options[options.index("--data") + 1]
recording = os.path.join(data, "walk.nmea")

broker_program = shutil.which("mosquitto") or shutil.which("mosquitto", path="/usr/sbin")
if not broker_program or not shutil.which("mosquitto_sub"):
    print("skipped: mosquitto and mosquitto_sub are not installed (Debian: mosquitto, mosquitto-clients)")
    sys.exit(77)

scratch = tempfile.mkdtemp(prefix="kavogps-mqtt-")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


PORT = free_port()
with open(os.path.join(scratch, "mosquitto.conf"), "w") as conf:
    conf.write("listener %d 127.0.0.1\nallow_anonymous true\npersistence false\n" % PORT)


def start_broker():
    broker = subprocess.Popen([broker_program, "-c", os.path.join(scratch, "mosquitto.conf")],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    deadline = time.monotonic() + WAIT
    while time.monotonic() < deadline:
        try:
            socket.create_connection(("127.0.0.1", PORT), timeout=1).close()
            return broker
        except OSError:
            time.sleep(0.05)
    broker.kill()
    sys.exit("mosquitto did not listen on port %d" % PORT)


def stop_broker(broker):
    broker.terminate()
    broker.wait(WAIT)


class Lines:
    """A process's output lines, read on a thread, waited for with a hang guard."""

    def __init__(self, process, stream):
        self.process, self.lines = process, queue.Queue()
        threading.Thread(target=lambda: [self.lines.put(line.rstrip("\n")) for line in stream], daemon=True).start()

    def next(self, what):
        try:
            return self.lines.get(timeout=WAIT)
        except queue.Empty:
            sys.exit("waited %d s for %s" % (WAIT, what))

    def until(self, wanted, what):
        while True:
            line = self.next(what)
            if wanted(line):
                return line


subscribers = []  # ended at exit, even after a failed step


def subscribe(topic, *extra):
    """mosquitto_sub printing 'RETAIN TOPIC PAYLOAD' per message."""
    process = subprocess.Popen(["mosquitto_sub", "-h", "127.0.0.1", "-p", str(PORT), "-t", topic,
                                "-F", "%r %t %p", *extra], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    subscribers.append(process)
    out = Lines(process, process.stdout)
    time.sleep(0.3)  # mosquitto_sub says nothing once subscribed; give it the moment it takes
    return process, out


def serve(*extra):
    process = subprocess.Popen(tool + ["serve", *extra, "--listen", "127.0.0.1:0",
                                       "--mqtt", "mqtt://127.0.0.1:%d/%s" % (PORT, PREFIX)],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    return process, Lines(process, process.stderr)


def message(line):
    retained, topic, payload = line.split(" ", 2)
    return retained == "1", topic[len(PREFIX) + 1:], payload


def epoch_times():
    """The time of each epoch of the recording, from its RMC sentences."""
    times = []
    with open(recording) as f:
        for line in f:
            if line[3:6] == "RMC":
                hhmmss = line.split(",")[1]
                times.append("%s:%s:%s" % (hhmmss[0:2], hhmmss[2:4], hhmmss[4:6]))
    return times


def every_epoch_and_a_late_subscriber():
    """A recording played once: each epoch on tpv in order, then the retained state, then offline."""
    sub, messages = subscribe(PREFIX + "/#")
    socket_path = os.path.join(scratch, "nmea.sock")
    process, said = serve(recording, "--interval", "2", "--nmea-socket", socket_path)
    try:
        said.until(lambda l: "publishing " in l, "serve to connect to the broker")
        assert message(messages.until(lambda l: "/status" in l, "the status"))[2] == "online"

        reader = socket.socket(socket.AF_UNIX)
        reader.connect(socket_path)
        assert oct(os.stat(socket_path).st_mode & 0o777) == "0o660"
        sentence = reader.makefile("rb").readline()
        assert re.match(rb"^\$GP[A-Z]{3},.*\*[0-9A-F]{2}\r\n$", sentence), sentence

        expected = epoch_times()
        got = []
        while len(got) < len(expected):
            retained, topic, payload = message(messages.next("epoch %d of %d" % (len(got) + 1, len(expected))))
            if topic == "walk.nmea/tpv":
                got.append(json.loads(payload)["time"][11:19])
        assert got == expected, "epochs missing or out of order"
        said.until(lambda l: "serving its last fix" in l, "the end of the recording")

        late, first = subscribe(PREFIX + "/walk.nmea/tpv")
        retained, topic, payload = message(first.next("the retained tpv"))
        assert retained and json.loads(payload)["time"][11:19] == expected[-1], (retained, payload)
        late.terminate()
        reader.close()
    finally:
        process.send_signal(signal.SIGINT)
        assert process.wait(WAIT) == 0
    retained, topic, payload = message(messages.until(lambda l: "/status" in l, "offline on exit"))
    assert (topic, payload) == ("walk.nmea/status", "offline"), (topic, payload)
    assert not os.path.exists(socket_path), "the socket file stays after exit"
    sub.terminate()


def broker_restarted_and_serve_killed(broker):
    """A repeating recording: the broker goes and comes back; then serve is killed."""
    process, said = serve(recording, "--interval", "2", "--repeat")
    try:
        said.until(lambda l: "publishing " in l, "serve to connect to the broker")
        stop_broker(broker)
        gone = said.next("a line about the broker gone")
        assert "MQTT broker mqtt://127.0.0.1:%d/%s (%s)" % (PORT, PREFIX, recording) in gone, gone
        time.sleep(1.5)  # away across at least one failed attempt
        broker = start_broker()
        back = said.next("a line about the broker back")
        assert "the MQTT broker is back" in back, back

        sub, messages = subscribe(PREFIX + "/#")
        assert message(messages.until(lambda l: "/status" in l, "status after the restart"))[2] == "online"
        first = json.loads(message(messages.until(lambda l: "/tpv" in l, "a tpv after the restart"))[2])
        later = json.loads(message(messages.until(lambda l: "/tpv" in l, "another tpv"))[2])
        assert first["class"] == "TPV" and later["time"] != first["time"], (first, later)
        process.kill()
        process.wait(WAIT)
        retained, topic, payload = message(messages.until(lambda l: "/status" in l, "the last will"))
        assert payload == "offline", payload
        sub.terminate()
    finally:
        if process.poll() is None:
            process.kill()
    return broker


broker = start_broker()
try:
    every_epoch_and_a_late_subscriber()
    broker = broker_restarted_and_serve_killed(broker)
finally:
    for subscriber in subscribers:
        subscriber.kill()
    stop_broker(broker)
    shutil.rmtree(scratch, ignore_errors=True)
print("serve --mqtt: every epoch in order, retained tpv first, offline on exit and when killed, "
      "resumed after a broker restart; --nmea-socket: sentences, mode 0660, removed at exit")
