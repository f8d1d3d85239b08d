/* SPDX-License-Identifier: GPL-2.0 */
/* The established DNS parsers veyra's parser is compared with. */
#ifndef VY_BENCH_DNS_PEERS_H
#define VY_BENCH_DNS_PEERS_H

#include <cstdint>

#include "dns_corpus.h"

namespace dns_peers {

/* Benchmark names of the two parsers over the corpus. */
constexpr const char *kLdns = "dns.corpus.ldns";
constexpr const char *kCares = "dns.corpus.c-ares";

/* What one pass over the corpus found. */
struct Totals {
	long a = 0;       /* addresses */
	long cname = 0;   /* CNAME records, or aliases */
	long errors = 0;  /* error answers */
	long failed = 0;  /* messages the parser refused */
	std::uint64_t sum = 0, bytes = 0; /* what was read, kept live */
};

Totals ldns_pass(const dns_corpus::Corpus &c);
Totals cares_pass(const dns_corpus::Corpus &c);

} // namespace dns_peers

#endif
