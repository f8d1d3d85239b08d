// SPDX-License-Identifier: GPL-2.0
/* The host's umac: the station-event monitor and the two notifications. */
#include <cstring>

#include "host_internal.h"

namespace vy_host {

namespace {
std::mutex g_umac_mu;
bool g_registered = false;
int g_fail_register = 0;
} // namespace

void reset_umac()
{
	std::lock_guard<std::mutex> lk(g_umac_mu);
	g_registered = false;
	g_fail_register = 0;
}

bool umac_monitor_registered()
{
	std::lock_guard<std::mutex> lk(g_umac_mu);
	return g_registered;
}

void umac_fail_next_register(int err)
{
	std::lock_guard<std::mutex> lk(g_umac_mu);
	g_fail_register = err;
}

bool umac_event(int code, const std::uint8_t mac[6], const std::string &vap)
{
	if (!umac_monitor_registered())
		return false;
	/* umac's station-event record: the VAP name at byte 0, the MAC at 42. */
	unsigned char record[64] = {};
	std::strncpy(reinterpret_cast<char *>(record), vap.c_str(), 16);
	std::memcpy(record + 42, mac, 6);
	vy_sta_evt_cb(code, record);
	return true;
}

} // namespace vy_host

using namespace vy_host;

extern "C" {

int vy_plat_umac_monitor_register(void)
{
	std::lock_guard<std::mutex> lk(g_umac_mu);
	if (g_fail_register) {
		int err = g_fail_register;
		g_fail_register = 0;
		return err;
	}
	if (g_registered)
		return -17; /* -EEXIST, as umac refuses a duplicate */
	g_registered = true;
	return 0;
}

int vy_plat_umac_monitor_unregister(void)
{
	std::lock_guard<std::mutex> lk(g_umac_mu);
	if (!g_registered)
		return -2; /* -ENOENT, as umac refuses an unknown monitor */
	g_registered = false;
	return 0;
}

void vy_plat_notify_sta_dhcp(const char *vap, const vy_u8 *mac, vy_u8 status,
			     vy_u8 reason, const char *hostname,
			     vy_u8 hostname_len, vy_u32 ip, vy_u8 type,
			     vy_u32 server, vy_u32 gateway, vy_u32 latency)
{
	Event ev{};
	ev.kind = EventKind::NotifyDhcp;
	ev.vap.assign(vap, strnlen(vap, 16));
	std::memcpy(ev.mac, mac, 6);
	ev.status = status;
	ev.reason = reason;
	ev.hostname_len = hostname_len;
	ev.hostname.assign(hostname, hostname_len < 65 ? hostname_len : 65);
	ev.ip = ip;
	ev.type = type;
	ev.server = server;
	ev.gateway = gateway;
	ev.latency = latency;
	capture(std::move(ev));
}

void vy_plat_notify_sta_dns(const char *vap, const vy_u8 *mac, vy_u8 status,
			    vy_u32 dns_server, vy_u32 latency)
{
	Event ev{};
	ev.kind = EventKind::NotifyDns;
	ev.vap.assign(vap, strnlen(vap, 16));
	std::memcpy(ev.mac, mac, 6);
	ev.status = status;
	ev.dns_server = dns_server;
	ev.latency = latency;
	capture(std::move(ev));
}

} // extern "C"
