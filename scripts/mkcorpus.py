#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Write the seed corpora of the fuzz targets (tests/fuzz/corpus/<target>/)
from frames built by mkframe.py and from the packet captures of the
scenario tests and the examples (and any other capture given with --pcap,
such as one recorded on the VM harness's access point).

  mkcorpus.py [--out DIR] [--pcap FILE ...]

Each seed is a file named after what it holds. The byte layouts are the
ones documented at the top of each tests/fuzz/fuzz_<target>.cpp; the
helpers below mirror them. Running the script again rewrites the same
files, so a change in a layout is one edit here and one run.
"""

import argparse
import glob
import os
import shlex
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, HERE)
import mkframe  # noqa: E402

STA = "02:11:22:33:44:55"       # fz::station_mac(0)
STA_IP = "192.168.1.23"
SERVER = "192.168.1.1"

# ---- frames and payloads ------------------------------------------------


def frame(text):
    return mkframe.frame(shlex.split(text))


def udp_payload(f):
    """The UDP payload of an Ethernet/IPv4/UDP frame, or None."""
    if len(f) < 14 + 20 or f[12:14] != b"\x08\x00":
        return None
    ihl = (f[14] & 0x0F) * 4
    start = 14 + ihl + 8
    return f[start:] if len(f) >= start and f[14 + 9] == 17 else None


def ports(f):
    ihl = (f[14] & 0x0F) * 4
    return struct.unpack("!HH", f[14 + ihl:14 + ihl + 4])


DHCP = {
    "discover": "dhcp discover --client %s --hostname phone --requested %s" % (STA, STA_IP),
    "offer": "dhcp offer --client %s --yiaddr %s --server-id %s --router %s --dns %s"
             % (STA, STA_IP, SERVER, SERVER, SERVER),
    "request": "dhcp request --client %s --requested %s --server-id %s --hostname phone"
               % (STA, STA_IP, SERVER),
    "ack": "dhcp ack --client %s --yiaddr %s --server-id %s --router %s --dns 192.168.1.1,8.8.8.8"
           % (STA, STA_IP, SERVER, SERVER),
    "nak": "dhcp nak --client %s --server-id %s" % (STA, SERVER),
    "release": "dhcp release --client %s --ciaddr %s --server-id %s" % (STA, STA_IP, SERVER),
    "inform": "dhcp inform --client %s --ciaddr %s" % (STA, STA_IP),
    "decline": "dhcp decline --client %s --requested %s" % (STA, STA_IP),
    "ack-no-yiaddr": "dhcp ack --client %s --server-id %s" % (STA, SERVER),
    "hostname-64": "dhcp request --client %s --hostname %s" % (STA, "h" * 64),
    "hostname-65": "dhcp request --client %s --hostname %s" % (STA, "h" * 65),
    "two-hostnames": "dhcp request --client %s --raw-option 12:616263646566 "
                     "--raw-option 12:7879" % STA,
    "type-len-2": "dhcp discover --client %s --no-type --raw-option 53:0101" % STA,
    "type-200": "dhcp discover --client %s --no-type --raw-option 53:c8" % STA,
    "no-type": "dhcp discover --client %s --no-type" % STA,
    "bad-cookie": "dhcp discover --client %s --cookie 63825364" % STA,
    "max-552": "dhcp discover --client %s --pad-to 552" % STA,
    "cut-option": "dhcp discover --client %s --no-end --raw-option 54:c0a8 --pad-to 0" % STA,
}

DNS = {
    "query": "dns query www.example.com --client %s --client-ip %s" % (STA, STA_IP),
    "query-aaaa": "dns query www.example.com --qtype aaaa --client %s --client-ip %s"
                  % (STA, STA_IP),
    "query-root": "dns query . --client %s --client-ip %s" % (STA, STA_IP),
    "query-127": "dns query %s --allow-long-labels --client %s --client-ip %s"
                 % (".".join(["a" * 63, "b" * 63]), STA, STA_IP),
    "query-long": "dns query %s --client %s --client-ip %s"
                  % (".".join(["x" * 40] * 4), STA, STA_IP),
    "answer-a": "dns answer example.com --a 93.184.216.34 --client %s --client-ip %s"
                % (STA, STA_IP),
    "answer-cname": "dns answer www.example.com --cname www.example.com=edge.example.net "
                    "--a edge.example.net=93.184.216.34 --client %s --client-ip %s"
                    % (STA, STA_IP),
    "answer-cname-chain": "dns answer cdn.example.org --cname cdn.example.org=a.lan "
                          "--cname a.lan=example.com --a example.com=10.0.0.1 "
                          "--a example.com=10.0.0.2 --client %s --client-ip %s"
                          % (STA, STA_IP),
    "answer-nocompress": "dns answer www.example.com --no-compress "
                         "--cname www.example.com=edge.example.net "
                         "--a edge.example.net=93.184.216.34 --client %s --client-ip %s"
                         % (STA, STA_IP),
    "nxdomain": "dns answer a.lan --rcode nxdomain --client %s --client-ip %s" % (STA, STA_IP),
    "servfail-aaaa": "dns answer a.lan --qtype aaaa --rcode servfail --client %s "
                     "--client-ip %s" % (STA, STA_IP),
    "ancount-5": "dns answer example.com --a 1.2.3.4 --ancount 5 --client %s --client-ip %s"
                 % (STA, STA_IP),
    "qdcount-2": "dns answer example.com --a 1.2.3.4 --qdcount 2 --client %s --client-ip %s"
                 % (STA, STA_IP),
}


def dns_raw(body, flags=0x8180, qd=1, an=1):
    return struct.pack("!HHHHHH", 0x4321, flags, qd, an, 0, 0) + body


# Hand-made messages no builder makes: pointer loops and chains.
DNS_RAW = {
    "pointer-loop": dns_raw(b"\x01a\x00\x00\x01\x00\x01" + b"\xc0\x13\x00\x01\x00\x01"
                            b"\x00\x00\x01\x2c\x00\x04\x01\x02\x03\x04"
                            + b"\xc0\x13"),
    "pointer-self": dns_raw(b"\x01a\x00\x00\x01\x00\x01" + b"\xc0\x13"),
    "pointer-chain": dns_raw(b"\x01a\x00\x00\x01\x00\x01"
                             + b"".join(struct.pack("!H", 0xC000 | (0x13 + 2 * i))
                                        for i in range(1, 20)) + b"\xc0\x0c"),
    "cname-empty-rdata": dns_raw(b"\x01a\x00\x00\x01\x00\x01\xc0\x0c\x00\x05\x00\x01"
                                 b"\x00\x00\x01\x2c\x00\x00"),
}

# ---- captures -----------------------------------------------------------


LINKTYPE_ETHERNET, LINKTYPE_LINUX_SLL, LINKTYPE_LINUX_SLL2 = 1, 113, 276


def ethernet_frame(linktype, rec):
    """The record as an Ethernet frame: Linux cooked captures (tcpdump -i any,
    as the VM harness records) keep the sender's address and the protocol, so
    the frame is rebuilt around them with a broadcast destination."""
    if linktype == LINKTYPE_ETHERNET:
        return rec
    if linktype == LINKTYPE_LINUX_SLL and len(rec) >= 16:
        proto, alen, addr, body = rec[14:16], rec[4:6], rec[6:12], rec[16:]
    elif linktype == LINKTYPE_LINUX_SLL2 and len(rec) >= 20:
        proto, alen, addr, body = rec[0:2], rec[11:12], rec[12:18], rec[20:]
    else:
        return None
    if int.from_bytes(alen, "big") != 6:
        return None
    return b"\xff" * 6 + addr + proto + body


def read_capture(path):
    """Ethernet frames of a pcap or pcapng file (either byte order)."""
    data = open(path, "rb").read()
    frames = []
    if data[:4] in (b"\xd4\xc3\xb2\xa1", b"\x4d\x3c\xb2\xa1",
                    b"\xa1\xb2\xc3\xd4", b"\xa1\xb2\x3c\x4d"):
        e = "<" if data[:4] in (b"\xd4\xc3\xb2\xa1", b"\x4d\x3c\xb2\xa1") else ">"
        if len(data) < 24:
            return frames
        linktype = struct.unpack(e + "I", data[20:24])[0] & 0xFFFF
        off = 24
        while off + 16 <= len(data):
            incl = struct.unpack(e + "I", data[off + 8:off + 12])[0]
            if off + 16 + incl > len(data):
                break
            f = ethernet_frame(linktype, data[off + 16:off + 16 + incl])
            if f is not None:
                frames.append(f)
            off += 16 + incl
        return frames
    if data[:4] != b"\x0a\x0d\x0d\x0a" or len(data) < 12:
        return frames
    e = "<" if data[8:12] == b"\x4d\x3c\x2b\x1a" else ">"
    off = 0
    while off + 12 <= len(data):
        btype, blen = struct.unpack(e + "II", data[off:off + 8])
        if blen < 12 or off + blen > len(data):
            break
        if btype == 6 and blen >= 28:
            cap = struct.unpack(e + "I", data[off + 20:off + 24])[0]
            frames.append(data[off + 28:off + 28 + min(cap, blen - 28)])
        off += blen
    return frames


def capture_messages(paths):
    """(name, frame, payload, is_dhcp) for every DHCP or DNS frame."""
    out = []
    for path in paths:
        for i, f in enumerate(read_capture(path)):
            p = udp_payload(f)
            if p is None:
                continue
            sport, dport = ports(f)
            if 67 in (sport, dport):
                kind = True
            elif 53 in (sport, dport):
                kind = False
            else:
                continue
            base = os.path.splitext(os.path.basename(path))[0]
            out.append(("%s-%d" % (base, i), f, p, kind))
    return out

# ---- the layouts of the targets ----------------------------------------


def rec16(ctl, msg):
    return bytes([ctl]) + struct.pack("!H", len(msg)) + msg


def skb_rec(ctl, port, f, linear=0xFFFF):
    return bytes([ctl, port]) + struct.pack("!HH", linear, len(f)) + f


# fuzz_module operations
MACS = [STA, "02:11:22:33:44:66", "aa:bb:cc:dd:ee:ff", "02:00:00:00:00:09"]  # fz::station_mac


def event(code, a):
    return bytes([0, a, code & 0xFF])


def join(a):
    return event(0, a)


def leave(a):
    return event(1, a)


def raw_frame(post, f, port=1, linear=0xFFFF):
    return bytes([1, (port << 1) | post]) + struct.pack("!HH", linear, len(f)) + f


# The exchanges of a station: (builder line, towards the station).
EXCHANGE = {"discover": (DHCP, False), "offer": (DHCP, True), "request": (DHCP, False),
            "ack": (DHCP, True), "nak": (DHCP, True), "query": (DNS, False),
            "answer-a": (DNS, True), "answer-cname": (DNS, True), "nxdomain": (DNS, True)}


def tmpl(key, sta=0, port=1, linear=0xFFFF):
    """One message of a station's exchanges, for station MACS[sta]."""
    table, to_sta = EXCHANGE[key]
    return raw_frame(to_sta, frame(table[key].replace(STA, MACS[sta])), port, linear)


def advance(j):
    return bytes([2]) + struct.pack("!H", j if j < 700 else 0x8000 | (j // 2))


def command(line, dump=False, keep=False, copy_fails=False):
    """A command line; the file it opens is closed after it unless kept."""
    line = line.encode("latin-1") if isinstance(line, str) else line
    how = (1 if dump else 0) | (0 if keep else 2) | (4 if copy_fails else 0)
    return bytes([3, how, len(line)]) + line


def read(how, size):
    """how: 1 the dump device, 2 closed afterwards, 4 the copy fails, 8 the
    whole pass."""
    return bytes([4, how]) + struct.pack("!H", size)


SETTLE, CLOSE, HOOKFAIL = advance(0), read(2, 0), bytes([6])


def allocfail(a):
    return bytes([5, a])


def reload(fails=0):
    return bytes([7, fails])


# ---- the corpora --------------------------------------------------------


def corpus_dns(caps):
    seeds = {}
    p = {k: udp_payload(frame(v)) for k, v in DNS.items()}
    p.update(DNS_RAW)
    for k, m in p.items():
        resp = k not in ("query", "query-aaaa", "query-root", "query-127", "query-long")
        seeds[k] = rec16(0x41 if resp else 0x40, m)
    seeds["ask-first-answer"] = rec16(0x43, udp_payload(frame(
        "dns answer new.example.org --cname new.example.org=x.example.org "
        "--a x.example.org=10.1.1.1 --client %s --client-ip %s" % (STA, STA_IP))))
    seeds["query-answer-dump"] = (rec16(0x30, p["query"]) + rec16(0x31, p["answer-cname"])
                                  + rec16(0xc1, p["answer-a"]))
    seeds["timeout-then-answer"] = rec16(0x40, p["query"]) + rec16(0x09, p["answer-cname"])
    seeds["unknown-station"] = rec16(0x44, p["query"]) + rec16(0x45, p["answer-a"])
    seeds["query-to-station"] = rec16(0x41, p["query"])
    seeds["answer-from-station"] = rec16(0x40, p["answer-a"])
    seeds["header-only"] = rec16(0x41, p["answer-a"][:12])
    for name, _, payload, is_dhcp in caps:
        if not is_dhcp:
            seeds["cap-" + name] = rec16(0x43 if payload[2] & 0x80 else 0x40, payload)
    return seeds


def corpus_skb(caps):
    seeds = {}
    disc, offer = frame(DHCP["discover"]), frame(DHCP["offer"])
    query, answer = frame(DNS["query"]), frame(DNS["answer-cname"])
    seeds["dhcp-discover-vap"] = skb_rec(0x40, 1, disc)
    seeds["dhcp-offer-vap"] = skb_rec(0x41, 1, offer)
    seeds["dns-query-vlan"] = skb_rec(0x40, 2, query)
    seeds["dns-answer-vlan2"] = skb_rec(0x41, 3, answer)
    seeds["dns-answer-vlan3"] = skb_rec(0x41, 4, answer)
    seeds["wired"] = skb_rec(0x40, 0, query) + skb_rec(0x41, 5, answer)
    seeds["no-port"] = skb_rec(0x40, 6, query)
    seeds["no-bridge"] = skb_rec(0x41, 7, answer)
    seeds["linear-34"] = skb_rec(0x40, 1, disc, 34)
    seeds["linear-41"] = skb_rec(0x41, 1, answer, 41)
    seeds["linear-60"] = skb_rec(0x41, 1, answer, 60)
    seeds["no-mac-header"] = skb_rec(0x48, 1, query)
    seeds["mac-offset"] = skb_rec(0x40, 1 | (5 << 3), query)
    seeds["direct-parse"] = skb_rec(0x46, 0, answer)
    knobs = {
        "udp-len-7": "--udp-len 7",
        "udp-len-big": "--udp-len 4000",
        "ip-options": "--ip-options 01010101deadbeef",
        "first-fragment": "--more-fragments",
        "later-fragment": "--frag-offset 185",
        "truncated": "--truncate 50",
    }
    for k, v in knobs.items():
        seeds[k] = skb_rec(0x40, 1, frame(DNS["query"] + " " + v))
    seeds["dhcp-68-68"] = skb_rec(0x40, 1, frame(
        "udp --src-mac %s --dst-mac ff:ff:ff:ff:ff:ff --src-ip 0.0.0.0 "
        "--dst-ip 255.255.255.255 --sport 68 --dport 68 --zeros 240" % STA))
    seeds["dhcp-67-53"] = skb_rec(0x40, 1, frame(
        "udp --src-mac %s --dst-mac 02:00:00:00:00:01 --src-ip %s --dst-ip %s "
        "--sport 53 --dport 67 --payload 00" % (STA, STA_IP, SERVER)))
    seeds["not-ip"] = skb_rec(0x40, 1, frame(
        "eth --src-mac %s --dst-mac ff:ff:ff:ff:ff:ff --ethertype 0x86dd --payload 6000" % STA))
    seeds["debug-summary"] = skb_rec(0x40, 1, query) + skb_rec(0xc1, 1, answer)
    # The DHCP parser is fuzzed through the frames: every odd message, the
    # exchanges, and every DHCP message of the captures.
    dhcp = {k: frame(v) for k, v in DHCP.items()}
    to_sta = {"offer", "ack", "nak", "ack-no-yiaddr"}
    for k, f in dhcp.items():
        seeds["dhcp-" + k] = skb_rec(0x40 | (k in to_sta), 1, f)
    seeds["dhcp-exchange"] = b"".join(skb_rec(0x40 | d, 1, dhcp[k]) for k, d in
                                      (("discover", 0), ("offer", 1), ("request", 0), ("ack", 1)))
    seeds["dhcp-renew-dump"] = (skb_rec(0x40, 2, dhcp["request"]) + skb_rec(0x41, 2, dhcp["ack"])
                                + skb_rec(0xc1, 1, dhcp["nak"]))
    for name, f, payload, is_dhcp in caps:
        to_sta = (payload[0] == 2) if is_dhcp else bool(payload[2] & 0x80)
        seeds["cap-" + name] = skb_rec(0x40 | (1 if to_sta else 0), 1, f)
    return seeds


def command_seeds():
    """Command lines, each written and followed by a read of the whole pass,
    as (how, line): bit 0 the dump device, bit 4 the copy fails."""
    lines = {
        "force-listen-1": (0x02, "force_listen 1"),
        "force-listen-0": (0x03, "force_listen 0\n"),
        "force-listen-10": (0x04, "force_listenX 10"),
        "del-sta": (0x02, "del sta 02:11:22:33:44:55"),
        "del-sta-short": (0x02, "del sta 2:11:22:33:44:55\n"),
        "del-sta-five": (0x02, "del sta 02:11:22:33:44"),
        "del-sta-0x": (0x02, "del sta 0x2:0x11:22:33:44:55"),
        "del-all": (0x03, "del all"),
        "delete-other": (0x02, "delete thing"),
        "debug-level-4": (0x04, "debug_level 4"),
        "debug-level-0": (0x02, "debug_level 0"),
        "debug-level-5": (0x02, "debug_level 5"),
        "debug-levels-4x": (0x02, "debug_levels 4x"),
        "help": (0x02, "help"),
        "blanks": (0x02, "   \t del \n all"),
        "length-64": (0x02, "del sta " + "0" * 56),
        "length-65": (0x02, "del sta " + "0" * 57),
        "binary": (0x02, b"del\x00sta\xff\x01:02"),
        "copy-fails": (0x12, "force_listen 1"),
        "empty": (0x02, ""),
    }
    seeds = {"command-" + k: command(l, c & 1, True, c & 0x10) + read(1 | 2 | 8, 4096)
             for k, (c, l) in lines.items()}
    seeds["command-sequence"] = (command("force_listen 1", keep=True) + read(8, 400)
                                 + command("debug_level 4", True) + join(3)
                                 + command("del sta aa:bb:cc:dd:ee:ff", True)
                                 + command("del all", True, True) + read(1 | 2 | 8, 351))
    return seeds


def corpus_module(caps):
    onboarding = (join(0) + tmpl("discover") + tmpl("offer") + tmpl("request") + tmpl("ack")
                  + tmpl("query") + tmpl("answer-cname") + SETTLE)
    seeds = {
        "onboarding": onboarding + read(1, 4096) + CLOSE + leave(0) + SETTLE,
        "two-stations": (join(0) + join(1) + tmpl("query", 1) + tmpl("answer-a", 1)
                         + tmpl("discover") + advance(1600) + advance(2000)
                         + read(0, 400) + read(0, 400) + CLOSE),
        "timeouts": join(0) + tmpl("query") + tmpl("discover") + advance(3000) + advance(40000),
        "nxdomain": join(2) + tmpl("query", 2) + tmpl("nxdomain", 2) + SETTLE,
        "force-listen": (command("force_listen 1") + SETTLE + join(3)
                         + command("del sta " + MACS[3]) + command("force_listen 0")
                         + SETTLE + command("debug_level 4") + read(1, 351)),
        "del-all": join(0) + join(1) + command("del all") + join(2) + SETTLE + reload(),
        "allocation-failures": (allocfail(1) + join(0) + allocfail(0x80 | (1 << 3)) + join(1)
                                + tmpl("query", 1) + allocfail(2) + read(1, 4096) + CLOSE),
        "hook-failure": HOOKFAIL + join(0) + SETTLE + leave(0) + SETTLE + join(0) + SETTLE,
        "events": event(2, 0) + event(-1, 1) + join(0) + event(1, 0 | 4) + leave(0),
        "vap-mismatch": join(0) + leave(4) + SETTLE + leave(0),
        "reload-failures": reload(0xff) + join(0) + read(0, 4096) + reload(0x81) + read(1, 4096),
        "copy-failures": (join(0) + read(1 | 4, 4096) + read(1, 4096) + CLOSE
                          + command("del all", copy_fails=True)),
        "open-both": read(2, 4096) + read(1, 4096) + command("force_listen 1", True) + CLOSE,
        "kept-open": (command("force_listen 1\n", keep=True) + SETTLE
                      + command("del all\n", keep=True) + read(8, 400) + CLOSE),
        "short-linear": join(0) + tmpl("query", 0, 2, 40) + tmpl("answer-a", 0, 3, 60),
        "debug-4": (command("debug_level 4") + join(0) + tmpl("discover", 0, 0)
                    + tmpl("offer", 0, 7) + SETTLE),
    }
    # The command lines meet three stations, one with a DHCP and DNS
    # history, for the dump to format.
    stations = (onboarding + join(1 | 4) + join(2 | 8) + tmpl("query", 1, 3)
                + tmpl("answer-a", 1, 3))
    for k, v in command_seeds().items():
        seeds[k] = stations + v
    for name, f, payload, is_dhcp in caps[:4]:
        to_sta = (payload[0] == 2) if is_dhcp else bool(payload[2] & 0x80)
        seeds["cap-" + name] = join(0) + raw_frame(to_sta, f)
    return seeds


TARGETS = {
    "fuzz_dns": corpus_dns,
    "fuzz_skb": corpus_skb,
    "fuzz_module": corpus_module,
}


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--out", default=os.path.join(ROOT, "tests", "fuzz", "corpus"))
    ap.add_argument("--pcap", action="append", default=[],
                    help="another capture to take messages from")
    a = ap.parse_args(argv)
    pcaps = sorted(glob.glob(os.path.join(ROOT, "tests", "scenarios", "captures", "replay*"))
                   + glob.glob(os.path.join(ROOT, "examples", "*.pcap*"))
                   + glob.glob(os.path.join(ROOT, "tests", "fuzz", "captures", "*.pcap*")))
    caps = capture_messages(pcaps + a.pcap)
    for target, make in TARGETS.items():
        d = os.path.join(a.out, target)
        os.makedirs(d, exist_ok=True)
        for old in glob.glob(os.path.join(d, "*")):
            os.remove(old)
        seeds = make(caps)
        for name, data in sorted(seeds.items()):
            with open(os.path.join(d, name), "wb") as f:
                f.write(data)
        print("%s: %d seeds" % (target, len(seeds)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
