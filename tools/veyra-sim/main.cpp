// SPDX-License-Identifier: GPL-2.0
/*
 * veyra-sim: runs veyra's own code in user space, driven by a scenario file
 * or a packet capture, and prints what the access point would have logged
 * and reported.
 */
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "output.h"
#include "sim.h"

namespace {

const char kHelp[] =
	R"HELP(Usage: veyra-sim [--json] [--debug-level N] [FILE ...]

Runs veyra's logic in user space on a simulated access point and prints,
line by line, every kernel log line, notification and hook change the
module would produce. The scenario FILEs run in order in one simulated
module, loaded at jiffies 0 with debug_level N. Without FILE, or with -,
the scenario is read from standard input.

Options:
  --json            one JSON object per event instead of text lines
  --debug-level N   debug_level at load, 0 to 4 (default 1, as the module);
                    every "load" command starts again from N
  -h, --help        this text

The simulated access point:
  One bridge br0 (MAC 02:00:00:00:00:ff) whose ports are declared with
  "port". A port name that was never declared is a wired port of br0.
  HZ is 100: one jiffy is 10 ms, 500 jiffies are 5 s. Simulated time only
  moves by "time", "advance" and capture timestamps. The module treats a
  jiffies value of 0 as "not set" (join time, DHCP start), so a scenario
  should move time forward (e.g. "time 100") before its first station joins.

Scenario lines (one command per line; "#" starts a comment; blank lines
are skipped; MAC is xx:xx:xx:xx:xx:xx; J and N are decimal jiffies):
  port NAME wireless|wired   declare a bridge port of br0
  port NAME vlan LOWER       declare an 802.1Q VLAN device on LOWER, as a
                             port of br0
  time J                     advance simulated time to J (never backwards)
  advance N                  advance simulated time by N
                             Every timer due on the way fires at its own
                             expiry time, in order, and the hook work
                             settles after each.
  join MAC VAP               umac station event 0 (join)
  leave MAC VAP              umac station event 1 (leave)
  event CODE MAC VAP         umac station event CODE (a 32-bit integer)
                             Nothing happens while umac has no monitor
                             registered (module unloaded, after "del all").
  rx PORT HEX                an Ethernet frame (hex bytes, no separators)
                             enters br0 from PORT: bridge pre-routing, in=PORT
  tx PORT HEX                a frame leaves br0 through PORT: post-routing,
                             out=PORT
  fwd IN OUT HEX             a frame bridged from IN to OUT: pre-routing with
                             IN, then post-routing with OUT
                             A frame passes the module's hooks only while
                             they are registered, as in the kernel.
  pcap FILE PORT             replay a pcap or pcapng capture (Ethernet) taken
                             on the wireless port PORT; FILE is relative to
                             the scenario file. Direction of each frame: the
                             pcapng packet flags when present (inbound = rx,
                             outbound = tx); otherwise a frame whose Ethernet
                             source is a station the module follows is rx,
                             any other tx. Capture timestamps advance
                             simulated time: the first frame plays at the
                             current time, later ones at their offset from
                             it, rounded down to jiffies.
  write DEV TEXT             open DEV (dump or summary), write TEXT, close it.
                             TEXT is the rest of the line without surrounding
                             blanks ("#" included); escapes \n, \t, \\, \xHH.
  read DEV [BUFSIZE]         open DEV, read with BUFSIZE (default 4096, at
                             most 1048576) until a read returns 0, close it
  open DEV, close DEV        hold DEV open across lines (the one-open rule);
                             read and write on a held DEV use it as it is
  fail-alloc N               the next N atomic allocations fail
  fail-hook [ERR]            the next bridge hook registration fails with ERR
                             (a negative errno, default -12)
  unload                     veyra_exit (refused while a DEV is held open)
  load                       veyra_init
  sysfs NAME                 print /sys/veyra/NAME (summary_dev_major_num or
                             dump_dev_major_num)

Output (text mode): one line per event, in the order they happen, each
starting with the jiffies at that moment in brackets:
  [J] notify_sta_dhcp vap=VAP sta=MAC status=S reason=R hostname="H"
      hostname_len=L ip=A type=T server=A gateway=A latency=MS
                             the module called notify_sta_dhcp (one line)
  [J] notify_sta_dns vap=VAP sta=MAC status=S dns_server=A latency=MS
                             the module called notify_sta_dns
  [J] hooks registered       the bridge hooks were registered
  [J] hooks unregistered     the bridge hooks were unregistered
  [J] hook registration failed
                             the platform refused the registration
  [J] log LEVEL TEXT         a kernel log line that would be printed: LEVEL is
                             err, warning, notice, info, debug, or default
                             (the command help lines); TEXT as formatted,
                             without its newline, control bytes as \xHH.
                             debug lines appear at debug_level 4 (the
                             simulated dynamic-debug sites are all on).
  [J] read DEV               the bytes read, verbatim, follow (with a newline
  ...                        added if they do not end with one), then
  [J] end read DEV BYTES     BYTES: how many were read in all
  [J] open DEV failed ERR    an open was refused with the error ERR
  [J] write DEV returned RES the result of the write call
  [J] sysfs NAME VALUE       the attribute's text without its newline, or
                             "(absent)" when it does not exist
  [J] leaked N               last line: live allocations of the module after
                             the final veyra_exit (must be 0)
Statuses, reasons and types are the numbers passed to the platform; S is
0 pending, 1 OK, 2 FAIL. Addresses are dotted quads, MACs lower-case, the
hostname has '"' and '\' escaped and other bytes outside printable ASCII
written as \xHH. Events caused by a command (the hook work included)
appear right after it; a read's block is printed when the read ends.

--json prints the same events as one JSON object per line with the same
field names plus "jiffies" and "event": log (level, text), notify_sta_dhcp,
notify_sta_dns, hooks_registered, hooks_unregistered,
hook_registration_failed, read (dev, data, bytes), open_failed (dev,
error), write (dev, returned), sysfs (name, value: null when absent),
leaked (count). Addresses and MACs are strings; bytes of text above 0x7f
appear as \u00XX.

At the end of the run the module is unloaded (held devices are closed
first) and the leaked line is printed.

Frames for rx, tx and fwd lines are best made with scripts/mkframe.py
(DHCP and DNS over Ethernet/IPv4/UDP), captures with scripts/mkpcap.py.

Exit status: 0 when every line ran; 2 for a usage error, an unreadable
file, or a malformed scenario line or capture, with a message on standard
error naming the file and line. Nothing after the malformed line runs and
no further output is printed.
)HELP";

int usage_error(const char *msg, const char *arg)
{
	std::fprintf(stderr, "veyra-sim: %s%s\nTry 'veyra-sim --help'.\n", msg, arg ? arg : "");
	return 2;
}

bool read_source(const std::string &name, std::string &text)
{
	std::FILE *f = name == "-" ? stdin : std::fopen(name.c_str(), "rb");
	if (!f) {
		std::fprintf(stderr, "veyra-sim: cannot open %s: %s\n", name.c_str(),
			     std::strerror(errno));
		return false;
	}
	char buf[65536];
	std::size_t n;
	while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0)
		text.append(buf, n);
	bool bad = std::ferror(f);
	if (f != stdin)
		std::fclose(f);
	if (bad)
		std::fprintf(stderr, "veyra-sim: cannot read %s\n", name.c_str());
	return !bad;
}

std::string dir_of(const std::string &path)
{
	std::size_t slash = path.rfind('/');
	if (slash == std::string::npos)
		return "";
	return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

int main(int argc, char **argv)
{
	vysim::Options opt;
	std::vector<std::string> files;
	bool options_done = false;

	for (int i = 1; i < argc; i++) {
		std::string a = argv[i];
		if (options_done || a == "-" || a.empty() || a[0] != '-') {
			files.push_back(a);
		} else if (a == "--") {
			options_done = true;
		} else if (a == "-h" || a == "--help") {
			std::fputs(kHelp, stdout);
			return 0;
		} else if (a == "--json") {
			opt.json = true;
		} else if (a == "--debug-level" || a.rfind("--debug-level=", 0) == 0) {
			std::string v;
			if (a == "--debug-level") {
				if (i + 1 >= argc)
					return usage_error("--debug-level needs a value", nullptr);
				v = argv[++i];
			} else {
				v = a.substr(std::strlen("--debug-level="));
			}
			if (v.size() != 1 || v[0] < '0' || v[0] > '4')
				return usage_error("--debug-level must be 0 to 4, not ", v.c_str());
			opt.debug_level = v[0] - '0';
		} else {
			return usage_error("unknown option ", a.c_str());
		}
	}
	if (files.empty())
		files.push_back("-");

	/* Every file is read before anything runs, so that a missing one
	 * does not leave half a run behind. */
	std::vector<std::string> texts(files.size());
	for (std::size_t i = 0; i < files.size(); i++)
		if (!read_source(files[i], texts[i]))
			return 2;

	vysim::Printer printer(stdout, opt.json);
	vysim::Sim sim(opt, printer);
	sim.start();
	for (std::size_t i = 0; i < files.size(); i++) {
		const std::string name = files[i] == "-" ? "<stdin>" : files[i];
		if (!sim.run(texts[i], name, files[i] == "-" ? "" : dir_of(files[i]))) {
			sim.stop_quietly();
			return 2;
		}
	}
	sim.finish();
	return 0;
}
