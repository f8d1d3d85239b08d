// SPDX-License-Identifier: GPL-2.0
/*
 * Instructions per message over the DNS corpus: veyra's parser with the
 * no-op sink, ldns and c-ares, counted by callgrind. Unlike their times,
 * these counts do not move with the load of a shared machine.
 *
 *   valgrind --tool=callgrind --collect-atstart=no \
 *            --callgrind-out-file=DIR/callgrind.out veyra_icount_dns DIR/icount.json
 *
 * For each parser: one pass that must find what the corpus holds (and that
 * also resolves the parser's symbols and warms its allocator), then
 * kPasses passes with callgrind collecting, dumped under the parser's
 * benchmark name; nothing else runs while it collects. The JSON names each
 * dump with its messages and passes; scripts/bench-report.py divides.
 */
#include <cstdio>
#include <cstring>
#include <string>

#include <ares.h>
#include <valgrind/callgrind.h>

#include "dns_corpus.h"
#include "dns_peers.h"
#include "icount_main.h"
#include "noop_sta.h"
#include "vy_dns.h"

namespace {

constexpr int kPasses = 16;

const u8 kMac[6] = {0x02, 0x5a, 0, 0, 0, 1};

pkt_info response_info()
{
	pkt_info info = {};
	info.protocol = 17;
	const u8 server[4] = {192, 168, 77, 1}, station[4] = {192, 168, 77, 100};
	std::memcpy(info.saddr, server, 4);
	std::memcpy(info.daddr, station, 4);
	return info;
}

dns_peers::Totals veyra_pass(const dns_corpus::Corpus &c)
{
	static const pkt_info info = response_info();

	noop_sta::calls = {};
	for (const dns_corpus::Bytes &m : c.messages)
		vy_parse_dns(kMac, &info, m.data(), (u32)m.size(), 1);
	dns_peers::Totals t;
	t.a = noop_sta::calls.a;
	t.cname = noop_sta::calls.cname;
	t.errors = noop_sta::calls.reject;
	return t;
}

using Pass = dns_peers::Totals (*)(const dns_corpus::Corpus &);

/* Kept out of line so that the collected range is exactly these passes. */
[[gnu::noinline]] void collect(Pass pass, const dns_corpus::Corpus &c,
			       const char *name)
{
	CALLGRIND_ZERO_STATS;
	CALLGRIND_TOGGLE_COLLECT;
	for (int i = 0; i < kPasses; i++) {
		dns_peers::Totals t = pass(c);
		__asm__ volatile("" : : "r"(&t) : "memory");
	}
	CALLGRIND_TOGGLE_COLLECT;
	CALLGRIND_DUMP_STATS_AT(name);
}

} // namespace

int main(int argc, char **argv)
{
	std::FILE *out = icount::open_output(argc, argv);
	if (!out)
		return 2;
	const dns_corpus::Corpus c = dns_corpus::build();
	const struct {
		const char *name;
		Pass pass;
	} parsers[] = {
		{"dns.corpus.veyra_noop_sink", veyra_pass},
		{dns_peers::kLdns, dns_peers::ldns_pass},
		{dns_peers::kCares, dns_peers::cares_pass},
	};

	ares_library_init(ARES_LIB_INIT_ALL);
	std::fprintf(out, "{\"messages\": %zu, \"passes\": %d, \"parsers\": [",
		     c.messages.size(), kPasses);
	int status = 0;
	const char *sep = "";
	for (size_t i = 0; i < sizeof(parsers) / sizeof(parsers[0]); i++) {
		dns_peers::Totals t = parsers[i].pass(c);
		if (t.failed || t.a != c.a_records || t.cname != c.cname_records ||
		    t.errors != c.error_responses) {
			std::fprintf(stderr, "%s did not find what the corpus holds\n",
				     parsers[i].name);
			status = 1;
			continue;
		}
		collect(parsers[i].pass, c, parsers[i].name);
		std::fprintf(out, "%s\"%s\"", sep, parsers[i].name);
		sep = ", ";
	}
	std::fprintf(out, "]}\n");
	std::fclose(out);
	ares_library_cleanup();
	return status;
}
