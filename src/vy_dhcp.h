/* SPDX-License-Identifier: GPL-2.0 */
/* The DHCP message parser: one message from or to a wireless station. */
#ifndef VY_DHCP_H
#define VY_DHCP_H

#include "vy_common.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

#define VY_DHCP_FIXED_LEN 240   /* sizeof(dhcp_packet_t), cookie included */
#define VY_DHCP_MAX_OPTIONS 312

s32 vy_parse_dhcp(const u8 *payload, u32 len, u8 to_wireless);

} /* extern "C" */

#endif /* VY_DHCP_H */
