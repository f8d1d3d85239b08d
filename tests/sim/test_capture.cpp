// SPDX-License-Identifier: GPL-2.0
// veyra-sim's capture reader: the formats it must read, and every kind of
// broken file it must refuse with a message instead of reading past the
// buffer (a capture comes from a customer's access point).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <tuple>

#include "capture.h"

using vysim::CaptureFrame;
using vysim::Direction;
using Bytes = std::vector<std::uint8_t>;

namespace {

/* Writes integers in one byte order. */
struct Out {
	bool big = false;
	Bytes b;

	Out &u8(unsigned v) { return b.push_back((std::uint8_t)v), *this; }
	Out &u16(unsigned v) { return big ? u8(v >> 8).u8(v) : u8(v).u8(v >> 8); }
	Out &u32(std::uint32_t v) { return big ? u16(v >> 16).u16(v) : u16(v).u16(v >> 16); }
	Out &u64(std::uint64_t v) { return big ? u32(v >> 32).u32(v) : u32(v).u32(v >> 32); }
	Out &raw(const Bytes &d) { return b.insert(b.end(), d.begin(), d.end()), *this; }
	Out &pad4() { return b.size() % 4 ? u8(0).pad4() : *this; }
};

/* A frame's bytes count up from tag, so that a frame read from the
 * wrong offset shows. */
Bytes frame_bytes(std::uint8_t tag, std::size_t n)
{
	Bytes f(n);
	std::iota(f.begin(), f.end(), tag);
	return f;
}

/* Classic pcap: a 60-byte frame, then 42 bytes of a 100-byte one. */
Bytes pcap_file(bool big, bool nano, std::uint32_t link = 1)
{
	Out o{big};
	o.u32(nano ? 0xa1b23c4d : 0xa1b2c3d4).u16(2).u16(4).u32(0).u32(0).u32(65535).u32(link);
	o.u32(1700000000).u32(nano ? 123456789 : 123456).u32(60).u32(60).raw(frame_bytes(1, 60));
	return o.u32(1700000001).u32(0).u32(42).u32(100).raw(frame_bytes(9, 42)).b;
}

/* pcapng blocks */
Bytes block(bool big, std::uint32_t type, const Bytes &body)
{
	auto len = (std::uint32_t)(12 + body.size());
	return Out{big}.u32(type).u32(len).raw(body).u32(len).b;
}

Bytes shb(bool big)
{
	return block(big, 0x0A0D0D0A, Out{big}.u32(0x1A2B3C4D).u16(1).u16(0).u64(~0ull).b);
}

/* An interface; tsresol < 0: no if_tsresol option. */
Bytes idb(bool big, std::uint16_t link, std::uint32_t snaplen, int tsresol = -1,
	  std::int64_t tsoffset = 0)
{
	Out o{big};
	o.u16(link).u16(0).u32(snaplen);
	if (tsresol >= 0)
		o.u16(9).u16(1).u8((unsigned)tsresol).pad4();
	if (tsoffset)
		o.u16(14).u16(8).u64((std::uint64_t)tsoffset);
	if (tsresol >= 0 || tsoffset)
		o.u16(0).u16(0);
	return block(big, 1, o.b);
}

/* An enhanced packet block; flags < 0: no epb_flags option. */
Bytes epb(bool big, std::uint32_t iface, std::uint64_t ticks, const Bytes &data, int flags = -1)
{
	Out o{big};
	o.u32(iface).u32((std::uint32_t)(ticks >> 32)).u32((std::uint32_t)ticks);
	o.u32((std::uint32_t)data.size()).u32((std::uint32_t)data.size()).raw(data).pad4();
	if (flags >= 0)
		o.u16(2).u16(4).u32((std::uint32_t)flags).u16(0).u16(0);
	return block(big, 6, o.b);
}

Bytes spb(bool big, std::uint32_t orig_len, const Bytes &data)
{
	return block(big, 3, Out{big}.u32(orig_len).raw(data).pad4().b);
}

Bytes cat(std::initializer_list<Bytes> parts)
{
	Out o;
	for (const Bytes &p : parts)
		o.raw(p);
	return o.b;
}

struct Parsed {
	bool ok;
	std::vector<CaptureFrame> frames;
	std::string err;
};

/* Parses from a heap block of exactly the file's size, so that ASan sees
 * any read past its end. */
Parsed parse(const Bytes &file)
{
	std::unique_ptr<std::uint8_t[]> buf(new std::uint8_t[file.size() + !file.size()]);
	Parsed p;

	std::copy(file.begin(), file.end(), buf.get());
	p.ok = vysim::parse_capture(buf.get(), buf.get() + file.size(), p.frames, p.err);
	return p;
}

Bytes bytes_of(const Bytes &file, const CaptureFrame &f)
{
	return Bytes(file.begin() + (long)f.offset, file.begin() + (long)(f.offset + f.len));
}

/* The host is little-endian, as the files these damage. */
Bytes with_u32(Bytes b, std::size_t at, std::uint32_t v)
{
	return std::memcpy(&b[at], &v, 4), b;
}

Bytes cut(const Bytes &b, std::size_t n) { return Bytes(b.begin(), b.end() - (long)n); }

} // namespace

TEST(Capture, EveryFormatIsReadAndStaysInBoundsWhenCutOrDamaged)
{
	const Direction in = Direction::Inbound, out = Direction::Outbound;
	const Direction none = Direction::Unknown;
	Bytes f1 = frame_bytes(1, 61), f2 = frame_bytes(2, 64), f3 = frame_bytes(3, 80);
	for (bool big : {false, true}) {
		SCOPED_TRACE(big ? "big-endian" : "little-endian");
		const struct {
			Bytes file;
			std::vector<std::tuple<std::uint64_t, Direction, Bytes>> want;
		} cases[] = {
			{pcap_file(big, false),
			 {{1700000000123456000ull, none, frame_bytes(1, 60)},
			  {1700000001000000000ull, none, frame_bytes(9, 42)}}},
			{pcap_file(big, true),
			 {{1700000000123456789ull, none, frame_bytes(1, 60)},
			  {1700000001000000000ull, none, frame_bytes(9, 42)}}},
			/* Interfaces: microseconds with a 64-byte snaplen (the
			 * simple packet blocks' one), nanoseconds, 2^-10 s plus
			 * 5 s, milliseconds. A custom block is skipped; a new
			 * section in the other byte order forgets them. */
			{cat({shb(big), idb(big, 1, 64), idb(big, 1, 0, 9),
			      idb(big, 1, 0, 0x80 | 10, 5), idb(big, 1, 0, 3),
			      epb(big, 0, 1700000000123456ull, f1, 1),
			      block(big, 0x80000001, Bytes(8, 0xee)),
			      epb(big, 1, 1700000000123456789ull, f2, 2), epb(big, 2, 3ull << 10, f3),
			      epb(big, 3, 1234, f1, 3), spb(big, 80, f3), spb(big, 20, frame_bytes(7, 24)),
			      shb(!big), idb(!big, 1, 0), epb(!big, 0, 7, f2)}),
			 {{1700000000123456000ull, in, f1},
			  {1700000000123456789ull, out, f2},
			  {8000000000ull, none, f3},
			  {1234000000ull, none, f1}, /* flags 3: no direction */
			  {0, none, Bytes(f3.begin(), f3.begin() + 64)}, /* snaplen */
			  {0, none, frame_bytes(7, 20)}, /* original length */
			  {7000, none, f2}}},
		};
		for (const auto &c : cases) {
			Parsed p = parse(c.file);
			ASSERT_TRUE(p.ok) << p.err;
			ASSERT_EQ(p.frames.size(), c.want.size());
			for (std::size_t i = 0; i < c.want.size(); i++) {
				const auto &w = c.want[i];
				EXPECT_EQ(p.frames[i].ts_ns, std::get<0>(w)) << i;
				EXPECT_EQ(p.frames[i].has_ts, std::get<0>(w) != 0) << i;
				EXPECT_EQ(p.frames[i].dir, std::get<1>(w)) << i;
				EXPECT_EQ(bytes_of(c.file, p.frames[i]), std::get<2>(w)) << i;
			}
			/* Under ASan, the check that no length in the file leads
			 * the reader past the end of the buffer, wherever the file
			 * is cut and whatever byte is damaged. */
			for (std::size_t i = 0; i < c.file.size(); i++) {
				p = parse(Bytes(c.file.begin(), c.file.begin() + (long)i));
				EXPECT_TRUE(p.ok || !p.err.empty()) << i;
				for (const CaptureFrame &fr : p.frames)
					EXPECT_LE(fr.offset + fr.len, i);
				for (std::uint8_t v : {0x00, 0x03, 0x7f, 0xff}) {
					Bytes damaged = c.file;
					damaged[i] = v;
					for (const CaptureFrame &fr : parse(damaged).frames)
						EXPECT_LE(fr.offset + fr.len, damaged.size());
				}
			}
		}
	}
}

TEST(Capture, MalformedFilesAreRefusedWithTheReason)
{
	Bytes f = frame_bytes(1, 60);
	Bytes good_ng = cat({shb(false), idb(false, 1, 0), epb(false, 0, 1, f)});
	Bytes hdr_only = cut(pcap_file(false, false), 60 + 16 + 42 + 16);
	std::size_t epb_at = shb(false).size() + idb(false, 1, 0).size();
	const struct {
		const char *name;
		Bytes file;
		const char *message;
	} cases[] = {
		{"empty", {}, "too short"},
		{"text file", {'t', 'i', 'm', 'e', ' ', '1'}, "not a pcap or pcapng"},
		{"pcap header cut", cut(hdr_only, 1), "file header is truncated"},
		{"pcap version 3", with_u32(hdr_only, 4, 3), "unsupported format version"},
		{"pcap 802.11 link", pcap_file(false, false, 105), "link type 105"},
		{"record header cut", cut(pcap_file(false, false), 42 + 5), "record header at offset"},
		{"record data cut", cut(pcap_file(false, false), 1), "is truncated"},
		{"usec too large", with_u32(pcap_file(false, false), 28, 1000000), "sub-second"},
		{"nsec too large", with_u32(pcap_file(false, true), 28, 1000000000), "sub-second"},
		{"huge record", with_u32(pcap_file(false, false), 32, 0x7fffffff), "captured length"},
		{"bad byte-order magic", with_u32(good_ng, 8, 0x12345678), "byte-order magic"},
		{"block length 8", with_u32(good_ng, epb_at + 4, 8), "invalid length 8"},
		{"block past the end", with_u32(good_ng, epb_at + 4, 4096), "is truncated"},
		{"trailing length differs", with_u32(good_ng, good_ng.size() - 4, 96), "trailing length"},
		{"packet before interface", cat({shb(false), epb(false, 0, 1, f)}), "names interface 0"},
		{"interface of an earlier section",
		 cat({shb(false), idb(false, 1, 0), idb(false, 1, 0), shb(false), idb(false, 1, 0),
		      epb(false, 1, 2, f)}),
		 "names interface 1"},
		{"packet on 802.11", cat({shb(false), idb(false, 105, 0), epb(false, 0, 1, f)}),
		 "link type 105"},
		{"caplen past block", with_u32(good_ng, epb_at + 20, 200), "do not fit"},
		{"caplen huge", with_u32(good_ng, epb_at + 20, 0xffffffff), "captured length"},
		{"option past block",
		 cat({shb(false), block(false, 1, Out{}.u16(1).u16(0).u32(0).u16(9).u16(200).u32(0).b)}),
		 "runs past the block"},
		{"tsresol 10^-20", cat({shb(false), idb(false, 1, 0, 20), epb(false, 0, 1, f)}),
		 "resolution"},
		{"timestamp overflow", cat({shb(false), idb(false, 1, 0, 0), epb(false, 0, ~0ull, f)}),
		 "out of range"},
	};
	for (const auto &c : cases) {
		Parsed p = parse(c.file);
		EXPECT_FALSE(p.ok) << c.name;
		EXPECT_NE(p.err.find(c.message), std::string::npos) << c.name << ": " << p.err;
		EXPECT_TRUE(p.frames.empty()) << c.name;
	}
}
