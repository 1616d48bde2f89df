#!/usr/bin/python3
"""Makes examples/capture.pcap: ten seconds of control traffic on one switch port.

BGP keepalives from two peers and two bursts of updates, LACP and LLDP on their timers, ARP
with a storm, DHCP with a flood of discovers, and some management traffic that no CoPP class
of the example claims. The same file every run: every random choice comes from one seed.

    examples/make-capture.py [OUT]        (default: capture.pcap beside this script)
Needs Debian's python3-scapy.
"""
import os
import random
import sys
from decimal import Decimal

from scapy.all import (ARP, BOOTP, DHCP, IP, TCP, UDP, Dot3, Ether, Raw, wrpcap)

SEED = 16
START = 1700000000  # capture clock, seconds
SECONDS = 10.0
SWITCH_MAC = "00:1c:73:00:00:01"
rng = random.Random(SEED)
packets = []  # (microseconds from START, packet)


def at(t, pkt):
    if 0 <= t < SECONDS:
        packets.append((int(round(t * 1e6)), pkt))


def mac(i):
    return "02:00:00:%02x:%02x:%02x" % ((i >> 16) & 0xFF, (i >> 8) & 0xFF, i & 0xFF)


def bgp(kind, length):
    # Marker, length, type; an update's body is opaque here.
    return Raw(b"\xff" * 16 + length.to_bytes(2, "big") + bytes([kind]) + b"\x00" * (length - 19))


# BGP: two peers, a keepalive every 3 s or so, and bursts of updates after a route change.
peers = [("10.0.0.2", 40001, mac(0x10)), ("10.0.1.2", 40002, mac(0x11))]
for peer, sport, pmac in peers:
    seq = rng.randrange(1 << 31)
    t = rng.uniform(0.1, 1.0)
    while t < SECONDS:
        at(t, Ether(src=pmac, dst=SWITCH_MAC) / IP(src=peer, dst="10.0.0.1") /
           TCP(sport=sport, dport=179, flags="PA", seq=seq) / bgp(4, 19))
        seq += 19
        t += rng.uniform(2.7, 3.3)
for start, count in [(2.0, 150), (6.5, 90)]:
    peer, sport, pmac = peers[0]
    t = start
    for i in range(count):
        size = rng.randrange(60, 400)
        at(t, Ether(src=pmac, dst=SWITCH_MAC) / IP(src=peer, dst="10.0.0.1") /
           TCP(sport=sport, dport=179, flags="PA", seq=1000 + i * 400) / bgp(2, size))
        t += rng.expovariate(1 / 0.0015)

# LACP (slow protocols) every second, LLDP every two.
for i in range(10):
    lacpdu = bytes([1, 1, 1, 20]) + b"\x00" * 106
    at(i + 0.25 + rng.uniform(0, 0.01),
       Ether(src=mac(0x20), dst="01:80:c2:00:00:02", type=0x8809) / Raw(lacpdu))
for i in range(5):
    tlvs = (b"\x02\x07\x04" + bytes.fromhex("021000000020") + b"\x04\x04\x05et1" +
            b"\x06\x02\x00\x78" + b"\x00\x00")
    at(2 * i + 0.6 + rng.uniform(0, 0.01),
       Ether(src=mac(0x20), dst="01:80:c2:00:00:0e", type=0x88CC) / Raw(tlvs))

# ARP: a few requests a second, then a storm from a looped segment.
def arp(t, i):
    at(t, Ether(src=mac(0x1000 + i), dst="ff:ff:ff:ff:ff:ff") /
       ARP(op=1, hwsrc=mac(0x1000 + i), psrc="10.0.%d.%d" % (2 + i % 200, 1 + i % 250),
           pdst="10.0.0.1"))


t = 0.0
while t < SECONDS:
    arp(t, rng.randrange(64))
    t += rng.expovariate(5)
t = 4.0
for i in range(1000):
    arp(t, i)
    t += rng.expovariate(2500)

# DHCP: now and then a client, then a flood of discovers from forged addresses; the relay's
# answers go back out on the same port.
def discover(t, i):
    at(t, Ether(src=mac(0x200000 + i), dst="ff:ff:ff:ff:ff:ff") /
       IP(src="0.0.0.0", dst="255.255.255.255") / UDP(sport=68, dport=67) /
       BOOTP(chaddr=bytes.fromhex(mac(0x200000 + i).replace(":", "")), xid=i) /
       DHCP(options=[("message-type", "discover"), "end"]))


t = 0.3
while t < SECONDS:
    i = rng.randrange(1 << 16)
    discover(t, i)
    at(t + 0.002, Ether(src=SWITCH_MAC, dst=mac(0x200000 + i)) /
       IP(src="10.0.0.1", dst="10.0.9.9") / UDP(sport=67, dport=68) / BOOTP(op=2, xid=i) /
       DHCP(options=[("message-type", "offer"), "end"]))
    t += rng.expovariate(1.5)
t = 7.0
for i in range(700):
    discover(t, 0x10000 + i)
    t += rng.expovariate(2000)

# Management traffic: SSH and pings, for no CoPP class of the example.
t = 0.0
while t < SECONDS:
    if rng.random() < 0.7:
        at(t, Ether(src=mac(0x30), dst=SWITCH_MAC) / IP(src="192.0.2.10", dst="10.0.0.1") /
           TCP(sport=51000, dport=22, flags="A"))
    else:
        at(t, Ether(src=mac(0x30), dst=SWITCH_MAC) / IP(src="192.0.2.10", dst="10.0.0.1", proto=1) /
           Raw(b"\x08\x00\xf7\xff\x00\x00\x00\x00"))
    t += rng.expovariate(20)

packets.sort(key=lambda p: p[0])
out = []
for us, pkt in packets:
    pkt.time = Decimal(START) + Decimal(us) / Decimal(1000000)
    out.append(pkt)
path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "capture.pcap")
wrpcap(path, out)
print("%s: %d packets" % (path, len(out)))
