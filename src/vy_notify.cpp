// SPDX-License-Identifier: GPL-2.0
/*
 * The two outgoing station notifications. Callers decide when to send;
 * these only pass a private copy's fields on and log what went out. They
 * run without sta_lock, in softirq context, and do not sleep.
 */
#include "vy_notify.h"

/* Not inlined, so that the return address names the real caller. */
__attribute__((noinline)) void vy_notify_sta_dhcp(const sta *copy)
{
	if (!copy)
		return;

	/* Status codes are 0 to 3, so their low byte is the whole code. */
	vy_plat_notify_sta_dhcp(copy->vap_name, copy->mac, (u8)copy->dhcp_status,
				copy->dhcp_reason, copy->hostname,
				copy->hostname_len, copy->ip, copy->dhcp_type,
				copy->dhcp_server_ip, copy->gateway_ip,
				copy->dhcp_latency);

	vy_notice("Send TALMA_MSG_DHCP event (sta %pM, %s, status %d, reason %d, hostname %s, hostname_len %u, ip %pI4, type %d, server_ip %pI4, gateway_ip %pI4, latency %dms, Caller: %pS)\n",
		  copy->mac, copy->vap_name, (int)copy->dhcp_status,
		  (int)copy->dhcp_reason, copy->hostname,
		  (unsigned int)copy->hostname_len, &copy->ip,
		  (int)copy->dhcp_type, &copy->dhcp_server_ip,
		  &copy->gateway_ip, (int)copy->dhcp_latency,
		  __builtin_return_address(0));
}

__attribute__((noinline)) void vy_notify_sta_dns(const sta *copy)
{
	if (!copy)
		return;

	vy_plat_notify_sta_dns(copy->vap_name, copy->mac, (u8)copy->dns_status,
			       copy->dns_server_ip, copy->dns_latest_latency);

	vy_notice("Send TALMA_MSG_DNS event (sta %pM, %s, status %d, server_ip %pI4, latency %dms, Caller: %pS)\n",
		  copy->mac, copy->vap_name, (int)copy->dns_status,
		  &copy->dns_server_ip, (int)copy->dns_latest_latency,
		  __builtin_return_address(0));
}
