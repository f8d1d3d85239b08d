/* SPDX-License-Identifier: GPL-2.0 */
/* One DHCP exchange (DISCOVER, OFFER, REQUEST, ACK) as a phone's client
 * and a home router's server write them, for one station. */
#ifndef VY_BENCH_DHCP_EXCHANGE_H
#define VY_BENCH_DHCP_EXCHANGE_H

#include <vector>

#include "msg_builder.h"

namespace dhcp_exchange {

/* The four DHCP payloads; the lease is 192.168.77.(100 + the MAC's last
 * byte % 100). */
inline std::vector<msg::Bytes> messages(std::uint8_t m0, std::uint8_t m1,
					std::uint8_t m2, std::uint8_t m3,
					std::uint8_t m4, std::uint8_t m5)
{
	const msg::Mac mac{m0, m1, m2, m3, m4, m5};
	const msg::Ip server{192, 168, 77, 1};
	const msg::Ip lease{192, 168, 77, (std::uint8_t)(100 + m5 % 100)};
	const msg::Bytes params{1, 3, 6, 15, 26, 28, 51, 58, 59, 43};
	auto client = [&](std::uint8_t type) {
		msg::Dhcp d;
		d.chaddr(mac).type(type).option(61, {1, m0, m1, m2, m3, m4, m5});
		if (type == 3)
			d.addr_option(msg::kOptRequestedIp, lease)
				.addr_option(msg::kOptServerId, server);
		d.option(57, {0x05, 0xdc}).hostname("pixel-7").option(55, params);
		return d.raw({msg::kOptEnd}).pad_to(300).build();
	};
	auto reply = [&](std::uint8_t type) {
		msg::Dhcp d;
		d.chaddr(mac).yiaddr(lease).siaddr(server).type(type)
			.addr_option(msg::kOptServerId, server)
			.option(51, {0, 0, 0x0e, 0x10})
			.option(58, {0, 0, 0x07, 0x08})
			.option(59, {0, 0, 0x0c, 0x4e})
			.addr_option(1, msg::Ip{255, 255, 255, 0})
			.addr_option(28, msg::Ip{192, 168, 77, 255})
			.addr_option(msg::kOptRouter, server)
			.addr_option(msg::kOptDns, server)
			.option(15, {'l', 'a', 'n'});
		msg::Bytes b = d.raw({msg::kOptEnd}).pad_to(300).build();
		b[0] = 2; /* BOOTREPLY */
		return b;
	};
	return {client(1), reply(2), client(3), reply(5)};
}

} // namespace dhcp_exchange

#endif
