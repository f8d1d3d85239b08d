// SPDX-License-Identifier: GPL-2.0
#include "capture.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>

namespace vysim {

namespace {

constexpr std::uint32_t kLinkEthernet = 1;
/* Larger than any frame a bridge can carry (64 KiB GSO plus headers), so a
 * bigger record is a corrupt length rather than a frame. */
constexpr std::size_t kMaxFrame = 262144;
constexpr std::uint64_t kNsPerSec = 1000000000ull;

constexpr std::uint32_t kShb = 0x0A0D0D0A;
constexpr std::uint32_t kIdb = 1;
constexpr std::uint32_t kPb = 2; /* obsolete packet block */
constexpr std::uint32_t kSpb = 3;
constexpr std::uint32_t kEpb = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;

constexpr std::uint16_t kOptEnd = 0;
constexpr std::uint16_t kOptFlags = 2; /* epb_flags and pack_flags */
constexpr std::uint16_t kOptTsresol = 9;
constexpr std::uint16_t kOptTsoffset = 14;

__attribute__((format(printf, 2, 3))) bool fail(std::string &err, const char *fmt, ...)
{
	char buf[256];
	va_list ap;
	va_start(ap, fmt);
	std::vsnprintf(buf, sizeof(buf), fmt, ap);
	va_end(ap);
	err = buf;
	return false;
}

/* Callers check the bounds before every load. */
std::uint16_t rd16(const std::uint8_t *p, bool big)
{
	return big ? (std::uint16_t)(p[0] << 8 | p[1]) : (std::uint16_t)(p[1] << 8 | p[0]);
}

std::uint32_t rd32(const std::uint8_t *p, bool big)
{
	if (big)
		return (std::uint32_t)p[0] << 24 | (std::uint32_t)p[1] << 16 |
		       (std::uint32_t)p[2] << 8 | p[3];
	return (std::uint32_t)p[3] << 24 | (std::uint32_t)p[2] << 16 |
	       (std::uint32_t)p[1] << 8 | p[0];
}

std::uint64_t rd64(const std::uint8_t *p, bool big)
{
	std::uint64_t hi = rd32(big ? p : p + 4, big);
	std::uint64_t lo = rd32(big ? p + 4 : p, big);
	return hi << 32 | lo;
}

std::size_t left(const std::uint8_t *p, const std::uint8_t *end)
{
	return p < end ? (std::size_t)(end - p) : 0;
}

/* ---- classic pcap ---------------------------------------------------- */

bool parse_pcap(const std::uint8_t *data, const std::uint8_t *end,
		std::vector<CaptureFrame> &frames, std::string &err)
{
	if (left(data, end) < 24)
		return fail(err, "pcap: the file header is truncated (%zu of 24 bytes)",
			    left(data, end));
	bool big, nano;
	switch (rd32(data, false)) {
	case 0xa1b2c3d4: big = false; nano = false; break;
	case 0xd4c3b2a1: big = true; nano = false; break;
	case 0xa1b23c4d: big = false; nano = true; break;
	case 0x4d3cb2a1: big = true; nano = true; break;
	default: return fail(err, "pcap: bad magic number");
	}
	std::uint16_t major = rd16(data + 4, big), minor = rd16(data + 6, big);
	if (major != 2)
		return fail(err, "pcap: unsupported format version %u.%u", major, minor);
	/* The top four bits may carry FCS information (newer libpcap). */
	std::uint32_t link = rd32(data + 20, big) & 0x0FFFFFFF;
	if (link != kLinkEthernet)
		return fail(err, "pcap: link type %u is not supported (only Ethernet, 1)", link);

	const std::uint32_t frac_limit = nano ? 1000000000u : 1000000u;
	const std::uint8_t *p = data + 24;
	while (p < end) {
		std::size_t off = (std::size_t)(p - data);
		if (left(p, end) < 16)
			return fail(err, "pcap: record header at offset %zu is truncated "
				    "(%zu of 16 bytes)", off, left(p, end));
		std::uint32_t sec = rd32(p, big), frac = rd32(p + 4, big);
		std::uint32_t incl = rd32(p + 8, big);
		if (frac >= frac_limit)
			return fail(err, "pcap: record at offset %zu has a sub-second "
				    "timestamp of %u (must be below %u)", off, frac, frac_limit);
		if (incl > kMaxFrame)
			return fail(err, "pcap: record at offset %zu has a captured length "
				    "of %u bytes (at most %zu)", off, incl, kMaxFrame);
		if (left(p + 16, end) < incl)
			return fail(err, "pcap: record at offset %zu is truncated (%u bytes "
				    "captured, %zu in the file)", off, incl, left(p + 16, end));
		CaptureFrame f;
		f.ts_ns = (std::uint64_t)sec * kNsPerSec +
			  (std::uint64_t)frac * (nano ? 1 : 1000);
		f.has_ts = true;
		f.offset = off + 16;
		f.len = incl;
		frames.push_back(f);
		p += 16 + (std::size_t)incl;
	}
	return true;
}

/* ---- pcapng ---------------------------------------------------------- */

struct Iface {
	std::uint32_t link = 0;
	std::uint32_t snaplen = 0;
	std::uint8_t tsresol = 6; /* default: microseconds */
	std::int64_t tsoffset = 0; /* seconds */
};

/* Walks an options area [q, qend); calls fn for each option until
 * opt_endofopt or the end of the area. */
bool walk_options(const std::uint8_t *q, const std::uint8_t *qend, bool big,
		  std::size_t block_off, std::string &err,
		  const std::function<bool(std::uint16_t, const std::uint8_t *,
					   std::uint16_t)> &fn)
{
	while (left(q, qend) >= 4) {
		std::uint16_t code = rd16(q, big), len = rd16(q + 2, big);
		if (code == kOptEnd)
			break;
		if (left(q + 4, qend) < len)
			return fail(err, "pcapng: option %u of the block at offset %zu runs "
				    "past the block", code, block_off);
		if (!fn(code, q + 4, len))
			return false;
		std::size_t padded = ((std::size_t)len + 3) & ~(std::size_t)3;
		std::size_t step = padded < left(q + 4, qend) ? padded : left(q + 4, qend);
		q += 4 + step;
	}
	return true;
}

bool ticks_to_ns(std::uint64_t ticks, const Iface &ifc, std::size_t off,
		 std::uint64_t &ns, std::string &err)
{
	unsigned __int128 v;
	unsigned e = ifc.tsresol & 0x7f;
	if (ifc.tsresol & 0x80) {
		v = ((unsigned __int128)ticks * kNsPerSec) >> e;
	} else if (e <= 9) {
		unsigned __int128 mul = 1;
		for (unsigned i = e; i < 9; i++)
			mul *= 10;
		v = (unsigned __int128)ticks * mul;
	} else if (e <= 19) {
		std::uint64_t div = 1;
		for (unsigned i = 9; i < e; i++)
			div *= 10;
		v = ticks / div;
	} else {
		return fail(err, "pcapng: block at offset %zu: timestamp resolution "
			    "10^-%u is not supported", off, e);
	}
	__int128 s = (__int128)v + (__int128)ifc.tsoffset * (__int128)kNsPerSec;
	if (s < 0 || s > (__int128)UINT64_MAX)
		return fail(err, "pcapng: block at offset %zu: timestamp out of range", off);
	ns = (std::uint64_t)s;
	return true;
}

Direction flags_direction(std::uint32_t flags)
{
	switch (flags & 3) {
	case 1: return Direction::Inbound;
	case 2: return Direction::Outbound;
	default: return Direction::Unknown;
	}
}

const Iface *packet_iface(const std::vector<Iface> &ifaces, std::uint32_t id,
			  std::size_t off, std::string &err)
{
	if (id >= ifaces.size()) {
		fail(err, "pcapng: packet block at offset %zu names interface %u, "
		     "but the section describes %zu", off, id, ifaces.size());
		return nullptr;
	}
	if (ifaces[id].link != kLinkEthernet) {
		fail(err, "pcapng: packet block at offset %zu is on interface %u with "
		     "link type %u (only Ethernet, 1, is supported)", off, id,
		     ifaces[id].link);
		return nullptr;
	}
	return &ifaces[id];
}

/* The packet data of an enhanced or old packet block: caplen bytes at
 * body + hdr, padded to 4, then options up to body_end. */
bool packet_data(const std::uint8_t *data, const std::uint8_t *body,
		 const std::uint8_t *body_end, std::size_t hdr, std::uint32_t caplen,
		 std::size_t off, CaptureFrame &f, const std::uint8_t *&opts,
		 std::string &err)
{
	if (caplen > kMaxFrame)
		return fail(err, "pcapng: packet block at offset %zu has a captured "
			    "length of %u bytes (at most %zu)", off, caplen, kMaxFrame);
	std::size_t room = left(body + hdr, body_end);
	if (room < caplen)
		return fail(err, "pcapng: packet block at offset %zu: %u captured bytes "
			    "do not fit in the block (%zu)", off, caplen, room);
	f.offset = (std::size_t)(body + hdr - data);
	f.len = caplen;
	std::size_t padded = ((std::size_t)caplen + 3) & ~(std::size_t)3;
	opts = body + hdr + (padded < room ? padded : room);
	return true;
}

bool parse_pcapng(const std::uint8_t *data, const std::uint8_t *end,
		  std::vector<CaptureFrame> &frames, std::string &err)
{
	bool big = false;
	std::vector<Iface> ifaces;
	const std::uint8_t *p = data;

	while (p < end) {
		std::size_t off = (std::size_t)(p - data);
		if (left(p, end) < 12)
			return fail(err, "pcapng: block at offset %zu is truncated "
				    "(%zu bytes left, a block has at least 12)", off,
				    left(p, end));
		bool shb = rd32(p, false) == kShb; /* the same in both orders */
		if (shb) {
			if (rd32(p + 8, false) == kByteOrderMagic)
				big = false;
			else if (rd32(p + 8, true) == kByteOrderMagic)
				big = true;
			else
				return fail(err, "pcapng: section header at offset %zu has "
					    "a bad byte-order magic", off);
		} else if (off == 0) {
			return fail(err, "pcapng: the file does not start with a section "
				    "header block");
		}
		std::uint32_t type = rd32(p, big);
		std::uint32_t blen = rd32(p + 4, big);
		if (blen < 12 || blen % 4 != 0)
			return fail(err, "pcapng: block at offset %zu has an invalid "
				    "length %u", off, blen);
		if (blen > left(p, end))
			return fail(err, "pcapng: block at offset %zu is truncated "
				    "(length %u, %zu bytes left)", off, blen, left(p, end));
		if (rd32(p + blen - 4, big) != blen)
			return fail(err, "pcapng: block at offset %zu: trailing length %u "
				    "differs from the leading %u", off,
				    rd32(p + blen - 4, big), blen);
		const std::uint8_t *body = p + 8, *body_end = p + blen - 4;
		std::size_t body_len = (std::size_t)(body_end - body);

		switch (type) {
		case kShb: {
			if (body_len < 16)
				return fail(err, "pcapng: section header at offset %zu is "
					    "too short", off);
			std::uint16_t major = rd16(body + 4, big);
			if (major != 1)
				return fail(err, "pcapng: section at offset %zu has "
					    "unsupported version %u.%u", off, major,
					    rd16(body + 6, big));
			ifaces.clear();
			break;
		}
		case kIdb: {
			if (body_len < 8)
				return fail(err, "pcapng: interface description at offset "
					    "%zu is too short", off);
			Iface ifc;
			ifc.link = rd16(body, big);
			ifc.snaplen = rd32(body + 4, big);
			bool ok = walk_options(
				body + 8, body_end, big, off, err,
				[&](std::uint16_t code, const std::uint8_t *v, std::uint16_t len) {
					if (code == kOptTsresol) {
						if (len != 1)
							return fail(err, "pcapng: if_tsresol at offset "
								    "%zu has length %u", off, len);
						ifc.tsresol = v[0];
					} else if (code == kOptTsoffset) {
						if (len != 8)
							return fail(err, "pcapng: if_tsoffset at offset "
								    "%zu has length %u", off, len);
						ifc.tsoffset = (std::int64_t)rd64(v, big);
					}
					return true;
				});
			if (!ok)
				return false;
			ifaces.push_back(ifc);
			break;
		}
		case kEpb:
		case kPb: {
			if (body_len < 20)
				return fail(err, "pcapng: packet block at offset %zu is too "
					    "short", off);
			std::uint32_t id = type == kEpb ? rd32(body, big) : rd16(body, big);
			const Iface *ifc = packet_iface(ifaces, id, off, err);
			if (!ifc)
				return false;
			std::uint64_t ticks = (std::uint64_t)rd32(body + 4, big) << 32 |
					      rd32(body + 8, big);
			CaptureFrame f;
			if (!ticks_to_ns(ticks, *ifc, off, f.ts_ns, err))
				return false;
			f.has_ts = true;
			const std::uint8_t *opts = nullptr;
			if (!packet_data(data, body, body_end, 20, rd32(body + 12, big), off,
					 f, opts, err))
				return false;
			bool ok = walk_options(
				opts, body_end, big, off, err,
				[&](std::uint16_t code, const std::uint8_t *v, std::uint16_t len) {
					if (code == kOptFlags && len == 4)
						f.dir = flags_direction(rd32(v, big));
					return true;
				});
			if (!ok)
				return false;
			frames.push_back(f);
			break;
		}
		case kSpb: {
			if (body_len < 4)
				return fail(err, "pcapng: simple packet block at offset %zu is "
					    "too short", off);
			const Iface *ifc = packet_iface(ifaces, 0, off, err);
			if (!ifc)
				return false;
			/* Captured length: the original length, cut by the snapshot
			 * length and by what the block holds. */
			std::size_t cap = rd32(body, big);
			if (ifc->snaplen && cap > ifc->snaplen)
				cap = ifc->snaplen;
			if (cap > body_len - 4)
				cap = body_len - 4;
			if (cap > kMaxFrame)
				return fail(err, "pcapng: simple packet block at offset %zu "
					    "is larger than %zu bytes", off, kMaxFrame);
			CaptureFrame f;
			f.offset = (std::size_t)(body + 4 - data);
			f.len = cap;
			frames.push_back(f);
			break;
		}
		default:
			break; /* statistics, name resolution, custom blocks... */
		}
		p += blen;
	}
	return true;
}

} // namespace

bool parse_capture(const std::uint8_t *data, const std::uint8_t *end,
		   std::vector<CaptureFrame> &frames, std::string &err)
{
	frames.clear();
	bool ok;
	if (left(data, end) < 4) {
		ok = fail(err, "too short to be a pcap or pcapng file (%zu bytes)",
			  left(data, end));
	} else {
		std::uint32_t m = rd32(data, false);
		if (m == kShb)
			ok = parse_pcapng(data, end, frames, err);
		else if (m == 0xa1b2c3d4 || m == 0xd4c3b2a1 || m == 0xa1b23c4d ||
			 m == 0x4d3cb2a1)
			ok = parse_pcap(data, end, frames, err);
		else
			ok = fail(err, "not a pcap or pcapng file (it starts with "
				  "%02x %02x %02x %02x)", data[0], data[1], data[2], data[3]);
	}
	if (!ok)
		frames.clear();
	return ok;
}

bool load_capture(const std::string &path, Capture &cap, std::string &err)
{
	std::FILE *f = std::fopen(path.c_str(), "rb");
	if (!f)
		return fail(err, "cannot open %s: %s", path.c_str(), std::strerror(errno));
	cap.bytes.clear();
	std::uint8_t buf[65536];
	std::size_t n;
	while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0)
		cap.bytes.insert(cap.bytes.end(), buf, buf + n);
	bool read_error = std::ferror(f);
	std::fclose(f);
	if (read_error)
		return fail(err, "cannot read %s", path.c_str());
	const std::uint8_t *d = cap.bytes.data();
	if (!parse_capture(d, d + cap.bytes.size(), cap.frames, err)) {
		err = path + ": " + err;
		return false;
	}
	return true;
}

} // namespace vysim
