/* SPDX-License-Identifier: GPL-2.0 */
/* Builds Ethernet/IPv4/UDP frames for the host tests. */
#ifndef VY_TEST_FRAMES_H
#define VY_TEST_FRAMES_H

#include <cstdint>
#include <vector>

namespace frames {

using Bytes = std::vector<std::uint8_t>;

struct Mac {
	std::uint8_t b[6];
};

inline Mac mac(std::uint8_t last, std::uint8_t first = 0x02)
{
	return Mac{{first, 0x11, 0x22, 0x33, 0x44, last}};
}

struct Udp4 {
	Mac src = mac(1);
	Mac dst = mac(2);
	std::uint16_t ethertype = 0x0800;
	std::uint8_t ihl = 5;          /* 32-bit words */
	std::uint8_t protocol = 17;
	std::uint16_t frag = 0;        /* flags and offset, host order */
	std::uint32_t saddr = 0xc0a84d64; /* 192.168.77.100 */
	std::uint32_t daddr = 0xc0a84d01; /* 192.168.77.1 */
	std::uint16_t sport = 68;
	std::uint16_t dport = 67;
	int udp_len = -1;              /* -1: 8 + payload */
	int total_len = -1;            /* -1: ip header + 8 + payload */
	Bytes payload;

	Bytes build() const
	{
		Bytes f;
		auto put16 = [&](std::uint16_t v) {
			f.push_back(v >> 8);
			f.push_back(v & 0xff);
		};
		auto put32 = [&](std::uint32_t v) {
			put16(v >> 16);
			put16(v & 0xffff);
		};
		f.insert(f.end(), dst.b, dst.b + 6);
		f.insert(f.end(), src.b, src.b + 6);
		put16(ethertype);
		std::size_t hlen = 4u * ihl;
		if (hlen < 20)
			hlen = 20;
		f.push_back(0x40 | ihl);
		f.push_back(0);
		put16(total_len >= 0 ? total_len : hlen + 8 + payload.size());
		put16(0x1234);
		put16(frag);
		f.push_back(64);
		f.push_back(protocol);
		put16(0);
		put32(saddr);
		put32(daddr);
		while (f.size() < 14 + hlen)
			f.push_back(1); /* options: NOP */
		put16(sport);
		put16(dport);
		put16(udp_len >= 0 ? udp_len : 8 + payload.size());
		put16(0);
		f.insert(f.end(), payload.begin(), payload.end());
		return f;
	}
};

} // namespace frames

#endif
