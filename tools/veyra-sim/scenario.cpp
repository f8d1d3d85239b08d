// SPDX-License-Identifier: GPL-2.0
#include "scenario.h"

#include <cctype>
#include <cstring>

namespace vysim {

const char *const kSysfsSummary = "summary_dev_major_num";
const char *const kSysfsDump = "dump_dev_major_num";

namespace {

/* Linux interface names hold at most 15 characters. */
constexpr std::size_t kMaxIfname = 15;
/* Time values stay far below the wrap of a 64-bit jiffies counter, so that
 * "advance" can never overflow. */
constexpr std::uint64_t kMaxJiffies = 1ull << 62;

bool is_blank(char c)
{
	return c == ' ' || c == '\t';
}

int hexval(char c)
{
	if (c >= '0' && c <= '9')
		return c - '0';
	if (c >= 'a' && c <= 'f')
		return c - 'a' + 10;
	if (c >= 'A' && c <= 'F')
		return c - 'A' + 10;
	return -1;
}

/* Words of the line up to a comment; each with its start offset. */
struct Word {
	std::string text;
	std::size_t pos;
};

std::vector<Word> split(const std::string &line)
{
	std::vector<Word> words;
	std::size_t i = 0;
	while (i < line.size()) {
		while (i < line.size() && is_blank(line[i]))
			i++;
		if (i >= line.size() || line[i] == '#')
			break;
		std::size_t start = i;
		while (i < line.size() && !is_blank(line[i]))
			i++;
		words.push_back({line.substr(start, i - start), start});
	}
	return words;
}

bool parse_u64(const std::string &s, std::uint64_t max, std::uint64_t &out)
{
	if (s.empty() || s.size() > 20)
		return false;
	std::uint64_t v = 0;
	for (char c : s) {
		if (c < '0' || c > '9')
			return false;
		std::uint64_t d = (std::uint64_t)(c - '0');
		if (v > (max - d) / 10)
			return false;
		v = v * 10 + d;
	}
	out = v;
	return true;
}

bool parse_s64(const std::string &s, std::int64_t min, std::int64_t max, std::int64_t &out)
{
	bool neg = !s.empty() && s[0] == '-';
	std::uint64_t mag;
	std::uint64_t limit = neg ? (std::uint64_t)(-(min + 1)) + 1 : (std::uint64_t)max;
	if (!parse_u64(neg ? s.substr(1) : s, limit, mag))
		return false;
	out = neg ? -(std::int64_t)(mag - 1) - 1 : (std::int64_t)mag;
	return out >= min && out <= max;
}

bool parse_port_name(const std::string &s, std::string &err)
{
	if (s.size() > kMaxIfname) {
		err = "port name '" + s + "' is longer than 15 characters";
		return false;
	}
	if (s == "br0") {
		err = "br0 is the bridge, not one of its ports";
		return false;
	}
	return true;
}

bool parse_device(const std::string &s, Device &d, std::string &err)
{
	if (s == "dump")
		d = Device::Dump;
	else if (s == "summary")
		d = Device::Summary;
	else {
		err = "unknown device '" + s + "' (dump or summary)";
		return false;
	}
	return true;
}

bool usage(std::string &err, const char *form)
{
	err = std::string("usage: ") + form;
	return false;
}

} // namespace

const char *device_name(Device d)
{
	return d == Device::Dump ? "dump" : "summary";
}

bool parse_mac(const std::string &s, std::uint8_t mac[6])
{
	if (s.size() != 17)
		return false;
	for (int i = 0; i < 6; i++) {
		int hi = hexval(s[i * 3]), lo = hexval(s[i * 3 + 1]);
		if (hi < 0 || lo < 0 || (i < 5 && s[i * 3 + 2] != ':'))
			return false;
		mac[i] = (std::uint8_t)(hi << 4 | lo);
	}
	return true;
}

bool parse_hex(const std::string &s, std::vector<std::uint8_t> &out)
{
	if (s.empty() || s.size() % 2)
		return false;
	out.clear();
	out.reserve(s.size() / 2);
	for (std::size_t i = 0; i < s.size(); i += 2) {
		int hi = hexval(s[i]), lo = hexval(s[i + 1]);
		if (hi < 0 || lo < 0)
			return false;
		out.push_back((std::uint8_t)(hi << 4 | lo));
	}
	return true;
}

bool unescape(const std::string &s, std::vector<std::uint8_t> &out, std::string &err)
{
	out.clear();
	for (std::size_t i = 0; i < s.size(); i++) {
		if (s[i] != '\\') {
			out.push_back((std::uint8_t)s[i]);
			continue;
		}
		if (i + 1 >= s.size()) {
			err = "a backslash ends the text (write \\\\ for a backslash)";
			return false;
		}
		char c = s[++i];
		if (c == 'n') {
			out.push_back('\n');
		} else if (c == 't') {
			out.push_back('\t');
		} else if (c == '\\') {
			out.push_back('\\');
		} else if (c == 'x') {
			int hi = i + 1 < s.size() ? hexval(s[i + 1]) : -1;
			int lo = i + 2 < s.size() ? hexval(s[i + 2]) : -1;
			if (hi < 0 || lo < 0) {
				err = "\\x needs two hex digits";
				return false;
			}
			out.push_back((std::uint8_t)(hi << 4 | lo));
			i += 2;
		} else {
			err = std::string("unknown escape \\") + c + " (use \\n, \\t, \\\\ or \\xHH)";
			return false;
		}
	}
	return true;
}

bool parse_line(const std::string &raw, Command &cmd, std::string &err)
{
	cmd = Command();
	std::string line = raw;
	if (!line.empty() && line.back() == '\r')
		line.pop_back();
	std::vector<Word> w = split(line);
	if (w.empty())
		return true;
	const std::string &op = w[0].text;
	std::size_t n = w.size();

	if (op == "port") {
		if (n != 3 && !(n == 4 && w[2].text == "vlan"))
			return usage(err, "port NAME wireless|wired, or port NAME vlan LOWER");
		cmd.kind = Cmd::Port;
		cmd.name = w[1].text;
		if (!parse_port_name(cmd.name, err))
			return false;
		if (w[2].text == "wireless" && n == 3) {
			cmd.port_kind = PortKind::Wireless;
		} else if (w[2].text == "wired" && n == 3) {
			cmd.port_kind = PortKind::Wired;
		} else if (w[2].text == "vlan" && n == 4) {
			cmd.port_kind = PortKind::Vlan;
			cmd.name2 = w[3].text;
			if (!parse_port_name(cmd.name2, err))
				return false;
			if (cmd.name2 == cmd.name) {
				err = "a VLAN device cannot sit on itself";
				return false;
			}
		} else {
			return usage(err, "port NAME wireless|wired, or port NAME vlan LOWER");
		}
		return true;
	}
	if (op == "time" || op == "advance") {
		if (n != 2)
			return usage(err, op == "time" ? "time J" : "advance N");
		cmd.kind = op == "time" ? Cmd::Time : Cmd::Advance;
		if (!parse_u64(w[1].text, kMaxJiffies, cmd.num)) {
			err = "'" + w[1].text + "' is not a decimal number of jiffies";
			return false;
		}
		return true;
	}
	if (op == "join" || op == "leave" || op == "event") {
		bool ev = op == "event";
		if (n != (ev ? 4u : 3u))
			return usage(err, ev ? "event CODE MAC VAP"
					     : (op == "join" ? "join MAC VAP" : "leave MAC VAP"));
		cmd.kind = ev ? Cmd::Event : (op == "join" ? Cmd::Join : Cmd::Leave);
		cmd.code = op == "leave" ? 1 : 0;
		if (ev && !parse_s64(w[1].text, INT32_MIN, INT32_MAX, cmd.code)) {
			err = "event code '" + w[1].text + "' is not a 32-bit integer";
			return false;
		}
		const std::string &mac = w[ev ? 2 : 1].text;
		if (!parse_mac(mac, cmd.mac)) {
			err = "'" + mac + "' is not a MAC address (xx:xx:xx:xx:xx:xx)";
			return false;
		}
		cmd.name = w[ev ? 3 : 2].text;
		return true;
	}
	if (op == "rx" || op == "tx" || op == "fwd") {
		bool fwd = op == "fwd";
		if (n != (fwd ? 4u : 3u))
			return usage(err, fwd ? "fwd IN OUT HEX" : (op == "rx" ? "rx PORT HEX" : "tx PORT HEX"));
		cmd.kind = fwd ? Cmd::Fwd : (op == "rx" ? Cmd::Rx : Cmd::Tx);
		cmd.name = w[1].text;
		if (!parse_port_name(cmd.name, err))
			return false;
		if (fwd) {
			cmd.name2 = w[2].text;
			if (!parse_port_name(cmd.name2, err))
				return false;
		}
		if (!parse_hex(w[n - 1].text, cmd.bytes)) {
			err = "the frame is not an even number of hex digits";
			return false;
		}
		return true;
	}
	if (op == "pcap") {
		if (n != 3)
			return usage(err, "pcap FILE PORT");
		cmd.kind = Cmd::Pcap;
		cmd.name = w[1].text;
		cmd.name2 = w[2].text;
		return parse_port_name(cmd.name2, err);
	}
	if (op == "write") {
		if (n < 2)
			return usage(err, "write DEV TEXT");
		cmd.kind = Cmd::Write;
		if (!parse_device(w[1].text, cmd.dev, err))
			return false;
		/* The text is the rest of the line, '#' included. */
		std::size_t b = w[1].pos + w[1].text.size();
		while (b < line.size() && is_blank(line[b]))
			b++;
		std::size_t e = line.size();
		while (e > b && is_blank(line[e - 1]))
			e--;
		return unescape(line.substr(b, e - b), cmd.bytes, err);
	}
	if (op == "read") {
		if (n != 2 && n != 3)
			return usage(err, "read DEV [BUFSIZE]");
		cmd.kind = Cmd::Read;
		cmd.num = 4096;
		if (!parse_device(w[1].text, cmd.dev, err))
			return false;
		if (n == 3 && !parse_u64(w[2].text, kMaxReadSize, cmd.num)) {
			err = "buffer size '" + w[2].text + "' is not a number from 0 to 1048576";
			return false;
		}
		return true;
	}
	if (op == "open" || op == "close") {
		if (n != 2)
			return usage(err, op == "open" ? "open DEV" : "close DEV");
		cmd.kind = op == "open" ? Cmd::Open : Cmd::Close;
		return parse_device(w[1].text, cmd.dev, err);
	}
	if (op == "fail-alloc") {
		if (n != 2)
			return usage(err, "fail-alloc N");
		cmd.kind = Cmd::FailAlloc;
		if (!parse_u64(w[1].text, INT32_MAX, cmd.num)) {
			err = "'" + w[1].text + "' is not a count";
			return false;
		}
		return true;
	}
	if (op == "fail-hook") {
		if (n != 1 && n != 2)
			return usage(err, "fail-hook [ERR]");
		cmd.kind = Cmd::FailHook;
		cmd.code = -12;
		if (n == 2 && !parse_s64(w[1].text, -4095, -1, cmd.code)) {
			err = "'" + w[1].text + "' is not a negative error number";
			return false;
		}
		return true;
	}
	if (op == "unload" || op == "load") {
		if (n != 1)
			return usage(err, op == "load" ? "load" : "unload");
		cmd.kind = op == "load" ? Cmd::Load : Cmd::Unload;
		return true;
	}
	if (op == "sysfs") {
		if (n != 2)
			return usage(err, "sysfs NAME");
		if (w[1].text != kSysfsSummary && w[1].text != kSysfsDump) {
			err = "unknown sysfs attribute '" + w[1].text + "' (" + kSysfsSummary +
			      " or " + kSysfsDump + ")";
			return false;
		}
		cmd.kind = Cmd::Sysfs;
		cmd.name = w[1].text;
		return true;
	}
	err = "unknown command '" + op + "'";
	return false;
}

} // namespace vysim
