/* SPDX-License-Identifier: GPL-2.0 */
/*
 * A corpus of DNS responses shaped like what an access point's stations get
 * back from a home or office resolver: answers to A queries with one to
 * eight addresses, CNAME chains of one to three links ending in addresses,
 * and error answers (NXDOMAIN, SERVFAIL, REFUSED) with the SOA record a
 * resolver puts in the authority section. Names are compressed the way
 * servers compress them: every name that ends in a suffix already written
 * ends in a pointer to it. About half the responses carry an EDNS OPT
 * record, as answers to EDNS queries do.
 *
 * The corpus is the same on every run (no randomness), so every parser
 * compared sees the same bytes.
 */
#ifndef VY_BENCH_DNS_CORPUS_H
#define VY_BENCH_DNS_CORPUS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace dns_corpus {

using Bytes = std::vector<std::uint8_t>;

struct Corpus {
	std::vector<Bytes> messages;
	/* What a parser that reports every answer record should report. */
	long a_records = 0;
	long cname_records = 0;
	long error_responses = 0;
	/* Distinct names queried or answered (domain entries they make). */
	long names = 0;
};

/* One response under construction, with a name-compression dictionary. */
class Response {
public:
	Response(std::uint16_t id, const std::string &qname, std::uint8_t rcode)
	{
		put16(id);
		put16((std::uint16_t)(0x8180 | rcode)); /* QR, RD, RA */
		put16(1);
		put16(0);
		put16(0);
		put16(0);
		name(qname);
		put16(1); /* A */
		put16(1); /* IN */
	}

	void a(const std::string &owner, std::uint32_t ttl, std::uint32_t ip)
	{
		rr_head(owner, 1, ttl);
		put16(4);
		for (int s = 24; s >= 0; s -= 8)
			b_.push_back((std::uint8_t)(ip >> s));
		count(6);
	}

	void cname(const std::string &owner, std::uint32_t ttl,
		   const std::string &target)
	{
		rr_head(owner, 5, ttl);
		std::size_t len_at = b_.size();
		put16(0);
		std::size_t start = b_.size();
		name(target);
		set16(len_at, (std::uint16_t)(b_.size() - start));
		count(6);
	}

	void soa(const std::string &zone, std::uint32_t serial)
	{
		rr_head(zone, 6, 900);
		std::size_t len_at = b_.size();
		put16(0);
		std::size_t start = b_.size();
		name("ns1." + zone);
		name("hostmaster." + zone);
		for (std::uint32_t v : {serial, 7200u, 900u, 1209600u, 300u}) {
			put16((std::uint16_t)(v >> 16));
			put16((std::uint16_t)v);
		}
		set16(len_at, (std::uint16_t)(b_.size() - start));
		count(8);
	}

	void edns(std::uint16_t udp_size)
	{
		b_.push_back(0); /* root */
		put16(41);
		put16(udp_size);
		put16(0);
		put16(0);
		put16(0);
		count(10);
	}

	Bytes bytes() const { return b_; }

private:
	void put16(std::uint16_t v)
	{
		b_.push_back((std::uint8_t)(v >> 8));
		b_.push_back((std::uint8_t)v);
	}
	void set16(std::size_t at, std::uint16_t v)
	{
		b_[at] = (std::uint8_t)(v >> 8);
		b_[at + 1] = (std::uint8_t)v;
	}
	void count(std::size_t at)
	{
		set16(at, (std::uint16_t)(((b_[at] << 8) | b_[at + 1]) + 1));
	}
	void rr_head(const std::string &owner, std::uint16_t type,
		     std::uint32_t ttl)
	{
		name(owner);
		put16(type);
		put16(1);
		put16((std::uint16_t)(ttl >> 16));
		put16((std::uint16_t)ttl);
	}
	/* Labels until a suffix already in the message, then a pointer. */
	void name(const std::string &dotted)
	{
		std::string rest = dotted;
		while (!rest.empty()) {
			auto known = offsets_.find(rest);
			if (known != offsets_.end()) {
				put16((std::uint16_t)(0xC000 | known->second));
				return;
			}
			if (b_.size() < 0x3FFF)
				offsets_[rest] = (std::uint16_t)b_.size();
			std::size_t dot = rest.find('.');
			std::string label = rest.substr(0, dot);
			b_.push_back((std::uint8_t)label.size());
			b_.insert(b_.end(), label.begin(), label.end());
			rest = dot == std::string::npos ? "" : rest.substr(dot + 1);
		}
		b_.push_back(0);
	}

	Bytes b_;
	std::map<std::string, std::uint16_t> offsets_;
};

inline Corpus build()
{
	Corpus c;
	std::uint16_t id = 0x2a00;
	std::uint32_t ip = 0x5db8d800; /* 93.184.216.0 */
	std::map<std::string, int> seen;
	auto note = [&](const std::string &n) { seen[n]++; };

	/* Plain answers, 1 to 8 addresses. */
	const struct {
		const char *name;
		int addrs;
	} plain[] = {
		{"www.example.com", 1},
		{"api.weather.example.net", 2},
		{"connectivity-check.example.org", 1},
		{"time.example.com", 4},
		{"imap.mail.example.org", 1},
		{"static.cdn-provider.example", 8},
		{"updates.vendor.example.com", 3},
		{"push.notify.example.net", 2},
		{"0.pool.ntp.example.org", 4},
		{"graph.social.example.com", 6},
		{"chat.messaging.example", 1},
		{"photos.cloud.example.net", 5},
		{"login.accounts.example.com", 2},
		{"tracker.analytics.example", 7},
		{"printer.lan", 1},
		{"fonts.static.example.com", 3},
	};
	int k = 0;
	for (const auto &p : plain) {
		Response r(id++, p.name, 0);
		for (int i = 0; i < p.addrs; i++)
			r.a(p.name, 60u + 30u * (unsigned)i, ip++);
		if (k++ % 2)
			r.edns(1232);
		c.messages.push_back(r.bytes());
		c.a_records += p.addrs;
		note(p.name);
	}

	/* CNAME chains of 1 to 3 links, then 1 to 4 addresses. */
	const struct {
		std::vector<std::string> chain; /* queried name first */
		int addrs;
	} chains[] = {
		{{"www.shop.example", "shop.example.edgekey.example.net"}, 2},
		{{"www.news.example.com", "news.example.com.cdn.example.net",
		  "e1234.a.edge.example.net"}, 2},
		{{"video.stream.example", "stream.example.map.cdn.example",
		  "edge-eu.cdn.example", "edge-eu-7.pop.cdn.example"}, 4},
		{{"docs.office.example.com", "office.example.com.trafficmanager.example.net"}, 1},
		{{"app.bank.example", "bank.example.waf.example.net",
		  "lb-3.waf.example.net"}, 1},
		{{"cdn.game.example.org", "game.example.org.edge.example",
		  "fra.edge.example", "fra-12.edge.example"}, 3},
		{{"m.maps.example.com", "maps.l.example.com"}, 1},
		{{"clients.sync.example.net", "sync.example.net.elb.example.com",
		  "sync-elb-1.eu-west-1.elb.example.com"}, 3},
		{{"assets.store.example", "store.example.global.ssl.example.net"}, 4},
		{{"ads.partner.example.com", "partner.ads.example.net",
		  "ads-geo.example.net", "ads-geo-fra.example.net"}, 2},
		{{"mail.provider.example", "mail.provider.example.gslb.example"}, 1},
		{{"s3.bucket.example.com", "bucket.example.com.s3.example",
		  "s3-r-w.eu-central-1.example"}, 2},
	};
	k = 0;
	for (const auto &ch : chains) {
		Response r(id++, ch.chain[0], 0);
		for (std::size_t i = 0; i + 1 < ch.chain.size(); i++) {
			r.cname(ch.chain[i], 300, ch.chain[i + 1]);
			c.cname_records++;
		}
		for (int i = 0; i < ch.addrs; i++)
			r.a(ch.chain.back(), 20, ip++);
		c.a_records += ch.addrs;
		if (k++ % 2 == 0)
			r.edns(1232);
		c.messages.push_back(r.bytes());
		for (const auto &n : ch.chain)
			note(n);
	}

	/* Error answers with the zone's SOA in the authority section. */
	const struct {
		const char *name;
		const char *zone;
		std::uint8_t rcode;
	} errors[] = {
		{"nosuch.example.com", "example.com", 3},
		{"wpad.home.lan", "lan", 3},
		{"telemetry.blocked.example", "blocked.example", 5},
		{"old-service.example.net", "example.net", 3},
		{"broken.zone.example", "zone.example", 2},
		{"typo.exmaple.com", "exmaple.com", 3},
	};
	k = 0;
	for (const auto &e : errors) {
		Response r(id++, e.name, e.rcode);
		if (e.rcode == 3)
			r.soa(e.zone, 2024010100u + (unsigned)k);
		if (k++ % 2)
			r.edns(1232);
		c.messages.push_back(r.bytes());
		c.error_responses++;
		note(e.name);
	}

	c.names = (long)seen.size();
	return c;
}

} // namespace dns_corpus

#endif
