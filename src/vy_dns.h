/* SPDX-License-Identifier: GPL-2.0 */
/* The DNS message parser: queries from stations and responses to them. */
#ifndef VY_DNS_H
#define VY_DNS_H

#include "vy_common.h"
#include "vy_hook.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

#define VY_DNS_NAME_SIZE 128
/* Compression pointers followed for one name, at most. */
#define VY_DNS_MAX_POINTERS 16

s32 vy_parse_dns(const u8 *sta_mac, const pkt_info *pkt, const u8 *payload,
		 u32 len, u8 to_wireless);

/* Decodes the name at domain_p into out (room bytes); the result is the
 * first byte after the name, or NULL when the name fails. end is the last
 * byte the name may use. Exposed for tests. */
const u8 *_vy_parse_dns_domain(const u8 *dns, const u8 *domain_p,
			       const u8 *end, char *out, u16 *out_len,
			       s16 room);

} /* extern "C" */

#endif /* VY_DNS_H */
