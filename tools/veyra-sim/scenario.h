// SPDX-License-Identifier: GPL-2.0
/*
 * The scenario language of veyra-sim: one command per line, parsed here into
 * a Command without touching the simulated module, so that a malformed line
 * is reported before anything of it runs.
 */
#ifndef VEYRA_SIM_SCENARIO_H
#define VEYRA_SIM_SCENARIO_H

#include <cstdint>
#include <string>
#include <vector>

namespace vysim {

enum class Cmd {
	None, /* blank line or comment */
	Port,
	Time,
	Advance,
	Join,
	Leave,
	Event,
	Rx,
	Tx,
	Fwd,
	Pcap,
	Write,
	Read,
	Open,
	Close,
	FailAlloc,
	FailHook,
	Unload,
	Load,
	Sysfs,
};

enum class PortKind { Wired, Wireless, Vlan };

enum class Device { Summary, Dump };

struct Command {
	Cmd kind = Cmd::None;
	/* port: name; join/leave/event: VAP; rx/tx: port; fwd: in port;
	 * pcap: file; sysfs: attribute name. */
	std::string name;
	/* port vlan: the lower device; fwd: out port; pcap: port. */
	std::string name2;
	PortKind port_kind = PortKind::Wired;
	Device dev = Device::Summary;
	std::uint64_t num = 0; /* time, advance, fail-alloc, read size */
	std::int64_t code = 0; /* event code, fail-hook error */
	std::uint8_t mac[6] = {};
	std::vector<std::uint8_t> bytes; /* frame, or the text to write */
};

/* Parses one line (without its newline). Returns false with a message in
 * err for a malformed line; a blank or comment line gives Cmd::None. */
bool parse_line(const std::string &line, Command &cmd, std::string &err);

const char *device_name(Device d);

/* Helpers shared with the tests. */
bool parse_mac(const std::string &s, std::uint8_t mac[6]);
bool parse_hex(const std::string &s, std::vector<std::uint8_t> &out);
/* Decodes \n, \t, \\ and \xHH; false for any other escape. */
bool unescape(const std::string &s, std::vector<std::uint8_t> &out, std::string &err);

/* Names of the sysfs attributes, as under /sys/veyra/. */
extern const char *const kSysfsSummary;
extern const char *const kSysfsDump;

/* Largest buffer a read command may ask for. */
constexpr std::uint64_t kMaxReadSize = 1u << 20;

} // namespace vysim

#endif
