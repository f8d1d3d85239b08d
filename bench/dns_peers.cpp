// SPDX-License-Identifier: GPL-2.0
/*
 * The DNS response corpus through two established parsers, for the
 * comparisons with veyra's parser in the same run:
 *  - ldns: ldns_wire2pkt, then a walk of the answer section reading each
 *    record's owner, type and first RDATA field (the address of an A
 *    record, the target of a CNAME);
 *  - c-ares: ares_parse_a_reply into a hostent (the name, its aliases,
 *    which are the CNAME chain, and the addresses).
 * Each first checks that it finds what the corpus holds, so that a parser
 * that gave up early cannot look fast.
 */
#include <cstring>

#include <benchmark/benchmark.h>

/* After the C++ headers: ldns's common.h may define bool as a macro, which
 * the C++ headers would then read (clang). */
#include <netdb.h>

#include <ares.h>
#include <ldns/ldns.h>

#include "dns_corpus.h"
#include "dns_peers.h"

namespace dns_peers {

namespace {

const dns_corpus::Corpus &corpus()
{
	static const dns_corpus::Corpus c = dns_corpus::build();
	return c;
}

} // namespace

Totals ldns_pass(const dns_corpus::Corpus &c)
{
	Totals t;
	for (const dns_corpus::Bytes &m : c.messages) {
		ldns_pkt *pkt = nullptr;
		if (ldns_wire2pkt(&pkt, m.data(), m.size()) != LDNS_STATUS_OK) {
			t.failed++;
			continue;
		}
		if (ldns_pkt_get_rcode(pkt) != LDNS_RCODE_NOERROR) {
			t.errors++;
			ldns_pkt_free(pkt);
			continue;
		}
		ldns_rr_list *answers = ldns_pkt_answer(pkt);
		for (size_t i = 0; i < ldns_rr_list_rr_count(answers); i++) {
			ldns_rr *rr = ldns_rr_list_rr(answers, i);
			t.bytes += ldns_rdf_size(ldns_rr_owner(rr));
			ldns_rdf *rd = ldns_rr_rdf(rr, 0);
			switch (ldns_rr_get_type(rr)) {
			case LDNS_RR_TYPE_A:
				if (rd && ldns_rdf_size(rd) == 4) {
					std::uint32_t ip;
					std::memcpy(&ip, ldns_rdf_data(rd), 4);
					t.sum += ip;
					t.a++;
				}
				break;
			case LDNS_RR_TYPE_CNAME:
				if (rd) {
					t.bytes += ldns_rdf_size(rd);
					t.cname++;
				}
				break;
			default:
				break;
			}
		}
		ldns_pkt_free(pkt);
	}
	return t;
}

Totals cares_pass(const dns_corpus::Corpus &c)
{
	Totals t;
	for (const dns_corpus::Bytes &m : c.messages) {
		struct hostent *h = nullptr;
		int st = ares_parse_a_reply(m.data(), (int)m.size(), &h, nullptr,
					    nullptr);
		if (st != ARES_SUCCESS || !h) {
			/* Error answers have no address: ENODATA or ENOTFOUND. */
			if (st == ARES_ENODATA || st == ARES_ENOTFOUND)
				t.errors++;
			else
				t.failed++;
			if (h)
				ares_free_hostent(h);
			continue;
		}
		t.bytes += std::strlen(h->h_name);
		for (char **a = h->h_aliases; a && *a; a++) {
			t.bytes += std::strlen(*a);
			t.cname++;
		}
		for (char **a = h->h_addr_list; a && *a; a++) {
			std::uint32_t ip;
			std::memcpy(&ip, *a, 4);
			t.sum += ip;
			t.a++;
		}
		ares_free_hostent(h);
	}
	return t;
}

namespace {

template <Totals (*Pass)(const dns_corpus::Corpus &)>
void run(benchmark::State &state)
{
	const dns_corpus::Corpus &c = corpus();
	Totals t = Pass(c);
	if (t.failed || t.a != c.a_records || t.cname != c.cname_records ||
	    t.errors != c.error_responses) {
		state.SkipWithError("the parser did not find what the corpus holds");
		return;
	}
	for (auto _ : state) {
		Totals r = Pass(c);
		benchmark::DoNotOptimize(r);
	}
	state.SetItemsProcessed(state.iterations() * (long)c.messages.size());
	state.counters["per_message"] = benchmark::Counter(
		(double)c.messages.size(),
		benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void ldns_corpus(benchmark::State &state)
{
	run<ldns_pass>(state);
}

void cares_corpus(benchmark::State &state)
{
	ares_library_init(ARES_LIB_INIT_ALL);
	run<cares_pass>(state);
	ares_library_cleanup();
}

BENCHMARK(ldns_corpus)->Name(kLdns);
BENCHMARK(cares_corpus)->Name(kCares);

} // namespace

} // namespace dns_peers
