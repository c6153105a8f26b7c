#!/usr/bin/env python3
"""Records the standard-output chunks of the mac-native-iperf launcher in server
mode, exactly as they were read, while stock iperf3 clients run tests against
it on loopback. Writes the fixtures in tests/data (also fuzzing seeds):

usage: capture_server_chunks.py <launcher> <out dir>

gives <out dir>/server-three-tests.json (TCP, UDP, TCP reverse in a row, 2 s
each) and <out dir>/server-port-in-use.json (a second server on that port).
The launcher is run the way the engine runs it: "/bin/sh" "-c" with a quoted
path and a leading "./iperf3" word, in a process group of its own.
"""
import json, os, select, signal, socket, subprocess, sys, time


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def start(launcher, port):
    return subprocess.Popen(["/bin/sh", "-c", '"%s" ./iperf3  -s -p %d' % (launcher, port)], stdout=subprocess.PIPE,
                            stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)


def read_until(process, chunks, done, timeout):
    deadline = time.time() + timeout
    while not done() and time.time() < deadline:
        if select.select([process.stdout], [], [], 0.05)[0]:
            data = os.read(process.stdout.fileno(), 65536)
            if not data:
                return
            chunks.append(data.decode())


def write(path, what, chunks):
    version = subprocess.run(["iperf3", "--version"], capture_output=True, text=True).stdout.splitlines()[0]
    with open(path, "w") as f:
        json.dump({"chunks": chunks, "tool": "mac-native-iperf launcher over %s, server mode, loopback" % version,
                   "what": what}, f, indent=4)


def main():
    launcher, out_dir = sys.argv[1], sys.argv[2]
    port = free_port()
    server, chunks = start(launcher, port), []
    try:
        read_until(server, chunks, lambda: chunks, 5)
        for options in (["-t", "2"], ["-u", "-t", "2"], ["-R", "-t", "2"]):
            client = subprocess.Popen(["iperf3", "-c", "127.0.0.1", "-p", str(port)] + options, stdout=subprocess.DEVNULL)
            read_until(server, chunks, lambda: client.poll() is not None, 15)
            # The server's summary comes out after the client has gone.
            count = len(chunks)
            read_until(server, chunks, lambda: len(chunks) > count + 1, 1)
            if client.wait() != 0:
                sys.exit("client %s failed" % " ".join(options))
        second, refused = start(launcher, port), []
        read_until(second, refused, lambda: second.poll() is not None, 5)
        second.wait()
    finally:
        os.killpg(server.pid, signal.SIGTERM)
        server.wait()
    write(os.path.join(out_dir, "server-three-tests.json"), "iperf3 -c 127.0.0.1 -t 2, then -u -t 2, then -R -t 2", chunks)
    write(os.path.join(out_dir, "server-port-in-use.json"), "a second server on a port already served", refused)


if __name__ == "__main__":
    main()
