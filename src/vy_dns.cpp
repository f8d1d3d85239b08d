// SPDX-License-Identifier: GPL-2.0
/*
 * The DNS message parser. Queries that stations send and the responses
 * that come back to them become calls on the station's DNS progress: a
 * query for an A record makes a pending domain entry, an error response
 * rejects the name, a successful one adds its A and CNAME records one by
 * one. Only messages with exactly one question of type A are followed.
 *
 * Nothing is kept between messages and nothing is allocated. Every read
 * is compared with the message's last byte first: a station (or whatever
 * answers it) controls every byte here, counts and lengths included.
 */
#include "vy_dns.h"

#include "vy_sta_list.h"

#define VY_DNS_HDR_LEN 12
#define VY_DNS_TYPE_A 1
#define VY_DNS_TYPE_CNAME 5
/* TYPE, CLASS, TTL and RDLENGTH after an owner name. */
#define VY_DNS_RR_FIXED_LEN 10
#define VY_DNS_PTR_MASK 0xC0

struct dns_query {
	char name[VY_DNS_NAME_SIZE];
	u16 name_len;
	u16 qtype;
	u16 qclass;
	/* No label was dropped and no length byte has the pointer bits: the
	 * name decoder reads the same name into the same text, silently. */
	bool plain;
};

struct dns_answer {
	/* The owner name, in one of the buffers of dns_names. */
	const char *name;
	u16 name_len;
	u16 type;
	u16 cls;
	u32 ttl;
	u16 rdlength;
	const u8 *rdata;
};

struct dns_alias {
	char name[VY_DNS_NAME_SIZE];
	u16 len;
};

/* What a name's decoding went through, beyond its text. */
struct dns_name_trace {
	u32 hops;      /* compression pointers followed */
	bool cut;      /* a label did not fit, or a dot was left out */
};

/*
 * The names of one response's answer section. Responses name each record
 * after the one before it (the question, then each alias of the chain), so
 * most owner names are a single pointer to the question name or to the
 * last CNAME target. Decoding such a pointer gives the same text and
 * length as the name it points to, and the same log lines (none), as long
 * as that name's own decoding logged nothing and left a pointer to spare;
 * the text at hand is then used instead.
 */
struct dns_names {
	const dns_query *query;
	/* An owner name and a CNAME target, or the last target and the next
	 * owner; the target that may be reused is name[last]. */
	dns_alias name[2];
	u8 last;
	bool last_reusable;
	u32 last_off;   /* where the last target starts in the message */
};

/*
 * Whether the n + 1 bytes from p on lie at or before end. p may be one
 * past end (where a record or a name can start when the message stops
 * right before it) but never further; the comparison is made on the
 * distance so that no pointer past the message is ever formed.
 */
static inline bool vy_dns_fits(const u8 *p, u32 n, const u8 *end)
{
	return p <= end && (vy_size)(end - p) >= n;
}

/*
 * Decodes one name. Compression pointers are followed in a loop, at most
 * VY_DNS_MAX_POINTERS of them, which bounds loops in a message as well as
 * long chains. Each pointer starts a new level: the text of its target is
 * written after what the level before it wrote, with the room that is
 * left, and the messages about it print that level's own text, position
 * and room. A name that fails logs one error line per pointer followed on
 * the way to the failure, after the line that says what failed.
 */
static inline const u8 *_vy_parse_dns_domain(const u8 *dns,
					      const u8 *domain_p,
					      const u8 *end, char *out,
					      u16 *out_len, s16 room,
					      dns_name_trace *trace)
{
	const u8 *p = domain_p;
	const u8 *next = nullptr;
	/* The current level: where its text starts and the room it has. */
	char *lvl_out = out;
	s16 lvl_room = room;
	u16 pos = 0;
	/* The length a truncation recorded for the current level, 0 for none;
	 * that of the first level is the caller's. */
	u16 lvl_len = 0;
	/* The length of the whole name, summed over the levels closed so far,
	 * and whether a truncation has fixed it. */
	u32 total = 0;
	bool total_fixed = false;
	u32 hops = 0;

	trace->cut = false;

	if (!dns || !domain_p || !end || !out || !out_len || room < 1) {
		vy_warn_ratelimited("invalid parameters. (dns = %p, domain_p = %p)\n",
				    dns, domain_p);
		return nullptr;
	}

	vy_memset(out, 0, room);
	*out_len = 0;

	/* The name's first byte is the only one not vouched for by the
	 * previous label's bound or the pointer's target check. */
	if (!vy_dns_fits(p, 0, end)) {
		vy_info("DNS packets might be corrupt or fragmented: %p + %u > %p\n",
			p, 0u, end);
		return nullptr;
	}

	for (;;) {
		u8 b = *p;

		if (b == 0) {
			if (!next)
				next = p + 1;
			break;
		}

		if ((b & VY_DNS_PTR_MASK) == VY_DNS_PTR_MASK) {
			u32 offset;

			if (pos != 0) {
				if (pos + 1 < lvl_room) {
					lvl_out[pos] = '.';
					pos++;
				} else {
					vy_info("domain length > the max size %d (partial domain = %s, %u + 1 >= %d)\n",
						VY_DNS_NAME_SIZE, lvl_out,
						(unsigned int)pos, lvl_room);
					trace->cut = true;
				}
			}

			if (!vy_dns_fits(p, 1, end)) {
				vy_info("DNS packets might be corrupt or fragmented: %p + %u > %p\n",
					p, 1u, end);
				goto fail;
			}
			offset = ((u32)(b & 0x3F) << 8) | p[1];

			/* One pointer too many fails like a target out of
			 * reach: either way the name cannot be completed. */
			if (hops >= VY_DNS_MAX_POINTERS ||
			    !vy_dns_fits(dns, offset, end)) {
				vy_info("DNS packets might be corrupt or fragmented: %p + %u > %p\n",
					dns, offset, end);
				goto fail;
			}

			/* The name ends in the message after its first
			 * pointer, wherever the pointers lead. */
			if (!next)
				next = p + 2;
			if (!total_fixed) {
				total_fixed = lvl_len != 0;
				total += total_fixed ? lvl_len : pos;
			}
			lvl_out += pos;
			lvl_room = (s16)(lvl_room - pos);
			pos = 0;
			lvl_len = 0;
			hops++;
			p = dns + offset;
			continue;
		}

		/* Any other value is a label length, 64 to 191 included. The
		 * following length byte must be inside too. */
		if (!vy_dns_fits(p, 1u + b, end)) {
			vy_info("DNS packets might be corrupt or fragmented: %p + %u > %p\n",
				p, (unsigned int)b, end);
			goto fail;
		}

		if (pos + b + 1 >= lvl_room) {
			vy_info("domain length > the max size %d (partial domain = %s, %u + %u + 1 >= %d)\n",
				VY_DNS_NAME_SIZE, lvl_out, (unsigned int)pos,
				(unsigned int)b, lvl_room);
			trace->cut = true;
			/* The reported length is the one before the first
			 * label that did not fit; nothing after it fits. */
			if (lvl_len == 0)
				lvl_len = pos;
			pos = (u16)(lvl_room - 1);
		} else {
			if (pos != 0) {
				lvl_out[pos] = '.';
				pos++;
			}
			vy_memcpy(lvl_out + pos, p + 1, b);
			pos += b;
		}
		p += 1 + b;
	}

	if (!total_fixed)
		total += lvl_len != 0 ? lvl_len : pos;
	*out_len = (u16)total;
	trace->hops = hops;
	return next;

fail:
	/*
	 * No caller reads the length of a name that failed. One line for
	 * each pointer that led here, as each level that followed one gives
	 * up in turn.
	 */
	while (hops-- > 0)
		vy_warn_ratelimited("_vy_parse_dns_domain() error\n");
	return nullptr;
}

const u8 *_vy_parse_dns_domain(const u8 *dns, const u8 *domain_p,
			       const u8 *end, char *out, u16 *out_len,
			       s16 room)
{
	dns_name_trace trace;

	return _vy_parse_dns_domain(dns, domain_p, end, out, out_len, room,
				    &trace);
}

/* The question's length in bytes (name, QTYPE, QCLASS); 0 on failure. A
 * question name is never compressed, so every byte counts as a length. */
static u32 vy_parse_dns_query(const u8 *buff, dns_query *query,
			      const u8 *end)
{
	const u8 *p = buff;
	bool dropped = false;
	bool ptr_like = false;

	if (!buff || !query || !end) {
		vy_warn_ratelimited("invalid parameters. (buff = %p, query = %p)\n",
				    buff, query);
		return 0;
	}

	vy_memset(query, 0, sizeof(*query));

	if (!vy_dns_fits(p, 0, end)) {
		vy_info("DNS packets might be corrupt or fragmented: %p + %d > %p\n",
			p, 0, end);
		return 0;
	}

	while (*p != 0) {
		u8 l = *p;

		if (!vy_dns_fits(p, 1u + l, end)) {
			vy_info("DNS packets might be corrupt or fragmented: %p + %d > %p\n",
				p, (int)l, end);
			return 0;
		}

		/* Leading labels only: once one does not fit in the 127
		 * characters, it and all after it are dropped. */
		ptr_like |= (l & VY_DNS_PTR_MASK) == VY_DNS_PTR_MASK;
		if (dropped || query->name_len + l > VY_DNS_NAME_SIZE - 2) {
			dropped = true;
		} else {
			if (query->name_len != 0)
				query->name[query->name_len++] = '.';
			vy_memcpy(query->name + query->name_len, p + 1, l);
			query->name_len += l;
		}
		p += 1 + l;
	}

	/* QTYPE and QCLASS follow the zero byte. */
	if (!vy_dns_fits(p, 4, end)) {
		vy_info("DNS packets might be corrupt or fragmented: %p + %d > %p\n",
			p, 4, end);
		return 0;
	}
	query->qtype = vy_get_be16(p + 1);
	query->qclass = vy_get_be16(p + 3);
	query->plain = !dropped && !ptr_like;

	return (u32)(p + 5 - buff);
}

/* One resource record of the answer section: its length in bytes (which
 * may reach past the message for a record whose RDATA is not read), or 0
 * on failure. */
static u32 vy_parse_dns_answer(const u8 *sta_mac, const u8 *dns,
			       const u8 *buff, dns_answer *answer,
			       const u8 *end, dns_names *names)
{
	const dns_query *query = names->query;
	dns_name_trace trace;
	dns_alias *spare;
	const u8 *p;

	if (!sta_mac || !dns || !buff || !answer || !end) {
		vy_warn_ratelimited("invalid parameters. (sta_mac = %p, dns = %p, buff = %p, answer = %p)\n",
				    sta_mac, dns, buff, answer);
		return 0;
	}

	/* An owner name that has to be decoded goes where it leaves the last
	 * target alone; a CNAME target then goes where the owner is not. */
	spare = &names->name[names->last ^ 1];
	p = nullptr;
	if (vy_dns_fits(buff, 1, end) && buff[0] >= VY_DNS_PTR_MASK) {
		u32 offset = ((u32)(buff[0] & 0x3F) << 8) | buff[1];

		if (offset == VY_DNS_HDR_LEN && query->plain) {
			answer->name = query->name;
			answer->name_len = query->name_len;
			p = buff + 2;
		} else if (offset == names->last_off && names->last_reusable) {
			answer->name = names->name[names->last].name;
			answer->name_len = names->name[names->last].len;
			p = buff + 2;
		}
	}
	if (!p) {
		p = _vy_parse_dns_domain(dns, buff, end, spare->name,
					 &answer->name_len, VY_DNS_NAME_SIZE,
					 &trace);
		if (!p) {
			vy_warn_ratelimited("_vy_parse_dns_domain() error\n");
			return 0;
		}
		answer->name = spare->name;
		spare = &names->name[names->last];
	}

	if (!vy_dns_fits(p, VY_DNS_RR_FIXED_LEN - 1, end)) {
		vy_info("DNS packets might be corrupt or fragmented: %p + %u > %p\n",
			p, (unsigned int)(VY_DNS_RR_FIXED_LEN - 1), end);
		return 0;
	}
	answer->type = vy_get_be16(p);
	answer->cls = vy_get_be16(p + 2);
	answer->ttl = vy_get_be32(p + 4);
	answer->rdlength = vy_get_be16(p + 8);
	/* At most one past the message's last byte. */
	answer->rdata = p + VY_DNS_RR_FIXED_LEN;

	if (answer->type == VY_DNS_TYPE_A) {
		u32 ip;

		/* The first four bytes, whatever RDLENGTH says. */
		if (!vy_dns_fits(answer->rdata, 3, end)) {
			vy_info("DNS packets might be corrupt or fragmented: %p + %u > %p\n",
				answer->rdata, 3u, end);
			return 0;
		}
		ip = vy_get_ip(answer->rdata);
		vy_info("DNS Answer: %s, %pI4\n", answer->name, &ip);
		vy_add_sta_domain_ip(sta_mac, answer->name, answer->name_len,
				     ip);
	} else if (answer->type == VY_DNS_TYPE_CNAME) {
		dns_alias *alias = spare;
		const u8 *rdata_end;

		/* The target's labels stay inside the RDATA, and inside the
		 * message when RDLENGTH claims more than it holds. An empty
		 * RDATA ends just before it starts, so its name fails. */
		if (answer->rdlength == 0)
			rdata_end = answer->rdata - 1;
		else if (!vy_dns_fits(answer->rdata, answer->rdlength - 1u,
				      end))
			rdata_end = end;
		else
			rdata_end = answer->rdata + answer->rdlength - 1;

		if (!_vy_parse_dns_domain(dns, answer->rdata, rdata_end,
					  alias->name, &alias->len,
					  VY_DNS_NAME_SIZE, &trace)) {
			vy_warn_ratelimited("_vy_parse_dns_domain() error\n");
			return 0;
		}
		vy_info("DNS Answer: %s, cname = %s\n", answer->name,
			alias->name);
		vy_add_sta_domain_cname(sta_mac, answer->name, answer->name_len,
					alias->name, alias->len);
		/* Read up to the message's end instead of the RDATA's, the
		 * same bytes decode the same way. A pointer to it is one hop
		 * more than the target took. */
		names->last = (u8)(alias - names->name);
		names->last_off = (u32)(answer->rdata - dns);
		names->last_reusable = !trace.cut &&
				       trace.hops < VY_DNS_MAX_POINTERS;
	} else {
		vy_dbg("ignore dns type %u\n", (unsigned int)answer->type);
	}

	return (u32)(p - buff) + VY_DNS_RR_FIXED_LEN + answer->rdlength;
}

static void vy_parse_dns_pkt(const u8 *sta_mac, const pkt_info *pkt,
			     const u8 *dns, u32 len, u8 to_wireless)
{
	dns_query query;
	dns_answer answer;
	dns_names names;
	const u8 *end = dns + len - 1;
	u16 flags = vy_get_be16(dns + 2);
	u16 qdcount = vy_get_be16(dns + 4);
	u16 ancount = vy_get_be16(dns + 6);
	bool is_response = (flags & 0x8000) != 0;
	u8 rcode = flags & 0x0F;
	u32 qlen;
	u32 off;

	if (qdcount != 1) {
		vy_dbg("do not support query count(%d) > 1 or = 0\n",
		       (int)qdcount);
		return;
	}

	if (!is_response && to_wireless) {
		vy_dbg("ignore DNS Query to wireless\n");
		return;
	}
	if (is_response && !to_wireless) {
		vy_dbg("ignore DNS Answer not to wireless\n");
		return;
	}

	qlen = vy_parse_dns_query(dns + VY_DNS_HDR_LEN, &query, end);
	if (qlen == 0) {
		vy_warn_ratelimited("dns query parsing failed\n");
		return;
	}

	if (query.qtype != VY_DNS_TYPE_A) {
		vy_dbg("ignore dns type %u (only support query type A: %d)\n",
		       (unsigned int)query.qtype, VY_DNS_TYPE_A);
		return;
	}

	if (!is_response) {
		vy_info("DNS Query: %s\n", query.name);
		vy_add_sta_domain(sta_mac, query.name, query.name_len,
				  vy_get_ip(pkt->saddr));
		return;
	}

	if (rcode != 0) {
		vy_info("DNS Answer: %s fails with RCODE = %u\n", query.name,
			(unsigned int)rcode);
		vy_reject_sta_domain(sta_mac, query.name, query.name_len,
				     rcode);
		return;
	}

	off = VY_DNS_HDR_LEN + qlen;
	names.query = &query;
	names.last = 0;
	names.last_reusable = false;
	names.last_off = 0;
	for (u32 i = 0; i < ancount; i++) {
		/* A record that starts past the message fails on its first
		 * name byte; one past the last byte stands for all such. */
		const u8 *buff = dns + (off < len ? off : len);
		u32 rlen = vy_parse_dns_answer(sta_mac, dns, buff, &answer,
					       end, &names);

		if (rlen == 0) {
			vy_warn_ratelimited("dns answer parsing failed\n");
			return;
		}
		off += rlen;
	}
}

s32 vy_parse_dns(const u8 *sta_mac, const pkt_info *pkt, const u8 *payload,
		 u32 len, u8 to_wireless)
{
	s32 body_len = (s32)len - VY_DNS_HDR_LEN;

	if (body_len <= 0) {
		vy_dbg("invalid dns body length = %d\n", body_len);
		return -1;
	}

	if (!sta_mac || !pkt || !payload) {
		vy_warn_ratelimited("invalid parameters. (sta_mac = %p, pkt = %p, payload = %p)\n",
				    sta_mac, pkt, payload);
		return -1;
	}

	vy_parse_dns_pkt(sta_mac, pkt, payload, len, to_wireless);
	return 0;
}
