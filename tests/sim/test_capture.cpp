// SPDX-License-Identifier: GPL-2.0
// veyra-sim's capture reader: the formats it must read, and every kind of
// broken file it must refuse with a message instead of reading past the
// buffer (a capture comes from a customer's access point).
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "capture.h"

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

Bytes operator+(Bytes a, const Bytes &b) { return Out{false, a}.raw(b).b; }

/* Classic pcap: a 60-byte frame of 1s, then 42 bytes of a 100-byte one of
 * 9s (a frame's bytes are its tag, so that one read from the wrong offset
 * shows). */
Bytes pcap_file(bool big, bool nano, std::uint32_t link = 1)
{
	Out o{big};
	o.u32(nano ? 0xa1b23c4d : 0xa1b2c3d4).u16(2).u16(4).u32(0).u32(0).u32(65535).u32(link);
	o.u32(1700000000).u32(nano ? 123456789 : 123456).u32(60).u32(60).raw(Bytes(60, 1));
	return o.u32(1700000001).u32(0).u32(42).u32(100).raw(Bytes(42, 9)).b;
}

/* pcapng blocks: any, a section header, an interface (with if_tsresol and
 * if_tsoffset when tsresol >= 0), an enhanced packet (with epb_flags). */
Bytes block(bool big, std::uint32_t type, const Bytes &body)
{
	auto len = (std::uint32_t)(12 + body.size());
	return Out{big}.u32(type).u32(len).raw(body).u32(len).b;
}

Bytes shb(bool big)
{
	return block(big, 0x0A0D0D0A, Out{big}.u32(0x1A2B3C4D).u16(1).u16(0).u64(~0ull).b);
}

Bytes idb(bool big, std::uint16_t link, std::uint32_t snaplen, int tsresol = -1, int tsoffset = 0)
{
	Out o = Out{big}.u16(link).u16(0).u32(snaplen);
	if (tsresol >= 0)
		o.u16(9).u16(1).u8((unsigned)tsresol).pad4().u16(14).u16(8).u64(tsoffset).u32(0);
	return block(big, 1, o.b);
}

Bytes epb(bool big, std::uint32_t iface, std::uint64_t ticks, const Bytes &data, int flags = 0)
{
	Out o = Out{big}.u32(iface).u32((std::uint32_t)(ticks >> 32)).u32((std::uint32_t)ticks);
	o.u32((std::uint32_t)data.size()).u32((std::uint32_t)data.size()).raw(data).pad4();
	return block(big, 6, o.u16(2).u16(4).u32((std::uint32_t)flags).u32(0).b);
}

/* The host is little-endian, as the files these damage. */
Bytes with_u32(Bytes b, std::size_t at, std::uint32_t v) { return std::memcpy(&b[at], &v, 4), b; }

Bytes cut(const Bytes &b, std::size_t n) { return Bytes(b.begin(), b.end() - (long)n); }

/* Parses from a heap block of exactly the file's size (the copy a vector
 * makes has no spare capacity), so that ASan sees any read past its end;
 * no frame may lie outside it either. */
bool parse(Bytes file, std::vector<vysim::CaptureFrame> &frames, std::string &err)
{
	bool ok = vysim::parse_capture(file.data(), file.data() + file.size(), frames, err);
	for (const vysim::CaptureFrame &f : frames)
		EXPECT_LE(f.offset + f.len, file.size());
	return ok;
}

constexpr std::uint64_t kNoTime = ~0ull; /* a simple packet block's */
using Frame = std::tuple<std::uint64_t, vysim::Direction, Bytes>;

} // namespace

TEST(Capture, FilesAreReadOrRefusedWithTheReasonAndNeverReadPastTheirEnd)
{
	Bytes f1(61, 1), f2(64, 2), f3(80, 3), f(60, 1);
	/* The file, the reason it is refused for (null: it is read), and the
	 * frames read. */
	std::vector<std::tuple<Bytes, const char *, std::vector<Frame>>> cases;
	for (bool big : {false, true}) {
		for (bool nano : {false, true})
			cases.push_back({pcap_file(big, nano), nullptr,
					 {{1700000000123456000u + nano * 789u, {}, Bytes(60, 1)},
					  {1700000001000000000, {}, Bytes(42, 9)}}});
		/* Interfaces: microseconds with a 64-byte snaplen (the simple
		 * packet blocks' one), nanoseconds, 2^-10 s plus 5 s. A custom
		 * block is skipped; simple packet blocks (type 3) are cut to the
		 * snaplen and to their original length; a new section in the
		 * other byte order forgets the interfaces. Flags 3 (and {}) give
		 * no direction. */
		Bytes ng = shb(big) + idb(big, 1, 64) + idb(big, 1, 0, 9) +
			   idb(big, 1, 0, 0x80 | 10, 5) + epb(big, 0, 1700000000123456, f1, 1) +
			   block(big, 0x80000001, Bytes(8)) +
			   epb(big, 1, 1700000000123456789, f2, 2) + epb(big, 2, 3 << 10, f3, 3) +
			   block(big, 3, Out{big}.u32(80).raw(f3).b) +
			   block(big, 3, Out{big}.u32(20).raw(Bytes(24, 7)).b) + shb(!big) +
			   idb(!big, 1, 0) + epb(!big, 0, 7, f2);
		cases.push_back({ng, nullptr,
				 {{1700000000123456000, vysim::Direction::Inbound, f1},
				  {1700000000123456789, vysim::Direction::Outbound, f2},
				  {8000000000, {}, f3}, {kNoTime, {}, Bytes(64, 3)},
				  {kNoTime, {}, Bytes(20, 7)}, {7000, {}, f2}}});
	}
	/* A pcapng section header, then an interface, then a packet at
	 * ifc.size(); a classic pcap file. */
	Bytes s = shb(false), ifc = s + idb(false, 1, 0), ng = ifc + epb(false, 0, 1, f);
	Bytes pcap = pcap_file(false, false);
	for (auto c : std::vector<std::pair<Bytes, const char *>>{
		     {{}, "too short"},
		     {{'t', 'i', 'm', 'e', ' ', '1'}, "not a pcap or pcapng"},
		     {with_u32(pcap, 4, 3), "unsupported format version"},
		     {pcap_file(false, false, 105), "link type 105"},
		     {with_u32(pcap, 28, 1000000), "sub-second"},
		     {with_u32(pcap, 32, 0x7fffffff), "captured length"},
		     {with_u32(ng, 8, 0x12345678), "byte-order magic"},
		     {with_u32(ng, ifc.size() + 4, 8), "invalid length 8"},
		     {with_u32(ng, ng.size() - 4, 96), "trailing length"},
		     {ng + ifc + epb(false, 1, 2, f), "names interface 1"},
		     {s + idb(false, 105, 0) + epb(false, 0, 1, f), "link type 105"},
		     {with_u32(ng, ifc.size() + 20, 200), "do not fit"},
		     {with_u32(ng, ifc.size() + 20, 0xffffffff), "captured length"},
		     /* if_tsresol with a length of 200 */
		     {with_u32(s + idb(false, 1, 0, 6), s.size() + 16, 0x00c80009), "runs past"},
		     {s + idb(false, 1, 0, 20) + epb(false, 0, 1, f), "resolution"},
		     {s + idb(false, 1, 0, 0) + epb(false, 0, ~0ull, f), "out of range"},
	     })
		cases.push_back({c.first, c.second, {}});
	for (const auto &[file, message, want] : cases) {
		SCOPED_TRACE(testing::Message() << file.size() << " bytes: " << message);
		std::vector<vysim::CaptureFrame> got;
		std::vector<Frame> frames;
		std::string err;
		EXPECT_EQ(parse(file, got, err), !message) << err;
		EXPECT_NE(err.find(message ? message : ""), std::string::npos) << err;
		for (const vysim::CaptureFrame &g : got)
			frames.emplace_back(g.has_ts ? g.ts_ns : kNoTime, g.dir,
					    Bytes(&file[g.offset], &file[g.offset] + g.len));
		EXPECT_EQ(frames, want);
		/* Wherever the file is cut and whatever byte is damaged, no length
		 * in it leads the reader past the buffer; a good file cut to 4
		 * bytes or more is read up to the cut or refused as truncated. */
		for (std::size_t n = 1; n <= file.size(); n++) {
			bool ok = parse(cut(file, n), got, err) || n + 4 > file.size() || message;
			EXPECT_TRUE(ok || err.find("truncated") != std::string::npos) << err;
			for (std::uint8_t v : {0x00, 0x03, 0x7f, 0xff}) {
				Bytes damaged = file;
				damaged[n - 1] = v;
				parse(damaged, got, err);
			}
		}
	}
}
