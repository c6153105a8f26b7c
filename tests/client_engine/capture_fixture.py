#!/usr/bin/env python3
"""Captures the standard output of the mac-native-iperf launcher, chunk by
chunk as a reader of its pipe receives it, for the client engine's fixtures.

usage: capture_fixture.py <launcher> <output file> <duration> [extra options...]

Runs a stock "iperf3 -s -1" on a free loopback port and the launcher as a
client against it through "/bin/sh" "-c", the way the engine starts it.

Fixture format: '#' comment lines, then for every chunk a line
"@@ chunk <n> bytes @@" followed by exactly n bytes.
"""
import os
import socket
import subprocess
import sys
import time


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def main():
    launcher, out_path, duration = sys.argv[1], sys.argv[2], int(sys.argv[3])
    extra = sys.argv[4:]
    port = free_port()
    server = subprocess.Popen(["iperf3", "-s", "-1", "-B", "127.0.0.1", "-p", str(port)],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        deadline = time.time() + 5
        while time.time() < deadline:
            with socket.socket() as probe:
                # A refused connect means not listening yet; never connect to
                # a one-off server, so test the port by binding it instead.
                try:
                    probe.bind(("127.0.0.1", port))
                except OSError:
                    break
            time.sleep(0.05)
        options = ["./iperf3 ", "-c", "127.0.0.1", "-p%d" % port] + extra + ["-t%d" % duration, "-i1"]
        command = '"%s" %s' % (launcher, " ".join(options))
        client = subprocess.Popen(["/bin/sh", "-c", command], stdout=subprocess.PIPE,
                                  stdin=subprocess.DEVNULL)
        chunks = []
        while True:
            data = os.read(client.stdout.fileno(), 65536)
            if not data:
                break
            chunks.append(data)
        client.wait(timeout=duration + 15)
    finally:
        server.kill()
        server.wait()

    version = subprocess.run(["iperf3", "--version"], capture_output=True, text=True).stdout.splitlines()[0]
    with open(out_path, "wb") as f:
        f.write(("# Captured from the mac-native-iperf launcher over stock %s\n" % version).encode())
        f.write(("# against a stock iperf3 -s on 127.0.0.1; options: %s\n" % " ".join(options[1:])).encode())
        f.write(b"# Chunk boundaries are the reads of the launcher's output pipe.\n")
        for chunk in chunks:
            f.write(b"@@ chunk %d bytes @@\n" % len(chunk))
            f.write(chunk)


if __name__ == "__main__":
    main()
