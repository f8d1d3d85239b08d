#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Write a packet capture (pcapng by default, or classic pcap) from a list
of frames built by mkframe.py, for veyra-sim's "pcap" command.

The input lists one frame per line:

    # milliseconds  direction  mkframe.py arguments
    0     in   dhcp discover --client 02:11:22:33:44:55 --hostname phone
    120   out  dhcp offer --client 02:11:22:33:44:55 --yiaddr 192.168.1.23 ...

The time is the frame's offset from the start of the capture. The
direction is "in" (received on the captured interface, i.e. from the
station), "out" (sent through it) or "-" (not recorded). In pcapng it is
written as the epb_flags option; classic pcap has no place for it.

  mkpcap.py [--format pcapng|pcap] [--nanosecond] [--big-endian]
            [--simple] [--ifname NAME] [--start SECONDS] FRAMES OUT
"""

import argparse
import os
import shlex
import struct
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import mkframe  # noqa: E402

LINKTYPE_ETHERNET = 1
DEFAULT_START = 1700000000  # seconds since the epoch of the first frame


def read_frames(path):
    """[(offset_ns, direction, bytes)] from a frames file."""
    frames = []
    with open(path, encoding="utf-8") as f:
        for lineno, line in enumerate(f, 1):
            words = shlex.split(line, comments=True)
            if not words:
                continue
            if len(words) < 3 or words[1] not in ("in", "out", "-"):
                raise SystemExit("%s:%d: expected: MILLISECONDS in|out|- MKFRAME-ARGS"
                                 % (path, lineno))
            try:
                offset_ns = int(round(float(words[0]) * 1e6))
                data = mkframe.frame(words[2:])
            except (ValueError, mkframe.FrameError) as err:
                raise SystemExit("%s:%d: %s" % (path, lineno, err))
            frames.append((offset_ns, words[1], data))
    return frames


def pad4(data):
    return data + bytes(-len(data) % 4)


def block(order, btype, body):
    length = 12 + len(body)
    return struct.pack(order + "II", btype, length) + body + struct.pack(order + "I", length)


def option(order, code, value):
    return struct.pack(order + "HH", code, len(value)) + pad4(value)


def pcapng(frames, start_ns, nanosecond=False, big_endian=False, simple=False,
           ifname="wlan0"):
    order = ">" if big_endian else "<"
    out = block(order, 0x0A0D0D0A,
                struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1) +
                option(order, 4, b"veyra mkpcap.py") + option(order, 0, b""))
    opts = option(order, 2, ifname.encode())
    if nanosecond:
        opts += option(order, 9, bytes([9]))
    opts += option(order, 0, b"")
    out += block(order, 1, struct.pack(order + "HHI", LINKTYPE_ETHERNET, 0, 262144) + opts)
    for offset_ns, direction, data in frames:
        if simple:
            out += block(order, 3, struct.pack(order + "I", len(data)) + pad4(data))
            continue
        t = start_ns + offset_ns
        ticks = t if nanosecond else t // 1000
        body = struct.pack(order + "IIIII", 0, ticks >> 32, ticks & 0xFFFFFFFF,
                           len(data), len(data)) + pad4(data)
        if direction != "-":
            flags = 1 if direction == "in" else 2
            body += option(order, 2, struct.pack(order + "I", flags)) + option(order, 0, b"")
        out += block(order, 6, body)
    return out


def pcap(frames, start_ns, nanosecond=False, big_endian=False):
    order = ">" if big_endian else "<"
    magic = 0xA1B23C4D if nanosecond else 0xA1B2C3D4
    out = struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 262144, LINKTYPE_ETHERNET)
    for offset_ns, _direction, data in frames:
        t = start_ns + offset_ns
        frac = t % 1000000000 if nanosecond else (t % 1000000000) // 1000
        out += struct.pack(order + "IIII", t // 1000000000, frac, len(data), len(data)) + data
    return out


def main(argv):
    p = argparse.ArgumentParser(prog="mkpcap.py", description=__doc__.split("\n\n")[0])
    p.add_argument("frames", help="the frames file")
    p.add_argument("out", help="the capture to write")
    p.add_argument("--format", choices=["pcapng", "pcap"], default="pcapng")
    p.add_argument("--nanosecond", action="store_true",
                   help="nanosecond timestamps (default: microseconds)")
    p.add_argument("--big-endian", action="store_true")
    p.add_argument("--simple", action="store_true",
                   help="pcapng simple packet blocks (no time, no direction)")
    p.add_argument("--ifname", default="wlan0")
    p.add_argument("--start", type=int, default=DEFAULT_START,
                   help="capture time of the first frame, in seconds since the epoch")
    a = p.parse_args(argv)
    frames = read_frames(a.frames)
    start_ns = a.start * 1000000000
    if a.format == "pcap":
        data = pcap(frames, start_ns, a.nanosecond, a.big_endian)
    else:
        data = pcapng(frames, start_ns, a.nanosecond, a.big_endian, a.simple, a.ifname)
    with open(a.out, "wb") as f:
        f.write(data)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
