// SPDX-License-Identifier: GPL-2.0
// The capture reader: the formats it must read, and every kind of broken
// file it must refuse with a message instead of reading past the buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "capture.h"

using vysim::CaptureFrame;
using vysim::Direction;
using Bytes = std::vector<std::uint8_t>;

namespace {

/* Writes integers in one byte order. */
struct Out {
	Bytes b;
	bool big = false;

	Out &u8(unsigned v)
	{
		b.push_back((std::uint8_t)v);
		return *this;
	}
	Out &u16(unsigned v)
	{
		return big ? u8(v >> 8).u8(v) : u8(v).u8(v >> 8);
	}
	Out &u32(std::uint32_t v)
	{
		return big ? u16(v >> 16).u16(v) : u16(v).u16(v >> 16);
	}
	Out &u64(std::uint64_t v)
	{
		return big ? u32(v >> 32).u32((std::uint32_t)v) : u32((std::uint32_t)v).u32(v >> 32);
	}
	Out &raw(const Bytes &d)
	{
		b.insert(b.end(), d.begin(), d.end());
		return *this;
	}
	Out &pad4()
	{
		while (b.size() % 4)
			b.push_back(0);
		return *this;
	}
};

Bytes frame_bytes(std::uint8_t tag, std::size_t n)
{
	Bytes f(n);
	for (std::size_t i = 0; i < n; i++)
		f[i] = (std::uint8_t)(tag + i);
	return f;
}

Bytes pcap_file(bool big, bool nano, std::uint32_t link = 1)
{
	Out o;
	o.big = big;
	o.u32(nano ? 0xa1b23c4d : 0xa1b2c3d4).u16(2).u16(4).u32(0).u32(0).u32(65535).u32(link);
	o.u32(1700000000).u32(nano ? 123456789 : 123456).u32(60).u32(60).raw(frame_bytes(1, 60));
	o.u32(1700000001).u32(0).u32(42).u32(100).raw(frame_bytes(9, 42));
	return o.b;
}

/* pcapng blocks */
Bytes block(bool big, std::uint32_t type, const Bytes &body)
{
	Out o;
	o.big = big;
	o.u32(type).u32((std::uint32_t)(12 + body.size())).raw(body).u32((std::uint32_t)(12 + body.size()));
	return o.b;
}

Bytes shb(bool big)
{
	Out o;
	o.big = big;
	o.u32(0x1A2B3C4D).u16(1).u16(0).u64(~0ull);
	return block(big, 0x0A0D0D0A, o.b);
}

Bytes idb(bool big, std::uint16_t link, std::uint32_t snaplen, int tsresol = -1,
	  std::int64_t tsoffset = 0)
{
	Out o;
	o.big = big;
	o.u16(link).u16(0).u32(snaplen);
	if (tsresol >= 0)
		o.u16(9).u16(1).u8((unsigned)tsresol).pad4();
	if (tsoffset)
		o.u16(14).u16(8).u64((std::uint64_t)tsoffset);
	if (tsresol >= 0 || tsoffset)
		o.u16(0).u16(0);
	return block(big, 1, o.b);
}

Bytes epb(bool big, std::uint32_t iface, std::uint64_t ticks, const Bytes &data,
	  int flags = -1)
{
	Out o;
	o.big = big;
	o.u32(iface).u32((std::uint32_t)(ticks >> 32)).u32((std::uint32_t)ticks);
	o.u32((std::uint32_t)data.size()).u32((std::uint32_t)data.size()).raw(data).pad4();
	if (flags >= 0)
		o.u16(2).u16(4).u32((std::uint32_t)flags).u16(0).u16(0);
	return block(big, 6, o.b);
}

Bytes spb(bool big, std::uint32_t orig_len, const Bytes &data)
{
	Out o;
	o.big = big;
	o.u32(orig_len).raw(data).pad4();
	return block(big, 3, o.b);
}

Bytes cat(std::initializer_list<Bytes> parts)
{
	Bytes all;
	for (const Bytes &p : parts)
		all.insert(all.end(), p.begin(), p.end());
	return all;
}

/* Parses from a heap block of exactly the file's size, so that ASan sees
 * any read past its end. */
bool parse(const Bytes &file, std::vector<CaptureFrame> &frames, std::string &err)
{
	std::unique_ptr<std::uint8_t[]> buf(new std::uint8_t[file.size() ? file.size() : 1]);
	if (!file.empty())
		std::memcpy(buf.get(), file.data(), file.size());
	return vysim::parse_capture(buf.get(), buf.get() + file.size(), frames, err);
}

Bytes bytes_of(const Bytes &file, const CaptureFrame &f)
{
	return Bytes(file.begin() + (long)f.offset, file.begin() + (long)(f.offset + f.len));
}

} // namespace

TEST(CaptureClassic, ReadsEveryByteOrderAndResolution)
{
	for (bool big : {false, true})
		for (bool nano : {false, true}) {
			SCOPED_TRACE(testing::Message() << "big " << big << " nano " << nano);
			Bytes file = pcap_file(big, nano);
			std::vector<CaptureFrame> frames;
			std::string err;
			ASSERT_TRUE(parse(file, frames, err)) << err;
			ASSERT_EQ(frames.size(), 2u);
			EXPECT_EQ(frames[0].ts_ns, 1700000000123456789ull - (nano ? 0 : 789));
			EXPECT_EQ(frames[1].ts_ns, 1700000001000000000ull);
			EXPECT_TRUE(frames[0].has_ts);
			EXPECT_EQ(frames[0].dir, Direction::Unknown);
			EXPECT_EQ(bytes_of(file, frames[0]), frame_bytes(1, 60));
			EXPECT_EQ(bytes_of(file, frames[1]), frame_bytes(9, 42));
		}
}

TEST(CaptureNg, ReadsFlagsResolutionsAndBlockKinds)
{
	for (bool big : {false, true}) {
		SCOPED_TRACE(big ? "big-endian" : "little-endian");
		Bytes f1 = frame_bytes(1, 61), f2 = frame_bytes(2, 64), f3 = frame_bytes(3, 70);
		Bytes file = cat({shb(big), idb(big, 1, 0), idb(big, 1, 0, 9),
				  idb(big, 1, 0, 0x80 | 10, 5), idb(big, 1, 0, 3),
				  epb(big, 0, 1700000000123456ull, f1, 1),
				  block(big, 0x80000001, Bytes(8, 0xee)), /* custom: skipped */
				  epb(big, 1, 1700000000123456789ull, f2, 2),
				  epb(big, 2, 3ull << 10, f3), epb(big, 3, 1234, f1, 3)});
		std::vector<CaptureFrame> frames;
		std::string err;
		ASSERT_TRUE(parse(file, frames, err)) << err;
		ASSERT_EQ(frames.size(), 4u);
		EXPECT_EQ(frames[0].ts_ns, 1700000000123456000ull);
		EXPECT_EQ(frames[0].dir, Direction::Inbound);
		EXPECT_EQ(bytes_of(file, frames[0]), f1);
		EXPECT_EQ(frames[1].ts_ns, 1700000000123456789ull);
		EXPECT_EQ(frames[1].dir, Direction::Outbound);
		EXPECT_EQ(bytes_of(file, frames[1]), f2);
		/* 2^-10 s ticks plus a 5 s offset */
		EXPECT_EQ(frames[2].ts_ns, 5000000000ull + 3 * 1000000000ull);
		EXPECT_EQ(frames[2].dir, Direction::Unknown);
		EXPECT_EQ(bytes_of(file, frames[2]), f3);
		EXPECT_EQ(frames[3].ts_ns, 1234000000ull); /* milliseconds */
		EXPECT_EQ(frames[3].dir, Direction::Unknown); /* flags 3: invalid */
	}
}

TEST(CaptureNg, SimplePacketBlockIsCutBySnaplenAndHasNoTime)
{
	Bytes data = frame_bytes(5, 80);
	Bytes file = cat({shb(false), idb(false, 1, 50), spb(false, 80, data),
			  spb(false, 20, frame_bytes(7, 24))});
	std::vector<CaptureFrame> frames;
	std::string err;
	ASSERT_TRUE(parse(file, frames, err)) << err;
	ASSERT_EQ(frames.size(), 2u);
	EXPECT_FALSE(frames[0].has_ts);
	EXPECT_EQ(bytes_of(file, frames[0]), Bytes(data.begin(), data.begin() + 50));
	EXPECT_EQ(frames[1].len, 20u); /* the original length, not the padding */
}

TEST(CaptureNg, NewSectionForgetsInterfacesAndMaySwapByteOrder)
{
	Bytes f = frame_bytes(1, 60);
	Bytes ok = cat({shb(false), idb(false, 1, 0), epb(false, 0, 1, f), shb(true),
			idb(true, 1, 0), epb(true, 0, 2, f)});
	std::vector<CaptureFrame> frames;
	std::string err;
	ASSERT_TRUE(parse(ok, frames, err)) << err;
	EXPECT_EQ(frames.size(), 2u);

	Bytes bad = cat({shb(false), idb(false, 1, 0), idb(false, 1, 0), shb(false),
			 idb(false, 1, 0), epb(false, 1, 2, f)});
	EXPECT_FALSE(parse(bad, frames, err));
	EXPECT_NE(err.find("names interface 1"), std::string::npos) << err;
	EXPECT_TRUE(frames.empty());
}

namespace {

struct BadCase {
	const char *name;
	Bytes file;
	const char *message;
};

Bytes with_u32(Bytes b, std::size_t at, std::uint32_t v)
{
	std::memcpy(&b[at], &v, 4); /* the host is little-endian, as the files */
	return b;
}

Bytes cut(Bytes b, std::size_t n)
{
	b.resize(b.size() - n);
	return b;
}

} // namespace

TEST(Capture, MalformedFilesAreRefusedWithAClearMessage)
{
	Bytes f = frame_bytes(1, 60);
	Bytes good_ng = cat({shb(false), idb(false, 1, 0), epb(false, 0, 1, f)});
	Bytes hdr_only = cut(pcap_file(false, false), 60 + 16 + 42 + 16);
	std::size_t epb_at = shb(false).size() + idb(false, 1, 0).size();

	Bytes opt_overrun = cat({shb(false), idb(false, 1, 0)});
	{
		Out o;
		o.u16(1).u16(0).u32(0).u16(9).u16(200).u32(0); /* if_tsresol claims 200 bytes */
		opt_overrun = cat({shb(false), block(false, 1, o.b)});
	}
	Bytes bad_tsresol_len;
	{
		Out o;
		o.u16(1).u16(0).u32(0).u16(9).u16(2).u16(0x0606).u16(0).u16(0).u16(0);
		bad_tsresol_len = cat({shb(false), block(false, 1, o.b)});
	}

	const BadCase cases[] = {
		{"empty", {}, "too short"},
		{"three bytes", {0xd4, 0xc3, 0xb2}, "too short"},
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
		{"block length odd", with_u32(good_ng, epb_at + 4, 90), "invalid length 90"},
		{"block past the end", with_u32(good_ng, epb_at + 4, 4096), "is truncated"},
		{"trailing length differs", with_u32(good_ng, good_ng.size() - 4, 96), "trailing length"},
		{"leftover bytes", cat({good_ng, Bytes(8, 0)}), "is truncated"},
		{"packet before interface", cat({shb(false), epb(false, 0, 1, f)}), "names interface 0"},
		{"packet on 802.11", cat({shb(false), idb(false, 105, 0), epb(false, 0, 1, f)}),
		 "link type 105"},
		{"caplen past block", with_u32(good_ng, epb_at + 20, 200), "do not fit"},
		{"caplen huge", with_u32(good_ng, epb_at + 20, 0xffffffff), "captured length"},
		{"option past block", opt_overrun, "runs past the block"},
		{"tsresol length", bad_tsresol_len, "if_tsresol"},
		{"tsresol 10^-20", cat({shb(false), idb(false, 1, 0, 20), epb(false, 0, 1, f)}),
		 "resolution"},
		{"timestamp overflow",
		 cat({shb(false), idb(false, 1, 0, 0), epb(false, 0, ~0ull, f)}), "out of range"},
		{"spb before interface", cat({shb(false), spb(false, 60, f)}), "names interface 0"},
	};
	for (const BadCase &c : cases) {
		std::vector<CaptureFrame> frames;
		std::string err;
		EXPECT_FALSE(parse(c.file, frames, err)) << c.name;
		EXPECT_NE(err.find(c.message), std::string::npos) << c.name << ": " << err;
		EXPECT_TRUE(frames.empty()) << c.name;
	}
}

TEST(Capture, EveryTruncationAndByteFlipStaysInBounds)
{
	/* Under ASan this is the check that no length in the file leads the
	 * reader past the end of the buffer, whatever byte is damaged. */
	Bytes f = frame_bytes(1, 61);
	const Bytes files[] = {
		pcap_file(false, false),
		pcap_file(true, true),
		cat({shb(false), idb(false, 1, 30, 9), epb(false, 0, 7, f, 1), spb(false, 61, f)}),
		cat({shb(true), idb(true, 1, 0), epb(true, 0, 7, f, 2)}),
	};
	for (const Bytes &file : files) {
		for (std::size_t n = 0; n < file.size(); n++) {
			std::vector<CaptureFrame> frames;
			std::string err;
			Bytes part(file.begin(), file.begin() + (long)n);
			if (!parse(part, frames, err))
				EXPECT_FALSE(err.empty());
			for (const CaptureFrame &fr : frames)
				EXPECT_LE(fr.offset + fr.len, n);
		}
		for (std::size_t i = 0; i < file.size(); i++)
			for (std::uint8_t v : {0x00, 0x03, 0x7f, 0xff}) {
				Bytes damaged = file;
				damaged[i] = v;
				std::vector<CaptureFrame> frames;
				std::string err;
				parse(damaged, frames, err);
				for (const CaptureFrame &fr : frames)
					EXPECT_LE(fr.offset + fr.len, damaged.size());
			}
	}
}
