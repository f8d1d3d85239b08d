// SPDX-License-Identifier: GPL-2.0
/*
 * Instructions per frame for the frames the module ignores: the bridge
 * hook against its floor (ignored_frames.h), counted by callgrind. The
 * timed comparison of the same frames moves by tenths from run to run on a
 * shared machine; these counts do not.
 *
 *   valgrind --tool=callgrind --collect-atstart=no \
 *            --toggle-collect=vy_br_pre_routing_hook \
 *            --toggle-collect=vy_bench_ignore_floor \
 *            --callgrind-out-file=DIR/callgrind.out veyra_icount_ignore DIR/icount.json
 *
 * Callgrind collects only inside the two functions (and what they call),
 * so the loop that feeds them is not counted on either side. For each kind
 * of frame: one pass of the batch through each side that must ignore every
 * frame (and that also resolves the symbols and warms the caches), then
 * kPasses passes of the hook and kPasses of the floor, each dumped under
 * the timed benchmark's name. scripts/bench-report.py divides.
 */
#include <cstdio>
#include <string>
#include <vector>

#include <valgrind/callgrind.h>

#include "bench_util.h"
#include "icount_main.h"
#include "ignored_frames.h"

namespace {

constexpr int kPasses = 16;

using Side = unsigned (*)(std::vector<vy_skb> &, const vy_hook_state &);

unsigned hook_pass(std::vector<vy_skb> &batch, const vy_hook_state &hs)
{
	unsigned read = 0;
	for (vy_skb &skb : batch)
		read += vy_br_pre_routing_hook(nullptr, &skb, &hs) != VY_NF_ACCEPT;
	return read;
}

unsigned floor_pass(std::vector<vy_skb> &batch, const vy_hook_state &hs)
{
	unsigned read = 0;
	for (vy_skb &skb : batch)
		read += ignored::vy_bench_ignore_floor(&skb, &hs, true);
	return read;
}

/* Kept out of line so that the dump holds exactly these passes. */
[[gnu::noinline]] void collect(Side side, std::vector<vy_skb> &batch,
			       const vy_hook_state &hs, const char *name)
{
	CALLGRIND_ZERO_STATS;
	for (int i = 0; i < kPasses; i++) {
		unsigned r = side(batch, hs);
		__asm__ volatile("" : : "r"(r) : "memory");
	}
	CALLGRIND_DUMP_STATS_AT(name);
}

} // namespace

int main(int argc, char **argv)
{
	std::FILE *out = icount::open_output(argc, argv);
	if (!out)
		return 2;
	std::fprintf(out, "{\"frames\": %d, \"passes\": %d, \"benchmarks\": [",
		     ignored::kBatch, kPasses);
	int status = 0;
	const char *sep = "";
	for (const auto &k : ignored::kKinds) {
		bench_util::Module m;
		bench_util::Mac sta = bench_util::sta_mac(1);
		vy_host::umac_event(0, sta.data(), "wlan0");
		vy_host::settle();
		std::vector<vy_skb> batch = ignored::frames_of(k.kind);
		vy_hook_state hs;
		hs.in = ignored::in_port(m, k.kind);

		const struct {
			const char *side;
			Side pass;
		} sides[] = {{"hook", hook_pass}, {"floor", floor_pass}};
		for (const auto &s : sides) {
			std::string name = std::string("ignore.") + k.name + "." + s.side;
			long a0 = vy_host::total_allocations();
			long l0 = vy_host::lock_acquisitions();
			if (s.pass(batch, hs) || vy_host::total_allocations() != a0 ||
			    vy_host::lock_acquisitions() != l0) {
				std::fprintf(stderr, "%s: a frame was not simply ignored\n",
					     name.c_str());
				status = 1;
				continue;
			}
			collect(s.pass, batch, hs, name.c_str());
			std::fprintf(out, "%s\"%s\"", sep, name.c_str());
			sep = ", ";
		}
	}
	std::fprintf(out, "]}\n");
	std::fclose(out);
	return status;
}
