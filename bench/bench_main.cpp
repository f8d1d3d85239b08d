// SPDX-License-Identifier: GPL-2.0
/*
 * The benchmark binaries' main: Google Benchmark's run, then the
 * comparisons of this binary printed as ratios (and written as JSON with
 * --vy_ratios_out=FILE for the report).
 *
 * Where repetitions were asked for, a side of a comparison is its median.
 * The exit status is 1 when a benchmark failed its own checks (a corpus
 * that did not parse as expected, a table that could not be built), never
 * because a goal was missed: timings on a shared machine vary, and the
 * report says which goals were met.
 */
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "vy_bench.h"

namespace vy_bench {

namespace {

std::vector<Ratio> &ratios()
{
	static std::vector<Ratio> r;
	return r;
}

struct Figures {
	double ns_per_iteration = 0;
	std::map<std::string, double> counters;
	bool from_median = false;
};

std::string key_of(const benchmark::BenchmarkReporter::Run &run)
{
	std::string k = run.run_name.function_name;
	if (!run.run_name.args.empty())
		k += "/" + run.run_name.args;
	return k;
}

/* The console reporter, also keeping each benchmark's figures. */
class Collector : public benchmark::ConsoleReporter {
public:
	explicit Collector(OutputOptions o) : ConsoleReporter(o) {}

	void ReportRuns(const std::vector<Run> &runs) override
	{
		for (const Run &run : runs) {
			if (run.error_occurred) {
				errors_.push_back(key_of(run) + ": " + run.error_message);
				continue;
			}
			bool median = run.run_type == Run::RT_Aggregate &&
				      run.aggregate_name == "median";
			if (run.run_type == Run::RT_Aggregate && !median)
				continue;
			Figures &f = figures_[key_of(run)];
			if (f.from_median && !median)
				continue;
			f.from_median = median;
			f.ns_per_iteration =
				run.GetAdjustedCPUTime() * 1e9 /
				benchmark::GetTimeUnitMultiplier(run.time_unit);
			for (const auto &c : run.counters)
				f.counters[c.first] = c.second.value;
		}
		ConsoleReporter::ReportRuns(runs);
	}

	const std::map<std::string, Figures> &figures() const { return figures_; }
	const std::vector<std::string> &errors() const { return errors_; }

private:
	std::map<std::string, Figures> figures_;
	std::vector<std::string> errors_;
};

std::string json_string(const std::string &s)
{
	std::string out = "\"";
	for (char c : s) {
		if (c == '"' || c == '\\') {
			out += '\\';
			out += c;
		} else if ((unsigned char)c < 0x20) {
			char buf[8];
			std::snprintf(buf, sizeof(buf), "\\u%04x", c);
			out += buf;
		} else {
			out += c;
		}
	}
	return out + "\"";
}

std::string cpu_model()
{
	std::ifstream in("/proc/cpuinfo");
	std::string line;
	while (std::getline(in, line)) {
		if (line.rfind("model name", 0) == 0) {
			auto colon = line.find(':');
			if (colon != std::string::npos)
				return line.substr(line.find_first_not_of(" \t", colon + 1));
		}
	}
	return "unknown";
}

/* What kind of build measured: figures from a sanitizer build only show
 * that the benchmarks run. */
std::string build_kind()
{
	std::string k;
#ifdef NDEBUG
	k = "optimised";
#else
	k = "debug";
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
	k += ", sanitizers";
#else
	k += ", no sanitizers";
#endif
	return k;
}

struct Outcome {
	const Ratio *r;
	bool measured;
	double num, den, value;
	bool met;
};

bool figure_of(const std::map<std::string, Figures> &figs, const std::string &name,
	       const std::string &figure, double *out)
{
	auto it = figs.find(name);
	if (it == figs.end())
		return false;
	if (figure.empty()) {
		*out = it->second.ns_per_iteration;
		return true;
	}
	auto c = it->second.counters.find(figure);
	if (c == it->second.counters.end())
		return false;
	*out = c->second;
	return true;
}

/* A side is a benchmark's figure, or "ratio:<id>", an earlier comparison's
 * value (for a ratio of two ratios, such as how a cost relative to its floor
 * changes with size). */
bool side_of(const std::map<std::string, Figures> &figs,
	     const std::vector<Outcome> &earlier, const std::string &name,
	     const std::string &figure, double *out)
{
	static const std::string prefix = "ratio:";
	if (name.compare(0, prefix.size(), prefix) != 0)
		return figure_of(figs, name, figure, out);
	for (const Outcome &o : earlier) {
		if (o.r->id == name.substr(prefix.size())) {
			*out = o.value;
			return o.measured;
		}
	}
	return false;
}

std::vector<Outcome> evaluate(const Collector &c)
{
	std::vector<Outcome> out;
	for (const Ratio &r : ratios()) {
		Outcome o{&r, false, 0, 0, 0, false};
		if (side_of(c.figures(), out, r.numerator, r.figure, &o.num) &&
		    side_of(c.figures(), out, r.denominator, r.figure, &o.den) &&
		    o.den > 0) {
			o.measured = true;
			o.value = o.num / o.den;
			o.met = r.goal_kind == GoalKind::None ||
				(r.goal_kind == GoalKind::AtMost ? o.value <= r.goal
								 : o.value >= r.goal);
		}
		out.push_back(o);
	}
	return out;
}

void print_ratios(const std::vector<Outcome> &outcomes)
{
	size_t w = 10;
	for (const Outcome &o : outcomes)
		w = std::max(w, o.r->title.size());
	std::printf("\nComparisons, both sides measured in this run:\n");
	std::printf("%-*s %10s  %-10s %s\n", (int)w, "comparison", "ratio", "goal", "");
	for (const Outcome &o : outcomes) {
		char goal[32] = "";
		if (o.r->goal_kind != GoalKind::None)
			std::snprintf(goal, sizeof(goal), "%s %.2fx",
				      o.r->goal_kind == GoalKind::AtMost ? "<=" : ">=",
				      o.r->goal);
		if (!o.measured) {
			std::printf("%-*s %10s  %-10s %s\n", (int)w, o.r->title.c_str(),
				    "-", goal, "not measured in this run");
			continue;
		}
		std::printf("%-*s %9.2fx  %-10s %s\n", (int)w, o.r->title.c_str(),
			    o.value, goal,
			    o.r->goal_kind == GoalKind::None ? "" : o.met ? "met" : "NOT MET");
	}
}

bool write_ratios(const std::string &path, const std::vector<Outcome> &outcomes)
{
	std::ofstream f(path);
	if (!f)
		return false;
	f << "{\n  \"build\": " << json_string(build_kind()) << ",\n  \"ratios\": [";
	bool first = true;
	for (const Outcome &o : outcomes) {
		const char *kind = o.r->goal_kind == GoalKind::None     ? "none"
				   : o.r->goal_kind == GoalKind::AtMost ? "at_most"
									: "at_least";
		f << (first ? "\n" : ",\n") << "    {\"id\": " << json_string(o.r->id)
		  << ", \"title\": " << json_string(o.r->title)
		  << ", \"numerator\": " << json_string(o.r->numerator)
		  << ", \"denominator\": " << json_string(o.r->denominator)
		  << ", \"figure\": " << json_string(o.r->figure.empty() ? "ns_per_iteration" : o.r->figure)
		  << ", \"goal_kind\": \"" << kind << "\", \"goal\": " << o.r->goal
		  << ", \"measured\": " << (o.measured ? "true" : "false");
		if (o.measured)
			f << ", \"numerator_value\": " << o.num << ", \"denominator_value\": " << o.den
			  << ", \"ratio\": " << o.value << ", \"met\": " << (o.met ? "true" : "false");
		f << "}";
		first = false;
	}
	f << "\n  ]\n}\n";
	return bool(f);
}

} // namespace

bool add_ratio(const Ratio &r)
{
	ratios().push_back(r);
	return true;
}

} // namespace vy_bench

int main(int argc, char **argv)
{
	std::string ratios_out;
	std::vector<char *> args;

	for (int i = 0; i < argc; i++) {
		static const char flag[] = "--vy_ratios_out=";
		if (i > 0 && std::strncmp(argv[i], flag, sizeof(flag) - 1) == 0)
			ratios_out = argv[i] + sizeof(flag) - 1;
		else
			args.push_back(argv[i]);
	}
	int n = (int)args.size();
	benchmark::Initialize(&n, args.data());
	if (benchmark::ReportUnrecognizedArguments(n, args.data()))
		return 2;

	benchmark::AddCustomContext("cpu_model", vy_bench::cpu_model());
	benchmark::AddCustomContext("nproc", std::to_string(std::thread::hardware_concurrency()));
	benchmark::AddCustomContext("vy_build", vy_bench::build_kind());

	auto opts = benchmark::ConsoleReporter::OO_Tabular;
	if (isatty(STDOUT_FILENO))
		opts = benchmark::ConsoleReporter::OO_ColorTabular;
	vy_bench::Collector collector(opts);
	benchmark::RunSpecifiedBenchmarks(&collector);
	benchmark::Shutdown();

	auto outcomes = vy_bench::evaluate(collector);
	vy_bench::print_ratios(outcomes);
	if (!ratios_out.empty() && !vy_bench::write_ratios(ratios_out, outcomes)) {
		std::fprintf(stderr, "cannot write %s\n", ratios_out.c_str());
		return 1;
	}
	for (const std::string &e : collector.errors())
		std::fprintf(stderr, "benchmark failed: %s\n", e.c_str());
	return collector.errors().empty() ? 0 : 1;
}
