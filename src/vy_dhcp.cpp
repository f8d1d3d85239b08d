// SPDX-License-Identifier: GPL-2.0
/*
 * The DHCP message parser: one message seen on its way from or to a
 * wireless station becomes one call on the station's DHCP progress, with
 * the status the message stands for, the station's address, the server,
 * gateway and DNS server it was given and its host name.
 *
 * The message is the station's (or its server's) to shape: the option walk
 * compares every byte it reads with the payload's length.
 */
#include "vy_dhcp.h"

#include "vy_sta_list.h"

#define VY_DHCP_OFF_CIADDR 12
#define VY_DHCP_OFF_YIADDR 16
#define VY_DHCP_OFF_CHADDR 28
#define VY_DHCP_OFF_COOKIE 236

#define VY_DHCP_OPT_PAD 0
#define VY_DHCP_OPT_ROUTER 3
#define VY_DHCP_OPT_DNS 6
#define VY_DHCP_OPT_HOSTNAME 12
#define VY_DHCP_OPT_REQUESTED_IP 50
#define VY_DHCP_OPT_MESSAGE_TYPE 53
#define VY_DHCP_OPT_SERVER_ID 54
#define VY_DHCP_OPT_END 255

#define VY_DHCP_HOSTNAME_MAX 64

enum : u8 {
	VY_DHCPDISCOVER = 1,
	VY_DHCPOFFER = 2,
	VY_DHCPREQUEST = 3,
	VY_DHCPDECLINE = 4,
	VY_DHCPACK = 5,
	VY_DHCPNACK = 6,
	VY_DHCPRELEASE = 7,
};

static const u8 vy_dhcp_cookie[4] = { 0x63, 0x82, 0x53, 0x63 };

/* What the option walk collects from one message. */
struct dhcp_options {
	u32 requested_ip;
	u32 server_ip;
	u32 gateway_ip;
	u32 dns_ip;
	u8 type;
	char hostname[VY_DHCP_HOSTNAME_MAX + 1];
	u8 hostname_len;
};

s32 vy_parse_dhcp(const u8 *payload, u32 len, u8 to_wireless)
{
	dhcp_options o;
	const u8 *cookie;
	const u8 *opts;
	const u8 *mac;
	s32 pos = 0;
	s32 opt_len = (s32)(len - VY_DHCP_FIXED_LEN);
	u32 status;
	u32 ip;

	if (len - VY_DHCP_FIXED_LEN > VY_DHCP_MAX_OPTIONS) {
		vy_dbg("invalid option length. dhcp_len = %d, sizeof(dhcp_packet_t) = %u, option_length %d\n",
		       (s32)len, (unsigned int)VY_DHCP_FIXED_LEN, opt_len);
		return -1;
	}
	if (!payload) {
		vy_warn_ratelimited("invalid parameters. (payload = %p)\n",
				    payload);
		return -1;
	}

	cookie = payload + VY_DHCP_OFF_COOKIE;
	if (vy_memcmp(cookie, vy_dhcp_cookie, sizeof(vy_dhcp_cookie)) != 0) {
		vy_dbg("not dhcp magic cookie. pkt magic_cookie = %02x %02x %02x %02x, dhcp magic_cookie = %02x %02x %02x %02x\n",
		       cookie[0], cookie[1], cookie[2], cookie[3],
		       vy_dhcp_cookie[0], vy_dhcp_cookie[1], vy_dhcp_cookie[2],
		       vy_dhcp_cookie[3]);
		return -1;
	}

	/*
	 * The option walk. The pad option is a single byte and the end option
	 * ends the walk. An option whose bytes would run past the payload ends
	 * the walk too, keeping what was collected before it.
	 */
	vy_memset(&o, 0, sizeof(o));
	opts = payload + VY_DHCP_FIXED_LEN;
	while (pos < opt_len) {
		u8 code = opts[pos];
		s32 avail;
		u8 olen;
		const u8 *data;
		s32 need = 0;

		if (code == VY_DHCP_OPT_PAD) {
			pos++;
			continue;
		}
		if (code == VY_DHCP_OPT_END)
			break;

		/* Bytes left after the code and length bytes. */
		avail = opt_len - pos - 2;
		if (avail < 0) {
			vy_dbg("dhcp option %d cut short at option offset %d (option length %d)\n",
			       code, pos, opt_len);
			break;
		}
		olen = opts[pos + 1];
		data = opts + pos + 2;

		switch (code) {
		case VY_DHCP_OPT_MESSAGE_TYPE:
			if (olen == 1)
				need = 1;
			break;
		case VY_DHCP_OPT_HOSTNAME:
			if (olen <= VY_DHCP_HOSTNAME_MAX)
				need = olen;
			break;
		case VY_DHCP_OPT_REQUESTED_IP:
		case VY_DHCP_OPT_SERVER_ID:
		case VY_DHCP_OPT_ROUTER:
		case VY_DHCP_OPT_DNS:
			/* The first address, whatever the length byte says. */
			need = 4;
			break;
		default:
			break;
		}
		if (need > avail) {
			vy_dbg("dhcp option %d cut short at option offset %d (option length %d)\n",
			       code, pos, opt_len);
			break;
		}

		switch (code) {
		case VY_DHCP_OPT_MESSAGE_TYPE:
			if (olen == 1)
				o.type = data[0];
			else
				vy_dbg("invalid dhcp option: MESSAGE_TYPE(%d) len = %d (should be 1)\n",
				       code, olen);
			break;
		case VY_DHCP_OPT_HOSTNAME:
			/* A shorter name overwrites only the start of an
			 * earlier one: hostname_len says where it ends. */
			if (olen <= VY_DHCP_HOSTNAME_MAX) {
				vy_memcpy(o.hostname, data, olen);
				o.hostname_len = olen;
			} else {
				vy_dbg("invalid dhcp option: hostname len %d >= %d\n",
				       olen, VY_DHCP_HOSTNAME_MAX + 1);
			}
			break;
		case VY_DHCP_OPT_REQUESTED_IP:
			o.requested_ip = vy_get_ip(data);
			break;
		case VY_DHCP_OPT_SERVER_ID:
			o.server_ip = vy_get_ip(data);
			break;
		case VY_DHCP_OPT_ROUTER:
			o.gateway_ip = vy_get_ip(data);
			break;
		case VY_DHCP_OPT_DNS:
			o.dns_ip = vy_get_ip(data);
			break;
		default:
			break;
		}

		pos += olen + 2;
	}

	ip = o.requested_ip;
	switch (o.type) {
	case VY_DHCPDISCOVER:
		if (to_wireless) {
			vy_dbg("receive DHCP DISCOVER which goes to a wireless interface.\n");
			return 0;
		}
		status = VY_STATUS_UNKNOWN;
		break;
	case VY_DHCPOFFER:
		if (!to_wireless) {
			vy_dbg("receive DHCP OFFER which goes from a wireless interface.\n");
			return 0;
		}
		status = VY_STATUS_UNKNOWN;
		ip = vy_get_ip(payload + VY_DHCP_OFF_YIADDR);
		break;
	case VY_DHCPREQUEST:
		if (to_wireless) {
			vy_dbg("receive DHCP REQUEST which goes to a wireless interface.\n");
			return 0;
		}
		status = VY_STATUS_UNKNOWN;
		if (!ip)
			ip = vy_get_ip(payload + VY_DHCP_OFF_CIADDR);
		break;
	case VY_DHCPACK:
		if (!to_wireless) {
			vy_dbg("receive DHCP ACK which goes from a wireless interface.\n");
			return 0;
		}
		ip = vy_get_ip(payload + VY_DHCP_OFF_YIADDR);
		/* An ACK without an address (an answer to INFORM) settles
		 * nothing about the station's lease. */
		status = ip ? VY_STATUS_OK : VY_STATUS_INVALID;
		break;
	case VY_DHCPDECLINE:
	case VY_DHCPRELEASE:
		status = VY_STATUS_UNKNOWN;
		break;
	case VY_DHCPNACK:
		status = VY_STATUS_FAIL;
		break;
	default:
		status = VY_STATUS_INVALID;
		break;
	}

	mac = payload + VY_DHCP_OFF_CHADDR;
	vy_set_sta_dhcp_status(mac, status, o.type, ip, o.server_ip,
			       o.gateway_ip, o.dns_ip, o.hostname,
			       o.hostname_len);

	vy_notice("receive %s. STA %s, hostname_len: %u, mac: %pM, ip: %pI4, dhcp server: %pI4, gateway: %pI4\n",
		  vy_dhcp_type_name(o.type), o.hostname,
		  (unsigned int)o.hostname_len, mac, &ip, &o.server_ip,
		  &o.gateway_ip);
	return 0;
}
