#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Write BENCHMARKS.md from the benchmarks' own output.

  bench-report.py --results DIR [--vm DIR] [--output FILE]

DIR holds what `make bench` wrote: <binary>.json (Google Benchmark's JSON)
and <binary>.ratios.json (the comparisons the binary printed), icount/
(its callgrind run of veyra_icount_dns: icount.json and one callgrind dump
per parser) and icount_ignore/ (the same for veyra_icount_ignore: one dump
per ignored-frame benchmark); and what `make bench-profile` wrote:
profile-<scenario>.txt (callgrind_annotate).
The VM folder holds bench-throughput.tsv and bench-throughput.meta from the
guest scenario of `make bench-vm`. Every figure in the output comes from
these files; the text around them says what each figure is and, for a goal
not met, why and what would meet it.
"""

import argparse
import glob
import json
import math
import os
import re
import statistics
import sys

BINARIES = ("veyra_bench", "veyra_bench_parsers")
UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


class Run:
    """One binary's run: figures per benchmark and its comparisons."""

    def __init__(self, path, ratios_path):
        with open(path) as f:
            data = json.load(f)
        self.context = data.get("context", {})
        self.bench = {}
        for b in data.get("benchmarks", []):
            if b.get("error_occurred"):
                continue
            # Options of a single benchmark (iterations:1) are not part of its name.
            name = re.sub(r"/(iterations|repeats|min_time|min_warmup_time):[^/]*",
                          "", b.get("run_name", b["name"]))
            median = b.get("run_type") == "aggregate" and b.get("aggregate_name") == "median"
            if b.get("run_type") == "aggregate" and not median:
                continue
            if name in self.bench and self.bench[name]["_median"] and not median:
                continue
            b = dict(b)
            b["_median"] = median
            b["_ns"] = b["cpu_time"] * UNIT_NS[b.get("time_unit", "ns")]
            self.bench[name] = b
        self.ratios = {}
        self.build = "unknown"
        if os.path.exists(ratios_path):
            with open(ratios_path) as f:
                r = json.load(f)
            self.build = r.get("build", "unknown")
            for x in r.get("ratios", []):
                self.ratios[x["id"]] = x

    def ns(self, name):
        b = self.bench.get(name)
        return b["_ns"] if b else None

    def counter(self, name, key):
        b = self.bench.get(name)
        return b.get(key) if b else None


class Icount:
    """Instructions per item from callgrind's dumps: per message over the DNS
    corpus (icount/), or per frame for the frames the module ignores
    (icount_ignore/). icount.json gives the items of one pass, the passes
    and the names of the dumps."""

    def __init__(self, folder, items_key, names_key):
        with open(os.path.join(folder, "icount.json")) as f:
            meta = json.load(f)
        self.items = meta[items_key]
        self.passes = meta["passes"]
        self.per_item = {}
        for path in glob.glob(os.path.join(folder, "callgrind.out.*")):
            name = total = None
            with open(path) as f:
                for line in f:
                    m = re.match(r"desc: Trigger: Client Request: (\S+)", line)
                    if m:
                        name = m.group(1)
                    m = re.match(r"totals: (\d+)", line)
                    if m:
                        total = int(m.group(1))
            if name in meta[names_key] and total:
                self.per_item[name] = total / (self.items * self.passes)

    def ratio(self, num, den):
        a, b = self.per_item.get(num), self.per_item.get(den)
        return a / b if a and b else None


def load_icount(results, sub="icount", items_key="messages", names_key="parsers"):
    folder = os.path.join(results, sub)
    if not os.path.exists(os.path.join(folder, "icount.json")):
        return None
    ic = Icount(folder, items_key, names_key)
    return ic if ic.per_item else None


def load_icount_ignore(results):
    return load_icount(results, "icount_ignore", "frames", "benchmarks")


# The instruction-count comparisons: id, title, numerator, goal (at least).
ICOUNT_VEYRA = "dns.corpus.veyra_noop_sink"
ICOUNT_RATIOS = [
    ("icount_noop_vs_ldns", "ldns / veyra (no-op sink), DNS corpus, instructions",
     "dns.corpus.ldns", 10.0),
    ("icount_noop_vs_cares", "c-ares / veyra (no-op sink), DNS corpus, instructions",
     "dns.corpus.c-ares", 3.0),
]


def icount_rows(ic):
    """[id, title, ratio or None, goal] of each instruction-count comparison."""
    if not ic:
        return []
    return [[rid, title, ic.ratio(num, ICOUNT_VEYRA), goal]
            for rid, title, num, goal in ICOUNT_RATIOS]


def load_runs(results):
    runs = {}
    for b in BINARIES:
        p = os.path.join(results, b + ".json")
        if os.path.exists(p):
            runs[b] = Run(p, os.path.join(results, b + ".ratios.json"))
    return runs


# ---- formatting -----------------------------------------------------------


def fmt_ns(v):
    if v is None:
        return "-"
    if v >= 1e6:
        return "%.2f ms" % (v / 1e6)
    if v >= 1e4:
        return "%.1f µs" % (v / 1e3)
    if v >= 1e3:
        return "%.2f µs" % (v / 1e3)
    return "%.1f ns" % v


def fmt_s_as_ns(v):
    """A per-item counter (seconds per item) in readable units."""
    return "-" if v is None else fmt_ns(v * 1e9)


def fmt_ratio(r):
    return "-" if r is None else "%.2fx" % r


def fmt_bytes(v):
    if v is None:
        return "-"
    if v >= 1 << 20:
        return "%.1f MiB" % (v / (1 << 20))
    if v >= 1 << 10:
        return "%.1f KiB" % (v / (1 << 10))
    return "%d B" % v


def table(head, rows):
    out = ["| " + " | ".join(head) + " |", "|" + "|".join("---" for _ in head) + "|"]
    for r in rows:
        out.append("| " + " | ".join(str(c) for c in r) + " |")
    return "\n".join(out)


def goal_text(r):
    if r["goal_kind"] == "none":
        return ""
    return ("≤ %.2fx" if r["goal_kind"] == "at_most" else "≥ %.2fx") % r["goal"]


def verdict(r):
    if not r or not r.get("measured"):
        return "not measured"
    if r["goal_kind"] == "none":
        return ""
    return "met" if r["met"] else "**not met**"


def ratio_value(run, rid):
    r = run.ratios.get(rid) if run else None
    return r["ratio"] if r and r.get("measured") else None


# ---- sections -------------------------------------------------------------


def machine(runs):
    run = runs.get("veyra_bench") or next(iter(runs.values()))
    c = run.context
    caches = ", ".join(
        "L%d %s %s" % (x["level"], x["type"].lower(), fmt_bytes(x["size"]))
        for x in c.get("caches", []))
    load = c.get("load_avg") or []
    lines = [
        "- Date: %s" % c.get("date", "unknown"),
        "- Machine: %s, %s CPUs (nproc) at %s MHz; caches: %s" % (
            c.get("cpu_model", "unknown"), c.get("nproc", c.get("num_cpus", "?")),
            int(c.get("mhz_per_cpu", 0)), caches or "unknown"),
        "- Load average when the run started: %s" % (
            ", ".join("%.2f" % x for x in load) if load else "unknown"),
        "- Build: %s (the Google Benchmark library reports a %s build; the timed "
        "loops are compiled in the benchmarks' own code)" % (
            run.build, c.get("library_build_type", "unknown")),
    ]
    reps = max((b.get("repetitions", 1) for r in runs.values() for b in r.bench.values()), default=1)
    lines.append("- Each figure: CPU time per iteration, the median of %d repetitions "
                 "in random order" % reps if reps > 1 else
                 "- Each figure: CPU time per iteration, one repetition")
    if "sanitizers" in run.build and "no sanitizers" not in run.build or "debug" in run.build:
        lines.append("- **These figures come from a debug or sanitizer build and only show "
                     "that the benchmarks run; `make bench` measures an optimised build.**")
    return "\n".join(lines)


NOT_MET = {
    "ignore": (
        "By instructions the hook does more than the floor on the way to its decision "
        "for these frames, whatever the machine's load: `make bench-profile` (section "
        "6) shows where, in `vy_br_pre_routing_hook` and what it calls. Whatever "
        "classification work the hook does before it leaves an ignored frame is "
        "paid by every bridged frame, so it belongs after the cheap tests that "
        "leave most frames."),
    "ignore_time": (
        "By time only: by instructions the hook is within the goal for the same "
        "frames in the same run. Both sides take a few nanoseconds per frame, so their "
        "time ratio moves with the machine and what else runs on it (on a shared "
        "2-core host, by more than the goal's margin between two runs of the same "
        "code); the instruction counts do not move with the load."),
    "dns_noop_vs": (
        "Section 6 shows where veyra's parser spends its instructions (reading the "
        "question and the records, with the name decoder, mostly inlined there). The "
        "times of all three parsers move from run to run on a shared host (the peers', "
        "which allocate and free for every record, by up to 2x between machines of "
        "the same kind), so a time ratio missed narrowly while the instruction ratio "
        "is met says more about the machine than about the parser."),
    "periodic_flat": (
        "The update visits each station and each of its entries once "
        "(`vy_timeout_domain`), so its cost over the bare walk of the same entries "
        "should not grow with the table. A rise means work per entry that grows with "
        "the table (section 6 profiles the update at 1024 stations), or, on a loaded "
        "machine, cache interference that this run's repetitions did not average out: "
        "`make bench` again on a quiet machine tells the two apart."),
}


def flat_note(run):
    """Why the update's cost over its bare walk moved, from this run's figures."""
    sizes = (256, 1024, 4096)
    flat = {n: run.ratios.get("periodic_flat_%d" % n) for n in sizes}
    missed = [n for n in sizes if flat[n] and flat[n].get("measured") and not flat[n]["met"]]
    largest = max((n for n in sizes if flat[n] and flat[n].get("measured")), default=None)
    chunk = run.counter("memory.records", "domain_heap_chunk") or 0
    if largest and largest not in missed and chunk:
        return ("The ratio rises at %s stations only (%s of domain entries), and is back "
                "at the 64-station level at %d stations: work that grew with the table "
                "would keep rising with it. What moves at that size is the cache "
                "hierarchy, where the table has just outgrown the L2 cache and the "
                "update and the bare walk miss it differently. %s" % (
                    " and ".join(str(n) for n in missed),
                    " and ".join(fmt_bytes(n * 32 * chunk) for n in missed), largest,
                    NOT_MET["periodic_flat"]))
    return NOT_MET["periodic_flat"]


def growth_note(run):
    """Why the cost per station-name moves with the table's size."""
    chunk = run.counter("memory.records", "domain_heap_chunk") or 0
    l2 = [c["size"] for c in run.context.get("caches", []) if c.get("level") == 2]
    l3 = [c["size"] for c in run.context.get("caches", []) if c.get("level") == 3]
    if not chunk or not l2:
        return ""
    sizes = [n * 32 * chunk for n in (64, 1024, 4096)]
    return ("The time per station-name grows with the table as the walk leaves the "
            "caches: the domain entries of 64, 1024 and 4096 stations take %s, %s and "
            "%s, against an L2 cache of %s per core and an L3 of %s shared with "
            "everything else the machine runs. The bare walk of the same entries grows the same way, so "
            "the update's cost over its bare walk is the measure of its own work, and "
            "the flatness goal is stated on it. On the access point the update runs "
            "every 5 s on a table the packet path has pushed out of the caches, so the "
            "figures of the large tables are the realistic ones." % (
                fmt_bytes(sizes[0]), fmt_bytes(sizes[1]), fmt_bytes(sizes[2]),
                fmt_bytes(l2[0]), fmt_bytes(l3[0]) if l3 else "unknown size"))


IGNORE_KINDS = [
    ("wired_to_wired", "DNS query between two wired ports", "wired-to-wired frame"),
    ("non_ipv4", "IPv6 frame from a station", "non-IPv4 frame"),
    ("non_udp", "TCP frame from a station", "non-UDP frame"),
    ("udp_other_port", "UDP to port 443 from a station", "UDP on another port"),
]
IGNORE_GOAL = 1.5


def icount_ignore_rows(ic):
    """[title, ratio or None, goal] of each ignored-frame instruction comparison."""
    if not ic:
        return []
    return [["hook / floor, %s, instructions" % short,
             ic.ratio("ignore.%s.hook" % k, "ignore.%s.floor" % k), IGNORE_GOAL]
            for k, _, short in IGNORE_KINDS]


def at_most_verdict(ratio, goal):
    if ratio is None:
        return "not measured"
    return "met" if ratio <= goal else "**not met**"


def section_ignore(run, ic):
    c = run.context
    load = c.get("load_avg") or []
    out = ["## 1. Frames it ignores", "",
           "Every bridged frame passes the hooks while any station is followed. Each "
           "benchmark passes a batch of 64 frames of one kind (varied addresses and "
           "ports) through `vy_br_pre_routing_hook`, called directly as the bridge "
           "calls it; the floor is a function that takes the same decision with only "
           "the header reads it needs (Ethernet type, the port's wireless test, IP "
           "protocol, UDP ports) and the bounds checks that make them safe, through the "
           "same platform calls (`bench/ignored_frames.h`). The goal is the hook within "
           "1.5x of the floor. "
           "Allocations and lock acquisitions per frame are counted by the host "
           "platform during the timed loop (`tests/unit/test_classify.cpp` asserts "
           "that ignored frames take none).",
           "",
           "Each kind is measured twice in the same `make bench` (run %s, load average "
           "%s when it started): by CPU time, and by instructions per frame counted by "
           "callgrind (`bench/icount_ignore.cpp`), which collects only inside the hook "
           "and inside the floor, so the loop that feeds them is counted on neither "
           "side; after one pass that must leave every frame alone, it counts %s "
           "passes of the batch through each and divides by the frames. The counts do "
           "not move with the machine's load or with what shares its caches; the "
           "times do, by tenths of the ratio from run to run on a shared host." % (
               c.get("date", "unknown"),
               ", ".join("%.2f" % x for x in load) if load else "unknown",
               ic.passes if ic else "16"),
           ""]
    rows = []
    missed_time = missed_ic = False
    for k, title, _ in IGNORE_KINDS:
        h = "ignore.%s.hook" % k
        f = "ignore.%s.floor" % k
        r = run.ratios.get("ignore.%s" % k)
        if r and r.get("measured") and not r["met"]:
            missed_time = True
        ic_ratio = ic.ratio(h, f) if ic else None
        ic_verdict = at_most_verdict(ic_ratio, IGNORE_GOAL)
        if ic_ratio is not None and ic_ratio > IGNORE_GOAL:
            missed_ic = True
        hook_ic = ic.per_item.get(h) if ic else None
        floor_ic = ic.per_item.get(f) if ic else None
        rows.append([title, fmt_s_as_ns(run.counter(h, "per_frame")),
                     fmt_s_as_ns(run.counter(f, "per_frame")),
                     fmt_ratio(ratio_value(run, "ignore.%s" % k)), verdict(r),
                     "-" if hook_ic is None else "%.0f" % hook_ic,
                     "-" if floor_ic is None else "%.0f" % floor_ic,
                     fmt_ratio(ic_ratio), ic_verdict,
                     goal_text(r) if r else "≤ %.2fx" % IGNORE_GOAL,
                     "%g" % (run.counter(h, "allocs_per_frame") or 0),
                     "%g" % (run.counter(h, "locks_per_frame") or 0)])
    out.append(table(["frame", "hook, time", "floor, time", "hook / floor, time", "",
                      "hook, instructions", "floor, instructions",
                      "hook / floor, instructions", "", "goal", "allocs/frame",
                      "locks/frame"], rows))
    if not ic:
        out += ["", "Instructions per frame: not counted in this run (valgrind and "
                "`veyra_icount_ignore` are needed: `scripts/bench-deps.sh host`)."]
    if missed_ic:
        out += ["", "Goal not met by instructions for some frames. " + NOT_MET["ignore"]]
    elif missed_time:
        out += ["", "Goal not met by time for some frames. " + NOT_MET["ignore_time"]]
    out += ["", "For scale, frames it does read, through the same hook, each taking "
            "`sta_lock` for the followed station: a DNS query from the station %s, "
            "the DNS response to it (two addresses) %s." % (
                fmt_ns(run.ns("read.dns_query.hook")), fmt_ns(run.ns("read.dns_response.hook")))]
    return "\n".join(out)


def section_dns(main, parsers, ic):
    out = ["## 2. DNS responses and DHCP exchanges", "",
           "The corpus (`bench/dns_corpus.h`) is 34 responses as a home resolver sends "
           "them: 16 answers with 1 to 8 addresses, 12 CNAME chains of 1 to 3 links "
           "ending in 1 to 4 addresses, and 6 error answers (NXDOMAIN with the zone's "
           "SOA, SERVFAIL, REFUSED); every name is compressed against what the message "
           "already holds, and half carry an EDNS OPT record. Every parser first proves "
           "on one pass that it finds every address, alias and error in it.",
           "",
           "- veyra, no-op sink: `vy_parse_dns` with a station table that only counts "
           "its calls (`bench/noop_sta.cpp`): the parser's own cost.",
           "- veyra, station table: `vy_parse_dns` with the real table, for a followed "
           "station (each answer takes `sta_lock`, finds the station and the name and "
           "applies the status rule).",
           "- veyra, hook path: the same responses as Ethernet frames through "
           "`vy_br_post_routing_hook` towards the station's wireless port.",
           "- ldns: `ldns_wire2pkt`, then a walk of the answer section reading each "
           "record's owner, type and first RDATA field.",
           "- c-ares: `ares_parse_a_reply` into a `hostent` (name, aliases, addresses).",
           ""]
    rows = []
    for run, name, title in [(parsers, "dns.corpus.veyra_noop_sink", "veyra, no-op sink"),
                             (main, "dns.corpus.veyra_station_table", "veyra, station table"),
                             (main, "dns.corpus.veyra_hook_path", "veyra, hook path"),
                             (parsers, "dns.corpus.ldns", "ldns"),
                             (parsers, "dns.corpus.c-ares", "c-ares")]:
        if run:
            rows.append([title, fmt_s_as_ns(run.counter(name, "per_message")),
                         fmt_ns(run.ns(name))])
    out.append(table(["parser", "per message", "whole corpus"], rows))
    out.append("")
    rows = []
    missed = False
    for run, rid in [(parsers, "dns_noop_vs_ldns"), (parsers, "dns_noop_vs_cares"),
                     (main, "dns_table_vs_ldns"), (main, "dns_table_vs_cares"),
                     (main, "dns_table_vs_hook")]:
        r = run.ratios.get(rid) if run else None
        if not r:
            continue
        if r.get("measured") and r["goal_kind"] != "none" and not r["met"]:
            missed = True
        rows.append([r["title"], fmt_ratio(ratio_value(run, rid)), goal_text(r), verdict(r)])
    out.append(table(["comparison (same run)", "ratio", "goal", ""], rows))
    ic_missed = False
    if ic:
        out += ["", "Instructions per message, counted by callgrind in the same `make bench` "
                "(`bench/icount_dns.cpp`): each parser first makes the pass that proves it "
                "finds what the corpus holds (which also resolves its symbols and warms its "
                "allocator), then callgrind collects over %d more passes and nothing else; "
                "the count is divided by the %d passes and the %d messages. Unlike the "
                "times, the counts do not depend on the machine's load or on what shares "
                "its caches, so they are the stable side of the comparison (they do depend "
                "on the compiler and the libraries' versions)." % (
                    ic.passes, ic.passes, ic.items), ""]
        rows = []
        for name, title in [(ICOUNT_VEYRA, "veyra, no-op sink"),
                            ("dns.corpus.ldns", "ldns"), ("dns.corpus.c-ares", "c-ares")]:
            v = ic.per_item.get(name)
            rows.append([title, "-" if v is None else "%.0f" % v])
        out.append(table(["parser", "instructions per message"], rows))
        out.append("")
        rows = []
        for rid, title, ratio, goal in icount_rows(ic):
            met = ratio is not None and ratio >= goal
            ic_missed = ic_missed or not met
            rows.append([title, fmt_ratio(ratio), "≥ %.2fx" % goal,
                         "met" if met else ("not measured" if ratio is None else "**not met**")])
        out.append(table(["comparison (same run)", "ratio", "goal", ""], rows))
    else:
        out += ["", "Instructions per message: not counted in this run (valgrind and "
                "`veyra_icount_dns` are needed: `scripts/bench-deps.sh host`)."]
    if missed or ic_missed:
        out += ["", "Goal not met%s. %s" % (
            " by time, met by instructions" if missed and ic and not ic_missed else "",
            NOT_MET["dns_noop_vs"])]
    out += ["", "DHCP: a full exchange (DISCOVER, OFFER, REQUEST, ACK) for one station "
            "through the bridge hooks costs %s (64 stations in turn, each exchange "
            "changing the station's status twice and sending two notifications, which "
            "the host platform captures); the parser alone over the same four messages "
            "costs %s." % (
                fmt_ns(main.ns("dhcp.dora.veyra_hook_path")) if main else "-",
                fmt_ns(parsers.ns("dhcp.dora.veyra_noop_sink")) if parsers else "-")]
    return "\n".join(out)


def crossover(run, sizes):
    pts = [(n, ratio_value(run, "walk_search_vs_periodic_%d" % n)) for n in sizes]
    pts = [(n, r) for n, r in pts if r]
    if not pts:
        return None
    if pts[0][1] >= 1:
        return "already at %d stations" % pts[0][0]
    for (n1, r1), (n2, r2) in zip(pts, pts[1:]):
        if r1 < 1 <= r2:
            t = (0 - math.log(r1)) / (math.log(r2) - math.log(r1))
            return "at about %d stations" % round(math.exp(math.log(n1) + t * (math.log(n2) - math.log(n1))))
    return "not within %d stations" % pts[-1][0]


def section_scale(run):
    sizes = [64, 256, 1024]
    out = ["## 3. Scale", "",
           "A table of N stations with 32 answered names each (names shaped like what "
           "phones look up). The periodic update is `vy_sta_periodic_update`, the 5 s "
           "timer's walk, called directly; the bare walk visits the same stations and "
           "entries reading the fields the update tests, and nothing else. The dump pass "
           "is a full read of `/dev/vy_dump` through open, read (128 KiB at a time, as "
           "`cat` reads) and release; the copy walk is what the dump does under it "
           "without the text (`vy_sta_copy_next` until it returns 0): each step searches "
           "the table from its start for the first station not yet copied, so the walk "
           "is quadratic in stations by design, and copies the station's 32 entries.",
           ""]
    rows = []
    for n in sizes + [4096]:
        p = "scale.periodic_update/%d" % n
        w = "scale.update_vs_walk/%d" % n
        if p not in run.bench:
            continue
        rows.append([n, fmt_ns(run.ns(p)), fmt_s_as_ns(run.counter(p, "per_sta_domain")),
                     fmt_s_as_ns(run.counter(w, "walk_per_sta_domain")),
                     fmt_ratio(run.counter(w, "update_over_walk"))])
    out.append(table(["stations", "periodic update", "per station-name", "bare walk per "
                      "station-name", "update / bare walk"], rows))
    out += ["", "The last two columns come from one benchmark that times the update and "
            "the bare walk in turns, in alternating order, on the thread's CPU clock, so "
            "that both see the same caches and the same load from the rest of the "
            "machine.", ""]
    rows = []
    missed = False
    for rid in ("periodic_growth_256", "periodic_growth_1024", "periodic_growth_4096",
                "periodic_flat_256", "periodic_flat_1024", "periodic_flat_4096"):
        r = run.ratios.get(rid)
        if not r:
            continue
        if r.get("measured") and r["goal_kind"] != "none" and not r["met"]:
            missed = True
        rows.append([r["title"], fmt_ratio(ratio_value(run, rid)), goal_text(r), verdict(r)])
    out.append(table(["growth (same run)", "ratio", "goal", ""], rows))
    note = growth_note(run)
    if note:
        out += ["", note]
    if missed:
        out += ["", "Goal not met. " + flat_note(run)]
    out.append("")
    rows = []
    for n in sizes:
        d = "scale.dump_pass/%d" % n
        w = "scale.copy_walk/%d" % n
        rows.append([n, fmt_ns(run.ns(d)), fmt_s_as_ns(run.counter(d, "per_station")),
                     fmt_bytes(run.counter(d, "text_bytes")),
                     fmt_ratio(ratio_value(run, "dump_vs_periodic_%d" % n)),
                     fmt_ns(run.ns(w)), fmt_s_as_ns(run.counter(w, "per_station")),
                     fmt_ratio(ratio_value(run, "walk_vs_periodic_%d" % n))])
    out.append(table(["stations", "dump pass", "per station", "text", "dump / periodic",
                      "copy walk", "per station", "walk / periodic"], rows))
    rows = []
    for n in sizes + [4096]:
        w = "scale.copy_walk_no_names/%d" % n
        if w in run.bench:
            rows.append([n, fmt_ns(run.ns(w)), fmt_s_as_ns(run.counter(w, "per_station")),
                         fmt_ratio(ratio_value(run, "walk_search_vs_periodic_%d" % n))])
    out += ["", "The search alone (stations without names, so nothing but the quadratic "
            "part and one station copy per step):", "",
            table(["stations", "copy walk, no names", "per station",
                   "/ periodic update with 32 names"], rows)]
    dumps = [ratio_value(run, "dump_vs_periodic_%d" % n) for n in sizes]
    cross = crossover(run, sizes + [4096])
    summary = []
    if all(dumps) and min(dumps) >= 1:
        summary.append("A full dump pass costs more than a periodic update at every size "
                       "measured (%s to %s of it): formatting the text and copying every "
                       "entry outweigh the update's walk from the first station on." % (
                           fmt_ratio(min(dumps)), fmt_ratio(max(dumps))))
    if cross:
        summary.append("The quadratic search on its own overtakes the periodic update of "
                       "the same stations (with 32 names each) %s." % cross)
    if summary:
        out += ["", " ".join(summary) + " A dump is read by an operator, rarely; the "
                "update runs every 5 s."]
    out += ["", "Lookups in one station's domain table (4 buckets) at its bound of 512 "
            "names, 64 different names per iteration:", ""]
    rows = []
    for name, title in [("lookup.domain_table_512.hit", "512 names, found"),
                        ("lookup.domain_table_512.miss", "512 names, absent"),
                        ("lookup.domain_table_32.hit", "32 names, found")]:
        rows.append([title, fmt_s_as_ns(run.counter(name, "per_lookup")),
                     "%d" % (run.counter(name, "longest_chain") or 0)])
    out.append(table(["table", "per lookup", "longest bucket chain"], rows))
    lr = ratio_value(run, "lookup_512_vs_32")
    if lr:
        out += ["", "A lookup at the bound costs %s one in a 32-name table: the chains "
                "are 16 times longer and the lookup is linear in them. Every answer and "
                "every query looks its name up, so a station near the bound pays this "
                "per record. The four buckets, and a bucket chosen from at most four bytes "
                "of the name, are part of the module's design: at the few dozen names "
                "a station usually looks up within the 300 s an entry lives, a lookup "
                "stays one short walk; a table near the bound means a station that "
                "looked up hundreds of different names in five minutes." % fmt_ratio(lr)]
    return "\n".join(out)


def section_memory(run):
    m = "memory.records"
    t = "memory.stations_256_full_tables"
    out = ["## 4. Memory", "",
           "Sizes of the two records, what one zeroed allocation of each takes on this "
           "host (glibc's chunk: the usable size and its 8-byte header), and the "
           "kernel's kmalloc size class on the target (arm64, Linux 5.4: classes are "
           "powers of two from 128 bytes, ARCH_DMA_MINALIGN) and on x86_64.", ""]
    rows = []
    for key, title in [("sta", "station entry (`struct sta`)"),
                       ("domain", "domain entry (`struct domain_entry`)")]:
        rows.append([title, "%d B" % (run.counter(m, key + "_sizeof") or 0),
                     "%d B" % (run.counter(m, key + "_heap_chunk") or 0),
                     "%d B" % (run.counter(m, key + "_kmalloc_arm64") or 0),
                     "%d B" % (run.counter(m, key + "_kmalloc_x86_64") or 0)])
    out.append(table(["record", "sizeof", "heap chunk here", "kmalloc arm64",
                      "kmalloc x86_64"], rows))
    entries = run.counter(t, "domain_entries")
    if entries:
        out += ["", "256 stations, each with a full domain table (512 names, the bound; "
                "%d domain entries in all):" % entries, "",
                table(["figure", "bytes"], [
                    ["per station at the bound (heap chunks)",
                     fmt_bytes(run.counter(t, "per_station_at_bound"))],
                    ["total, counted from the heap chunks", fmt_bytes(run.counter(t, "total_heap_counted"))],
                    ["domain entries, measured from the heap (mallinfo2)",
                     fmt_bytes(run.counter(t, "domain_heap_measured"))],
                    ["total on the target (kmalloc classes)",
                     fmt_bytes(run.counter(t, "total_kmalloc_arm64"))]])]
    return "\n".join(out)


VM_GOALS = []  # (title, measured, target, verdict) of the last VM run


def section_vm(vmdir):
    del VM_GOALS[:]
    out = ["## 5. Throughput in the real kernel", "",
           "`make bench-vm` boots the demo's VM (`vm/`: Debian's kernel under "
           "QEMU software emulation) and runs iperf3 across the bridge `br0` between "
           "its two wired veth ports (from namespace `wired` to namespace `lan`), TCP "
           "and UDP (1400-byte datagrams, unlimited rate, the rate received), with the "
           "module unloaded, loaded but unhooked (no station, `force_listen` off), and "
           "hooked (`force_listen 1`: every frame passes both hooks and is ignored as "
           "wired to wired). The three states alternate within every round, in a "
           "rotated order, and each state is divided by the unloaded figure of its own "
           "round; the table gives the median of those per-round ratios and their "
           "range. Goals: hooked at least 97% of unloaded; unhooked indistinguishable "
           "from unloaded (the median within 3% of 1, or the range of its per-round "
           "ratios containing 1). TCP crosses the bridge in offloaded segments of up "
           "to 64 KiB, one pass through the hooks for many packets; each UDP datagram "
           "is a frame of its own, so UDP is the case where the hooks' cost per frame "
           "shows. By default (`BENCH_VM_ICOUNT=0`) the guest's clock is QEMU's "
           "instruction counter (`-icount shift=0`: one guest instruction is one "
           "nanosecond), so a rate is bytes per instruction executed, whatever the "
           "host's speed or load: the ratios then compare the instructions the bridge "
           "spends per frame in each state, as the kernel runs them. With the host's "
           "clock (`BENCH_VM_ICOUNT=`) they also carry the emulator's noise.", ""]
    tsv = os.path.join(vmdir, "bench-throughput.tsv") if vmdir else None
    if not tsv or not os.path.exists(tsv):
        out.append("Not measured yet on this tree: run `make bench-vm`.")
        return "\n".join(out)
    meta = {}
    mp = os.path.join(vmdir, "bench-throughput.meta")
    if os.path.exists(mp):
        for line in open(mp):
            k, _, v = line.strip().partition(" ")
            meta[k] = v
    data = {}
    with open(tsv) as f:
        next(f, None)
        for line in f:
            parts = line.split()
            if len(parts) == 4:
                data[(int(parts[0]), parts[1], parts[2])] = float(parts[3])
    if not data:
        out.append("The last VM run measured nothing (see its results folder).")
        return "\n".join(out)
    clock = meta.get("clock", "host")
    if clock.startswith("icount"):
        clock_text = "the instruction counter as the guest's clock (shift %s)" % (
            clock.split()[-1])
    else:
        clock_text = "the host's clock"
    vcpus = meta.get("vcpus", "?")
    out.append("Measured %s, guest kernel %s, %s %s, %s rounds of %s s per "
               "measurement, %s." % (meta.get("date", "?"), meta.get("kernel", "?"),
                                     vcpus, "vCPU" if vcpus == "1" else "vCPUs",
                                     meta.get("rounds", "?"),
                                     meta.get("seconds", "?"), clock_text))
    out.append("")
    rounds = sorted({k[0] for k in data})
    rows = []
    noisy = []
    missed = []
    for proto in ("tcp", "udp"):
        base = [data[(r, "unloaded", proto)] for r in rounds if (r, "unloaded", proto) in data]
        if not base:
            continue
        b = statistics.median(base)
        # How much the unloaded figure itself moved over the run.
        noise = (max(base) - min(base)) / b
        row = [proto.upper(), "%.0f Mbit/s" % (b / 1e6), "±%.0f%%" % (50 * noise)]
        for state in ("unhooked", "hooked"):
            per_round = [data[(r, state, proto)] / data[(r, "unloaded", proto)]
                         for r in rounds
                         if (r, state, proto) in data and (r, "unloaded", proto) in data]
            if not per_round:
                row += ["-", "not measured"]
                continue
            med = statistics.median(per_round)
            lo, hi = min(per_round), max(per_round)
            if state == "hooked":
                ok = med >= 0.97
            else:
                ok = abs(med - 1) <= 0.03 or lo <= 1 <= hi
            # A verdict is only as good as the run's own repeatability: when
            # the unloaded rounds alone move by more than the goals' 3%, the
            # run cannot tell a met goal from a missed one.
            if noise > 0.06:
                verdict_text = "inconclusive"
                noisy.append(proto.upper())
            else:
                verdict_text = "met" if ok else "**not met**"
                if not ok:
                    missed.append("%s %s" % (state, proto.upper()))
            row += ["%.3f (%.2f–%.2f)" % (med, lo, hi), verdict_text]
            VM_GOALS.append(["%s / unloaded, %s in the VM" % (state, proto.upper()),
                             "%.3f" % med,
                             "≥ 0.97" if state == "hooked" else "≈ 1 (±3%)",
                             verdict_text])
        rows.append(row)
    out.append(table(["protocol", "unloaded (median)", "unloaded spread",
                      "unhooked / unloaded", "", "hooked / unloaded", ""], rows))
    if noisy:
        out += ["", "Inconclusive for %s: the unloaded rounds alone spread by more than "
                "the 3%% the goals are about, so neither a met nor a missed goal can be "
                "read from this run. %s What would settle it: the same scenario "
                "under hardware virtualisation or on the target board, or more rounds "
                "(`VY_BENCH_ROUNDS`, `VY_BENCH_SECONDS`)." % (
                    " and ".join(sorted(set(noisy))),
                    "Even counted in instructions, the guest's work per frame varies "
                    "from one measurement to the next (TCP's windows and offload "
                    "sizes settle differently in each run)." if clock.startswith("icount")
                    else "Software emulation on a shared host moves with every other "
                    "program on it; with the host's clock the guest's throughput "
                    "measures the emulator more than the bridge (`BENCH_VM_ICOUNT=0` "
                    "counts instructions instead).")]
    if missed:
        out += ["", "Not met in a run steady enough to judge (%s): the hook path of "
                "section 1 is where the time goes." % ", ".join(missed)]
    return "\n".join(out)


VM_HEADING = "## 5. Throughput in the real kernel"
VM_CARRIED = ("(Carried over from the previous BENCHMARKS.md: `make bench-vm` has not "
              "run on this tree since; its own date is above.)")


def carry_vm(path):
    """The VM section and goal rows of the file written before, when this tree
    has no VM results: make bench and make bench-vm run apart, and one must not
    erase what the other measured. None when there is nothing measured to keep."""
    if not path or path == "-" or not os.path.exists(path):
        return None
    with open(path) as f:
        text = f.read()
    m = re.search(r"^%s\n.*?(?=^## |\Z)" % re.escape(VM_HEADING), text, re.S | re.M)
    if not m or "\nMeasured " not in m.group(0):
        return None
    section = m.group(0).rstrip()
    if VM_CARRIED not in section:
        section += "\n\n" + VM_CARRIED
    rows = []
    for line in text.split("\n"):
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        if len(cells) == 4 and cells[0].endswith("in the VM"):
            rows.append(cells)
        if line.startswith("## 1."):
            break
    return section, rows


PROFILES = [
    ("ignore_non_udp", "TCP frame from a station through `vy_br_pre_routing_hook`"),
    ("ignore_wired", "wired-to-wired frame through `vy_br_pre_routing_hook`"),
    ("dns_noop_sink", "DNS corpus through `vy_parse_dns`, no-op sink"),
    ("dns_station_table", "DNS corpus through `vy_parse_dns`, station table"),
    ("dhcp_exchange", "DHCP exchanges through both hooks"),
    ("periodic_update_1024", "`vy_sta_periodic_update`, 1024 stations"),
    ("dump_pass_256", "`vy_dump_dev_read`, 256 stations"),
]

PROFILE_LINE = re.compile(r"^\s*([\d,]+)\s+\(\s*([\d.]+)%\)\s+(\S.*)$")


def clean_symbol(s):
    s = re.sub(r"\s*\[[^\]]*\]\s*$", "", s)        # the object file
    s = re.sub(r"\([^()]*\)('\d+)?$", r"\1", s)     # C++ argument lists
    if ":" in s:
        path, _, fn = s.partition(":")
        s = "%s:%s" % (os.path.basename(path), fn)
    s = re.sub(r"'\d+$", " (nested calls)", s)   # callgrind's recursion depth
    return s.replace("|", "\\|")


def section_profiles(results):
    found = [(n, t) for n, t in PROFILES
             if os.path.exists(os.path.join(results, "profile-%s.txt" % n))]
    out = ["## 6. Hot spots", ""]
    if not found:
        out.append("Not profiled yet on this tree: run `make bench-profile`.")
        return "\n".join(out)
    out += ["`make bench-profile` runs single benchmarks under callgrind, collecting only "
            "inside the module's entry point for the path, and lists the functions with "
            "the largest own share of the instructions (`file:function`; host-platform "
            "and C library functions are the user-space stand-ins for kernel services).",
            ""]
    for name, title in found:
        rows = []
        in_list = False
        for line in open(os.path.join(results, "profile-%s.txt" % name)):
            if "file:function" in line:
                in_list = True
                continue
            if not in_list:
                continue
            if not line.strip():
                if rows:
                    break
                continue
            m = PROFILE_LINE.match(line)
            if m and len(rows) < 6:
                rows.append(["%s%%" % m.group(2), "`%s`" % clean_symbol(m.group(3))])
        out += ["**%s**" % title, "", table(["share", "function"], rows), ""]
    return "\n".join(out).rstrip()


def goals_summary(runs, ic, ic_ignore):
    rows = []
    for run in runs.values():
        for r in run.ratios.values():
            if r["goal_kind"] == "none":
                continue
            rows.append([r["title"], fmt_ratio(r.get("ratio")) if r.get("measured") else "-",
                         goal_text(r), verdict(r)])
            if r["id"].startswith("ignore."):
                # The same frames by instructions, next to their time.
                for title, ratio, goal in icount_ignore_rows(ic_ignore):
                    if title.startswith(r["title"] + ","):
                        rows.append([title, fmt_ratio(ratio), "≤ %.2fx" % goal,
                                     at_most_verdict(ratio, goal)])
    for rid, title, ratio, goal in icount_rows(ic):
        rows.append([title, fmt_ratio(ratio), "≥ %.2fx" % goal,
                     "not measured" if ratio is None else
                     ("met" if ratio >= goal else "**not met**")])
    return table(["goal", "measured", "target", ""], rows + VM_GOALS)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--results", required=True)
    ap.add_argument("--vm")
    ap.add_argument("--output", default="-")
    args = ap.parse_args()

    runs = load_runs(args.results)
    if not runs:
        sys.exit("bench-report: no benchmark results in %s (run make bench)" % args.results)
    main_run = runs.get("veyra_bench")
    parsers = runs.get("veyra_bench_parsers")

    vm_text = section_vm(args.vm)
    if not VM_GOALS:
        carried = carry_vm(args.output)
        if carried:
            vm_text = carried[0]
            VM_GOALS.extend(carried[1])
    icount = load_icount(args.results)
    icount_ignore = load_icount_ignore(args.results)
    parts = [
        "# Benchmarks",
        "",
        "What veyra costs, measured side by side with what it is compared to: every "
        "ratio below divides two figures of the same benchmark run. `make bench` runs "
        "the host benchmarks (`bench/`, Google Benchmark, an optimised build without "
        "sanitizers in `build-bench/`), prints every comparison as a ratio and rewrites "
        "this file from the run's JSON with `scripts/bench-report.py`; `make bench-vm` "
        "measures bridge throughput in the real kernel and `make bench-profile` finds "
        "the hot spots. Nothing here is typed by hand. The host benchmarks run the "
        "module's own code on the host platform (`platform/host/`), whose locks "
        "(pthread rwlocks), allocator (glibc) and event capture stand in for the "
        "kernel's: ratios between veyra's paths and their floors or peers carry over, "
        "absolute times are this machine's.",
        "",
        "## Latest run",
        "",
        machine(runs),
        "",
        goals_summary(runs, icount, icount_ignore),
        "",
    ]
    if main_run:
        parts += [section_ignore(main_run, icount_ignore), ""]
    parts += [section_dns(main_run, parsers, icount), ""]
    if main_run:
        parts += [section_scale(main_run), "", section_memory(main_run), ""]
    parts += [vm_text, "", section_profiles(args.results), ""]
    text = "\n".join(parts)

    if args.output == "-":
        sys.stdout.write(text)
    else:
        with open(args.output, "w") as f:
            f.write(text)
        print("bench-report: wrote %s" % args.output)


if __name__ == "__main__":
    main()
