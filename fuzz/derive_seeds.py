#!/usr/bin/env python3
"""Writes the seed corpora under fuzz/corpus/ from the captured fixtures in
tests/data/ and a few hand-made texts in the shapes the parsers read.

Pieces of one input (output chunks, peer names, inventory texts) are joined
with the record separator byte 0x1e, as the fuzz targets split them.
Rerun after a fixture changes; files found by fuzzing are kept, not touched.
"""
import json
import pathlib
import re

SEP = b"\x1e"
HERE = pathlib.Path(__file__).resolve().parent
DATA = HERE.parent / "tests" / "data"
CORPUS = HERE / "corpus"


def write(target, name, data):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(data if isinstance(data, bytes) else data.encode())


def client_chunks(path):
    """The chunks of a client capture: '@@ chunk N bytes @@' headers, '#' comments."""
    text = path.read_text()
    body = "\n".join(l for l in text.split("\n") if not l.startswith("# "))
    parts = re.split(r"@@ chunk \d+ bytes @@\n", body)
    return [p.encode() for p in parts if p]


# The launcher's line transformer: stock iperf3 3.12 output, as captured.
for path in sorted((DATA / "tool").glob("iperf3-3.12-*.txt")):
    write("tool_lines", path.stem, path.read_bytes())
write("tool_lines", "headers-and-odd-lines",
      "[ ID] Interval           Transfer     Bitrate         Total Datagrams\n"
      "[  5]   0.00-1.00   sec   129 KBytes  1057 Kbits/sec  91\n"
      "[ ID] Interval           Transfer     Bitrate         Jitter    Lost/Total Datagrams\n"
      "[  5]   0.00-1.00   sec   129 KBytes  1057 Kbits/sec  0.012 ms  0/91 (0%)\n"
      "[  5]   0.00-3.00   sec  0.00 Bytes  0.00 Kbits/sec  0.000 ms  0/0 (0%)  receiver\n"
      "[SUM]   0.00-1.00   sec  1.10 GBytes  9448370 Kbits/sec\n"
      "[  5][TX-C]   0.00-1.00   sec  1.10 GBytes  9448370 Kbits/sec\n"
      "[  5]   3.00-3.00   sec  0.00 Bytes  0.00 Kbits/sec (omitted)\n")

# The client's parser: first byte = duration | UDP << 3 | reverse << 4 |
# kilo << 5 | stored interface addresses first << 6.
settings = {"client-tcp-3s.txt": 0x03, "client-udp-3s.txt": 0x0B, "client-udp-reverse-3s.txt": 0x1B}
for name, first in settings.items():
    chunks = client_chunks(DATA / name)
    write("client_output", pathlib.Path(name).stem, bytes([first]) + SEP.join(chunks))
tcp = client_chunks(DATA / "client-tcp-3s.txt")
write("client_output", "interface-named-from-stored-addresses",
      bytes([0x43]) + SEP.join([b"Wi-Fi (Primary): 192.168.1.5, Thunderbolt Bridge: 127.0.0.1, AirPort:127.0.0.1"] + tcp))
write("client_output", "connection-refused",
      bytes([0x0A]) + b"iperf3: error - unable to connect to server: Connection refused\n")
write("client_output", "two-lines-one-chunk-duration-0",
      bytes([0x00]) + b"RESULT_$#0.00-1.00 sec$#524288$#4194304$#sender\n"
      b"RESULT_$#1.00-2.00 sec$#524288$#4194304$#sender\n" + SEP +
      b"[ ID] Interval\nFinished_$#0.00-1.00 sec$#1$#2\n")
write("client_output", "cut-connection-line",
      bytes([0x1B]) + b"[  5] local 127.0.0.1 connected to" + SEP + b"x connected to local" + SEP +
      b"RESULT_$#0.00 sec$#1$#2$#3$#4$#5")

# The server's parser: chunks as the launcher's server wrote them.
for name in ("server-three-tests.json", "server-port-in-use.json"):
    chunks = json.loads((DATA / name).read_text())["chunks"]
    write("server_output", pathlib.Path(name).stem, SEP.join(c.encode() for c in chunks))
tagged = (DATA / "tool" / "iperf3-3.12-server.tagged").read_text()
write("server_output", "server-tagged-per-test",
      SEP.join(("Accepted connection" + t).encode() if i else t.encode()
               for i, t in enumerate(tagged.split("Accepted connection"))))

# The inventory: the three texts of a machine with loopback, Ethernet,
# Wi-Fi and a tunnel.
IFCONFIG = ("lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n"
            "\tinet 127.0.0.1 netmask 0xff000000\n"
            "eth0: flags=8863<UP,BROADCAST,RUNNING,MULTICAST> mtu 1500\n"
            "\tether 3c:22:fb:01:02:03\n"
            "\tinet 192.168.1.5 netmask 0xffffff00 broadcast 192.168.1.255\n"
            "\tstatus: active\n"
            "wlan0: flags=8863<UP,BROADCAST,RUNNING,MULTICAST> mtu 1500\n"
            "\tether aa:bb:cc:dd:ee:ff\n"
            "\tinet 10.0.0.7 netmask 0xff000000 broadcast 10.255.255.255\n"
            "\tinet 10.0.0.8 netmask 0xff000000 broadcast 10.255.255.255\n"
            "\tstatus: inactive\n"
            "bridge0: flags=8863<UP> mtu 1500\n"
            "\tmember: eth1 flags=3<LEARNING,DISCOVER>\n"
            "tun0: flags=8051<UP,POINTOPOINT,RUNNING,MULTICAST> mtu 1380\n"
            "\tinet 10.8.0.2 --> 10.8.0.1 netmask 0xffffffff\n")
PORTS = ("\nHardware Port: Ethernet\nDevice: eth0\nEthernet Address: 3c:22:fb:01:02:03\n\n"
         "Hardware Port: Wi-Fi\nDevice: wlan0\nEthernet Address: aa:bb:cc:dd:ee:ff\n\n"
         "Hardware Port: Ethernet\nDevice: eth1\n")


def profile_item(interface, name, kind, order):
    return ("<dict><key>_name</key><string>%s</string><key>interface</key><string>%s</string>"
            "<key>spnetwork_service_order</key><integer>%d</integer><key>type</key><string>%s</string></dict>"
            % (name, interface, order, kind))


PROFILE = ('<?xml version="1.0" encoding="UTF-8"?>\n'
           '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
           '<plist version="1.0"><array><dict><key>_items</key><array>'
           + profile_item("wlan0", "Wi-Fi", "AirPort", 0) + profile_item("eth0", "Ethernet", "Ethernet", 1)
           + profile_item("tun0", "Tunnel", "VPN", 0) + "</array></dict></array></plist>\n")
write("inventory_ifconfig", "machine", IFCONFIG)
# Past the first interface the loopback test is made, except for the last one.
write("inventory_ifconfig", "loopback-last", IFCONFIG.split("\n", 2)[2] + "lo0: flags=1 mtu 1\n\tinet 127.0.0.1 x\n")
write("inventory_profile", "machine", PROFILE)
write("inventory_profile", "not-a-list", "<plist version=\"1.0\"><dict><key>_items</key><string>x</string></dict></plist>")
write("inventory_ports", "machine", SEP.join(t.encode() for t in (PORTS, IFCONFIG, PROFILE)))
write("inventory_ports", "no-profile", SEP.join(t.encode() for t in (PORTS, IFCONFIG, "")))

# The Wi-Fi status text.
write("airport", "associated",
      "     agrCtlRSSI: -52\n     agrExtRSSI: 0\n    agrCtlNoise: -90\n    agrExtNoise: 0\n"
      "          state: running\n        op mode: station \n     lastTxRate: 867\n        maxRate: 867\n"
      "lastAssocStatus: 0\n    802.11 auth: open\n      link auth: wpa2-psk\n          BSSID: 0:1b:2c:3:4d:5e\n"
      "           SSID: Studio\n            MCS: 9\n        channel: 149,80\n")
write("airport", "marker-on-first-line", "SSID: first\nBSSID:   \n")

# The defaults resource as shipped, and property lists of other shapes.
write("defaults_plist", "shipped", (HERE.parent / "resources" / "com.norvale.mactidewave-default-values.plist").read_bytes())
write("defaults_plist", "other-types",
      '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
      "<key>serverPort</key><string>12abc</string><key>testDuration</key><real>2.5</real>"
      "<key>audioAlert</key><true/><key>bufferLength</key><data>AAEC</data>"
      "<key>statsInterval</key><date>2020-01-01T00:00:00Z</date>"
      "<key>testType</key><array><integer>1</integer><dict/></array></dict></plist>\n")
write("defaults_plist", "array-root", '<plist version="1.0"><array><string>x</string></array></plist>')

# Peer names as browsers report them ("-" withdraws a name).
names = ["Studio,5201,192_168_1_20,Wi-Fi (Primary)", "Laptop,5201,10_0_0_7,Ethernet",
         "NoCommas", "Two,fields", "Studio,5201,192_168_1_20,Wi-Fi (Primary)",
         "-Laptop,5201,10_0_0_7,Ethernet", "Ünïcødé Mac,65535,fe80__1,Thunderbolt Bridge"]
write("discovery_names", "peers", SEP.join(n.encode() for n in names))
write("discovery_names", "long-display",
      "A very long machine name,5201,192_168_100_200," + "Wireless adapter with a long name " * 3 + " (Primary)")

# Results files in the shape Tidewave writes them: columns of interval
# records (a list, or one value for all), a final record, the settings.
def results_file(tests):
    return json.dumps({"format": "Tidewave results", "version": 1, "application": "Tidewave 1.0 (build 1)",
                       "tests": tests}, separators=(",", ":"), ensure_ascii=False)


settings = {"serverIP": "192.168.1.20", "serverPort": 5201, "localIP": None, "duration": 2, "stats_interval": 1,
            "testType": 1, "reverse": 1, "bandwidthformat": 0, "sendBandwidth": 0, "bufferLength": 8,
            "datagramSize": 0, "graphMaxSpeed": 100, "testLabel": "UDP Test", "isTestRunning": 0,
            "isSelected": 1, "index": 0, "invalidTestDuration": 1, "parallelStreams": 1, "twoWay": 0}
intervals = {"startTime": ["0.00", "1.00"], "endTime": ["1.00", "2.00"], "sentBytes": [131072, 130048],
             "sentBandwidth": [1048576, 1040384.5], "interfaceName": "WiFi", "ssidField": "Harbour",
             "bssidField": "a4:2b:b0:12:34:56", "rssiField": [-52, -55], "noiseField": -92, "txRateField": 866,
             "jitter": ["0.012 ms", "0.020 ms"], "lostTotalDataGrams": ["0/91", "1/90"], "ip": None,
             "createdAt": None, "total_packets": [None, 7], "OSXVersion": "nan", "roundTripMs": -1,
             "udpLostDatagrams": [0, 1], "udpTotalDatagrams": [91, 90], "direction": 1}
final = {"startTime": "0.00", "endTime": "2.00", "sentBytes": 261120, "sentBandwidth": "inf",
         "jitter": "0.020 ms", "lostTotalDataGrams": "1/181", "createdAt": "2025-11-23T08:00:00.042Z"}
one = {"settings": settings, "startDate": "2025-11-23T08:00:00.042Z", "note": "kitchen, \"door\" shut\n2nd line",
       "intervalCount": 2, "intervals": intervals, "final": final}
empty = {"settings": {"testLabel": ""}, "startDate": None, "note": "", "intervalCount": 0, "intervals": {}, "final": None}
write("results_file", "two-tests", results_file([one, empty]))
write("results_file", "cut-short", results_file([one])[:300])
write("results_file", "newer", results_file([]).replace('"version":1', '"version":2'))
