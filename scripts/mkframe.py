#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Build Ethernet/IPv4/UDP frames carrying DHCP or DNS messages and print
them as one line of hex, the form veyra-sim's rx/tx/fwd commands take.

  mkframe.py dhcp discover --client 02:11:22:33:44:55 --hostname phone
  mkframe.py dhcp offer --client 02:11:22:33:44:55 --yiaddr 192.168.1.23 \\
      --server-id 192.168.1.1 --router 192.168.1.1 --dns 192.168.1.1
  mkframe.py dns query www.example.com --client 02:11:22:33:44:55 \\
      --client-ip 192.168.1.23 --server 192.168.1.1
  mkframe.py dns answer www.example.com --client 02:11:22:33:44:55 \\
      --client-ip 192.168.1.23 --server 192.168.1.1 \\
      --cname www.example.com=edge.example.net --a edge.example.net=93.184.216.34
  mkframe.py dns answer nosuch.example --rcode nxdomain ...

Client messages go from the client's MAC (broadcast for DHCP), server
messages to it. Checksums are computed; knobs such as --truncate,
--udp-len or --frag-offset make deliberately broken frames for tests.

Used as a module by mkscenarios.py and mkpcap.py: frame(argv) returns the
frame's bytes for the same arguments.
"""

import argparse
import ipaddress
import shlex
import struct
import sys

BROADCAST = "ff:ff:ff:ff:ff:ff"
DEFAULT_SERVER_MAC = "02:00:00:00:00:01"
DEFAULT_SERVER_IP = "192.168.1.1"

DHCP_TYPES = {
    "discover": 1, "offer": 2, "request": 3, "decline": 4,
    "ack": 5, "nak": 6, "release": 7, "inform": 8,
}
SERVER_TYPES = {2, 5, 6}
RCODES = {"noerror": 0, "formerr": 1, "servfail": 2, "nxdomain": 3,
          "notimp": 4, "refused": 5}
QTYPES = {"a": 1, "cname": 5, "aaaa": 28, "mx": 15, "txt": 16, "ptr": 12}


class FrameError(Exception):
    pass


def mac_bytes(text):
    parts = text.split(":")
    if len(parts) != 6 or not all(len(p) == 2 for p in parts):
        raise FrameError("bad MAC address %r" % text)
    try:
        return bytes(int(p, 16) for p in parts)
    except ValueError:
        raise FrameError("bad MAC address %r" % text) from None


def ip_bytes(text):
    try:
        return ipaddress.IPv4Address(text).packed
    except ValueError:
        raise FrameError("bad IPv4 address %r" % text) from None


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack("!%dH" % (len(data) // 2), data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def hexbytes(text):
    try:
        return bytes.fromhex(text)
    except ValueError:
        raise FrameError("bad hex %r" % text) from None


# ---- layers -------------------------------------------------------------

def ethernet(dst, src, ethertype, payload):
    return mac_bytes(dst) + mac_bytes(src) + struct.pack("!H", ethertype) + payload


def ipv4_udp(src, dst, sport, dport, payload, opts):
    """IPv4 header (with options), UDP header and payload."""
    udp_len = 8 + len(payload) if opts.udp_len is None else opts.udp_len
    ip_options = hexbytes(opts.ip_options) if opts.ip_options else b""
    if len(ip_options) % 4:
        raise FrameError("--ip-options must be a multiple of 4 bytes")
    ihl = 5 + len(ip_options) // 4
    total = ihl * 4 + 8 + len(payload)
    flags = opts.frag_offset & 0x1FFF
    if opts.more_fragments:
        flags |= 0x2000
    header = struct.pack("!BBHHHBBH4s4s", 0x40 | ihl, 0, total, opts.ip_id,
                         flags, opts.ttl, 17, 0, ip_bytes(src), ip_bytes(dst))
    header += ip_options
    header = header[:10] + struct.pack("!H", checksum(header)) + header[12:]
    pseudo = ip_bytes(src) + ip_bytes(dst) + struct.pack("!BBH", 0, 17, 8 + len(payload))
    udp = struct.pack("!HHHH", sport, dport, udp_len & 0xFFFF, 0) + payload
    csum = checksum(pseudo + udp) or 0xFFFF
    udp = udp[:6] + struct.pack("!H", csum) + udp[8:]
    return header + udp


def finish(frame, opts):
    if opts.truncate is not None:
        frame = frame[:opts.truncate]
    return frame


# ---- DHCP ---------------------------------------------------------------

def dhcp_type(text):
    if text.lower() in DHCP_TYPES:
        return DHCP_TYPES[text.lower()]
    try:
        value = int(text, 0)
    except ValueError:
        raise argparse.ArgumentTypeError("unknown DHCP type %r" % text) from None
    if not 0 <= value <= 255:
        raise argparse.ArgumentTypeError("DHCP type %r is not 0 to 255" % text)
    return value


def option(code, data):
    if len(data) > 255:
        raise FrameError("option %d is longer than 255 bytes" % code)
    return bytes([code, len(data)]) + data


def ip_list(text):
    return b"".join(ip_bytes(part) for part in text.split(","))


def build_dhcp(a):
    mtype = a.type
    from_server = a.from_server if a.from_server is not None else mtype in SERVER_TYPES
    client = mac_bytes(a.client)
    opts = b""
    if not a.no_type:
        opts += option(53, bytes([mtype]))
    if not from_server:
        opts += option(61, b"\x01" + client)
    if a.server_id:
        opts += option(54, ip_bytes(a.server_id))
    if a.requested:
        opts += option(50, ip_bytes(a.requested))
    if from_server and mtype in (2, 5):
        opts += option(51, struct.pack("!I", a.lease))
        opts += option(1, ip_bytes(a.mask))
    if a.router:
        opts += option(3, ip_list(a.router))
    if a.dns:
        opts += option(6, ip_list(a.dns))
    hostname = None
    if a.hostname is not None:
        hostname = a.hostname.encode("utf-8")
    if a.hostname_hex is not None:
        hostname = hexbytes(a.hostname_hex)
    if hostname is not None:
        opts += option(12, hostname)
    if not from_server and mtype in (1, 3):
        opts += option(55, bytes([1, 3, 6, 15, 28, 51]))
    for raw in a.raw_option:
        code, _, data = raw.partition(":")
        try:
            opts += option(int(code, 0), hexbytes(data))
        except ValueError:
            raise FrameError("--raw-option needs CODE:HEX, not %r" % raw) from None
    if not a.no_end:
        opts += b"\xff"

    fixed = struct.pack(
        "!BBBBIHH4s4s4s4s16s64s128s",
        2 if from_server else 1, 1, 6, 0, a.xid, 0,
        0x8000 if from_server and mtype == 6 else 0,
        ip_bytes(a.ciaddr), ip_bytes(a.yiaddr), ip_bytes(a.siaddr),
        ip_bytes("0.0.0.0"), client + bytes(10), bytes(64), bytes(128))
    cookie = hexbytes(a.cookie)
    msg = fixed + cookie + opts
    if len(msg) < a.pad_to:
        msg += bytes(a.pad_to - len(msg))

    if from_server:
        server_ip = a.server_ip or a.server_id or DEFAULT_SERVER_IP
        dst_ip = a.yiaddr if mtype != 6 and a.yiaddr != "0.0.0.0" else "255.255.255.255"
        packet = ipv4_udp(server_ip, dst_ip, 67, 68, msg, a)
        return ethernet(a.client, a.server_mac, 0x0800, packet)
    src_ip = a.ciaddr
    packet = ipv4_udp(src_ip, "255.255.255.255", 68, 67, msg, a)
    return ethernet(BROADCAST, a.client, 0x0800, packet)


# ---- DNS ----------------------------------------------------------------

class NameWriter:
    """Encodes names, with RFC 1035 compression unless disabled."""

    def __init__(self, compress, allow_long):
        self.buf = bytearray()
        self.table = {}
        self.compress = compress
        self.allow_long = allow_long

    def name(self, text):
        labels = [l for l in text.split(".") if l] if text not in ("", ".") else []
        for i in range(len(labels)):
            suffix = ".".join(labels[i:])
            if self.compress and suffix in self.table:
                self.buf += struct.pack("!H", 0xC000 | self.table[suffix])
                return
            if len(self.buf) < 0x3FFF:
                self.table.setdefault(suffix, len(self.buf))
            label = labels[i].encode("utf-8")
            if len(label) > 63 and not self.allow_long:
                raise FrameError("label %r is longer than 63 bytes" % labels[i])
            if len(label) > 255:
                raise FrameError("label %r is longer than 255 bytes" % labels[i])
            self.buf += bytes([len(label)]) + label
        self.buf += b"\0"


class RecordAction(argparse.Action):
    """--a and --cname append to one list, keeping their order."""

    def __call__(self, parser, namespace, values, option_string=None):
        records = getattr(namespace, "records", None) or []
        records.append((self.const, values))
        namespace.records = records


def qtype(text):
    if text.lower() in QTYPES:
        return QTYPES[text.lower()]
    try:
        return int(text, 0)
    except ValueError:
        raise argparse.ArgumentTypeError("unknown query type %r" % text) from None


def rcode(text):
    if text.lower() in RCODES:
        return RCODES[text.lower()]
    try:
        value = int(text, 0)
    except ValueError:
        raise argparse.ArgumentTypeError("unknown rcode %r" % text) from None
    if not 0 <= value <= 15:
        raise argparse.ArgumentTypeError("rcode %r is not 0 to 15" % text)
    return value


def build_dns(a):
    response = a.kind == "answer"
    records = getattr(a, "records", None) or []
    w = NameWriter(not a.no_compress, a.allow_long_labels)
    flags = (0x8180 | a.rcode) if response else 0x0100
    qd = 1 if a.qdcount is None else a.qdcount
    an = (len(records) if response else 0) if a.ancount is None else a.ancount
    w.buf += struct.pack("!HHHHHH", a.id, flags, qd, an, 0, 0)
    w.name(a.name)
    w.buf += struct.pack("!HH", a.qtype, 1)
    if response:
        for kind, value in records:
            owner, sep, data = value.partition("=")
            if not sep:
                owner, data = a.name, value
            w.name(owner)
            if kind == "A":
                w.buf += struct.pack("!HHIH", 1, 1, a.rr_ttl, 4) + ip_bytes(data)
            else:
                w.buf += struct.pack("!HHIH", 5, 1, a.rr_ttl, 0)
                start = len(w.buf)
                w.name(data)
                struct.pack_into("!H", w.buf, start - 2, len(w.buf) - start)
    msg = bytes(w.buf)
    if response:
        packet = ipv4_udp(a.server, a.client_ip, 53, a.sport, msg, a)
        return ethernet(a.client, a.gateway_mac, 0x0800, packet)
    packet = ipv4_udp(a.client_ip, a.server, a.sport, 53, msg, a)
    return ethernet(a.gateway_mac, a.client, 0x0800, packet)


# ---- generic frames -----------------------------------------------------

def build_udp(a):
    payload = hexbytes(a.payload) + bytes(a.zeros)
    packet = ipv4_udp(a.src_ip, a.dst_ip, a.sport, a.dport, payload, a)
    return ethernet(a.dst_mac, a.src_mac, 0x0800, packet)


def build_eth(a):
    return ethernet(a.dst_mac, a.src_mac, a.ethertype, hexbytes(a.payload))


# ---- command line -------------------------------------------------------

def add_ip_knobs(p):
    g = p.add_argument_group("frame knobs (for broken frames)")
    g.add_argument("--truncate", type=int, metavar="N",
                   help="keep only the first N bytes of the frame")
    g.add_argument("--udp-len", type=int, metavar="N",
                   help="UDP length field (default: the real length)")
    g.add_argument("--ip-options", metavar="HEX", help="IPv4 options (multiple of 4 bytes)")
    g.add_argument("--frag-offset", type=int, default=0, metavar="N",
                   help="IPv4 fragment offset, in units of 8 bytes")
    g.add_argument("--more-fragments", action="store_true", help="set the MF flag")
    g.add_argument("--ip-id", type=int, default=0, metavar="N")
    g.add_argument("--ttl", type=int, default=64)


def parser():
    top = argparse.ArgumentParser(
        prog="mkframe.py", description=__doc__.split("\n\n")[0],
        formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = top.add_subparsers(dest="proto", required=True)

    d = sub.add_parser("dhcp", help="a DHCP message over UDP 67/68")
    d.add_argument("type", type=dhcp_type,
                   help="discover, offer, request, decline, ack, nak, release, "
                        "inform, or a number 0-255")
    d.add_argument("--client", required=True, metavar="MAC", help="chaddr, the station")
    d.add_argument("--xid", type=lambda s: int(s, 0), default=0x5EED0001)
    d.add_argument("--hostname", help="option 12 (host name)")
    d.add_argument("--hostname-hex", metavar="HEX", help="option 12 from raw bytes")
    d.add_argument("--requested", metavar="IP", help="option 50 (requested address)")
    d.add_argument("--server-id", metavar="IP", help="option 54 (server identifier)")
    d.add_argument("--router", metavar="IP[,IP]", help="option 3")
    d.add_argument("--dns", metavar="IP[,IP]", help="option 6")
    d.add_argument("--lease", type=int, default=3600, help="option 51 in offers and acks")
    d.add_argument("--mask", default="255.255.255.0", help="option 1 in offers and acks")
    d.add_argument("--yiaddr", default="0.0.0.0")
    d.add_argument("--ciaddr", default="0.0.0.0")
    d.add_argument("--siaddr", default="0.0.0.0")
    d.add_argument("--server-mac", default=DEFAULT_SERVER_MAC)
    d.add_argument("--server-ip", help="IPv4 source of a server message "
                                       "(default: the server id)")
    d.add_argument("--cookie", default="63825363", metavar="HEX")
    d.add_argument("--no-type", action="store_true", help="leave out option 53")
    d.add_argument("--no-end", action="store_true", help="leave out the end option")
    d.add_argument("--raw-option", action="append", default=[], metavar="CODE:HEX",
                   help="an extra option, before the end option")
    d.add_argument("--pad-to", type=int, default=300, metavar="N",
                   help="pad the DHCP message with zeros to N bytes (default 300)")
    way = d.add_mutually_exclusive_group()
    way.add_argument("--from-server", dest="from_server", action="store_true", default=None)
    way.add_argument("--from-client", dest="from_server", action="store_false")
    add_ip_knobs(d)

    n = sub.add_parser("dns", help="a DNS query or response over UDP 53")
    n.add_argument("kind", choices=["query", "answer"])
    n.add_argument("name", help="the question name")
    n.add_argument("--client", required=True, metavar="MAC")
    n.add_argument("--client-ip", required=True, metavar="IP")
    n.add_argument("--server", default=DEFAULT_SERVER_IP, metavar="IP")
    n.add_argument("--gateway-mac", default=DEFAULT_SERVER_MAC, metavar="MAC")
    n.add_argument("--id", type=lambda s: int(s, 0), default=0x1234)
    n.add_argument("--sport", type=int, default=40000, help="the client's port")
    n.add_argument("--qtype", type=qtype, default=1, help="A (default), AAAA, ... or a number")
    n.add_argument("--rcode", type=rcode, default=0, help="noerror, nxdomain, servfail, ... or 0-15")
    n.add_argument("--a", action=RecordAction, const="A", metavar="[OWNER=]IP",
                   help="an A record (owner: the question name unless given)")
    n.add_argument("--cname", action=RecordAction, const="CNAME", metavar="[OWNER=]TARGET",
                   help="a CNAME record")
    n.add_argument("--rr-ttl", type=int, default=300, help="TTL of the answer records")
    n.add_argument("--qdcount", type=int, help="QDCOUNT (default 1)")
    n.add_argument("--ancount", type=int, help="ANCOUNT (default: the records given)")
    n.add_argument("--no-compress", action="store_true", help="no name compression")
    n.add_argument("--allow-long-labels", action="store_true",
                   help="allow labels over 63 bytes (for tests)")
    add_ip_knobs(n)

    u = sub.add_parser("udp", help="any UDP datagram")
    u.add_argument("--src-mac", required=True)
    u.add_argument("--dst-mac", required=True)
    u.add_argument("--src-ip", required=True)
    u.add_argument("--dst-ip", required=True)
    u.add_argument("--sport", type=int, required=True)
    u.add_argument("--dport", type=int, required=True)
    u.add_argument("--payload", default="", metavar="HEX")
    u.add_argument("--zeros", type=int, default=0, metavar="N",
                   help="append N zero bytes to the payload")
    add_ip_knobs(u)

    e = sub.add_parser("eth", help="any Ethernet frame")
    e.add_argument("--src-mac", required=True)
    e.add_argument("--dst-mac", required=True)
    e.add_argument("--ethertype", type=lambda s: int(s, 0), required=True)
    e.add_argument("--payload", default="", metavar="HEX")
    e.add_argument("--truncate", type=int, metavar="N")
    return top


def frame(argv):
    """The frame for a mkframe.py command line (a list of words)."""
    args = parser().parse_args(argv)
    if args.proto == "dhcp":
        data = build_dhcp(args)
    elif args.proto == "dns":
        data = build_dns(args)
    elif args.proto == "udp":
        data = build_udp(args)
    else:
        data = build_eth(args)
    return finish(data, args)


def frame_from_text(text):
    return frame(shlex.split(text))


def main(argv):
    try:
        print(frame(argv).hex())
    except FrameError as err:
        print("mkframe.py: %s" % err, file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
