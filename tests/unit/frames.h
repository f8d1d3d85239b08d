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

/* A 20-byte IPv4 header; a negative total_len is the real one. */
struct Udp4 {
	Mac src = mac(1);
	Mac dst = mac(2);
	std::uint16_t ethertype = 0x0800, frag = 0, sport = 68, dport = 67;
	std::uint8_t protocol = 17;
	std::uint32_t saddr = 0xc0a84d64; /* 192.168.77.100 */
	std::uint32_t daddr = 0xc0a84d01; /* 192.168.77.1 */
	int total_len = -1;
	Bytes payload;

	Bytes build() const
	{
		const std::uint32_t udp_len = 8 + payload.size();
		const std::uint32_t words[] = {
			ethertype, 0x4500,
			total_len >= 0 ? std::uint32_t(total_len) : 20 + udp_len,
			0x1234, frag, 64u << 8 | protocol, 0, saddr >> 16, saddr,
			daddr >> 16, daddr, sport, dport, udp_len, 0};
		Bytes f;

		/* Room first: growing from the 6 bytes of one address makes
		 * GCC 12 at -O2 warn of a copy out of bounds that is not. */
		f.reserve(12 + sizeof(words) / 2 + payload.size());
		f.insert(f.end(), dst.b, dst.b + 6);
		f.insert(f.end(), src.b, src.b + 6);
		for (std::uint32_t w : words) {
			f.push_back(std::uint8_t(w >> 8));
			f.push_back(std::uint8_t(w));
		}
		f.insert(f.end(), payload.begin(), payload.end());
		return f;
	}
};

} // namespace frames

#endif
