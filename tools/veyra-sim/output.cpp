// SPDX-License-Identifier: GPL-2.0
#include "output.h"

#include "vy_platform.h"

namespace vysim {

namespace {

std::string hex2(unsigned v)
{
	static const char digits[] = "0123456789abcdef";
	std::string s = "\\x";
	s += digits[(v >> 4) & 15];
	s += digits[v & 15];
	return s;
}

/* Log text stays on one line, as dmesg shows it: control bytes become
 * \xHH, everything else is kept as the module formatted it. */
std::string log_text(const std::string &s)
{
	std::string out;
	for (unsigned char c : s) {
		if (c < 0x20 || c == 0x7f)
			out += hex2(c);
		else
			out += (char)c;
	}
	return out;
}

std::string num(long long v)
{
	return std::to_string(v);
}

std::string unum(unsigned long long v)
{
	return std::to_string(v);
}

} // namespace

const char *level_name(int level)
{
	switch (level) {
	case VY_LOG_ERR: return "err";
	case VY_LOG_WARNING: return "warning";
	case VY_LOG_NOTICE: return "notice";
	case VY_LOG_INFO: return "info";
	case VY_LOG_DEBUG: return "debug";
	default: return "default";
	}
}

std::string ipv4(std::uint32_t net_order)
{
	const unsigned char *b = reinterpret_cast<const unsigned char *>(&net_order);
	return unum(b[0]) + "." + unum(b[1]) + "." + unum(b[2]) + "." + unum(b[3]);
}

std::string mac_text(const std::uint8_t mac[6])
{
	char buf[18];
	std::snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
		      mac[2], mac[3], mac[4], mac[5]);
	return buf;
}

std::string escape_text(const std::string &s)
{
	std::string out;
	for (unsigned char c : s) {
		if (c == '"' || c == '\\') {
			out += '\\';
			out += (char)c;
		} else if (c < 0x20 || c >= 0x7f) {
			out += hex2(c);
		} else {
			out += (char)c;
		}
	}
	return out;
}

std::string json_string(const std::string &s)
{
	std::string out = "\"";
	for (unsigned char c : s) {
		switch (c) {
		case '"': out += "\\\""; break;
		case '\\': out += "\\\\"; break;
		case '\n': out += "\\n"; break;
		case '\t': out += "\\t"; break;
		case '\r': out += "\\r"; break;
		default:
			if (c < 0x20 || c >= 0x7f) {
				char buf[8];
				std::snprintf(buf, sizeof(buf), "\\u%04x", c);
				out += buf;
			} else {
				out += (char)c;
			}
		}
	}
	return out + "\"";
}

void Printer::line(const std::string &s)
{
	std::fwrite(s.data(), 1, s.size(), out_);
	std::fputc('\n', out_);
}

void Printer::event(const vy_host::Event &e)
{
	using vy_host::EventKind;
	std::string j = unum(e.jiffies);
	std::string hostname = e.hostname.substr(0, e.hostname_len);

	if (json_) {
		std::string o = "{\"jiffies\":" + j + ",\"event\":";
		switch (e.kind) {
		case EventKind::Log:
			o += "\"log\",\"level\":\"" + std::string(level_name(e.level)) +
			     "\",\"text\":" + json_string(e.text);
			break;
		case EventKind::NotifyDhcp:
			o += "\"notify_sta_dhcp\",\"vap\":" + json_string(e.vap) +
			     ",\"sta\":\"" + mac_text(e.mac) + "\",\"status\":" + num(e.status) +
			     ",\"reason\":" + num(e.reason) + ",\"hostname\":" +
			     json_string(hostname) + ",\"hostname_len\":" + num(e.hostname_len) +
			     ",\"ip\":\"" + ipv4(e.ip) + "\",\"type\":" + num(e.type) +
			     ",\"server\":\"" + ipv4(e.server) + "\",\"gateway\":\"" +
			     ipv4(e.gateway) + "\",\"latency\":" + unum(e.latency);
			break;
		case EventKind::NotifyDns:
			o += "\"notify_sta_dns\",\"vap\":" + json_string(e.vap) + ",\"sta\":\"" +
			     mac_text(e.mac) + "\",\"status\":" + num(e.status) +
			     ",\"dns_server\":\"" + ipv4(e.dns_server) + "\",\"latency\":" +
			     unum(e.latency);
			break;
		case EventKind::HooksRegistered:
			o += "\"hooks_registered\"";
			break;
		case EventKind::HooksUnregistered:
			o += "\"hooks_unregistered\"";
			break;
		case EventKind::HookRegistrationFailed:
			o += "\"hook_registration_failed\"";
			break;
		}
		line(o + "}");
		return;
	}

	std::string o = "[" + j + "] ";
	switch (e.kind) {
	case EventKind::Log:
		o += "log " + std::string(level_name(e.level)) + " " + log_text(e.text);
		break;
	case EventKind::NotifyDhcp:
		o += "notify_sta_dhcp vap=" + escape_text(e.vap) + " sta=" + mac_text(e.mac) +
		     " status=" + num(e.status) + " reason=" + num(e.reason) +
		     " hostname=\"" + escape_text(hostname) + "\" hostname_len=" +
		     num(e.hostname_len) + " ip=" + ipv4(e.ip) + " type=" + num(e.type) +
		     " server=" + ipv4(e.server) + " gateway=" + ipv4(e.gateway) +
		     " latency=" + unum(e.latency);
		break;
	case EventKind::NotifyDns:
		o += "notify_sta_dns vap=" + escape_text(e.vap) + " sta=" + mac_text(e.mac) +
		     " status=" + num(e.status) + " dns_server=" + ipv4(e.dns_server) +
		     " latency=" + unum(e.latency);
		break;
	case EventKind::HooksRegistered:
		o += "hooks registered";
		break;
	case EventKind::HooksUnregistered:
		o += "hooks unregistered";
		break;
	case EventKind::HookRegistrationFailed:
		o += "hook registration failed";
		break;
	}
	line(o);
}

void Printer::read_result(unsigned long j, const char *dev, const std::string &data)
{
	if (json_) {
		line("{\"jiffies\":" + unum(j) + ",\"event\":\"read\",\"dev\":\"" + dev +
		     "\",\"data\":" + json_string(data) + ",\"bytes\":" + unum(data.size()) + "}");
		return;
	}
	line("[" + unum(j) + "] read " + dev);
	std::fwrite(data.data(), 1, data.size(), out_);
	if (!data.empty() && data.back() != '\n')
		std::fputc('\n', out_);
	line("[" + unum(j) + "] end read " + dev + " " + unum(data.size()));
}

void Printer::open_failed(unsigned long j, const char *dev, int err)
{
	if (json_)
		line("{\"jiffies\":" + unum(j) + ",\"event\":\"open_failed\",\"dev\":\"" + dev +
		     "\",\"error\":" + num(err) + "}");
	else
		line("[" + unum(j) + "] open " + dev + " failed " + num(err));
}

void Printer::write_result(unsigned long j, const char *dev, long res)
{
	if (json_)
		line("{\"jiffies\":" + unum(j) + ",\"event\":\"write\",\"dev\":\"" + dev +
		     "\",\"returned\":" + num(res) + "}");
	else
		line("[" + unum(j) + "] write " + dev + " returned " + num(res));
}

void Printer::sysfs(unsigned long j, const std::string &name, bool present,
		    const std::string &value)
{
	std::string v = value;
	if (!v.empty() && v.back() == '\n')
		v.pop_back();
	if (json_)
		line("{\"jiffies\":" + unum(j) + ",\"event\":\"sysfs\",\"name\":\"" + name +
		     "\",\"value\":" + (present ? json_string(v) : std::string("null")) + "}");
	else
		line("[" + unum(j) + "] sysfs " + name + " " +
		     (present ? escape_text(v) : std::string("(absent)")));
}

void Printer::leaked(unsigned long j, long n)
{
	if (json_)
		line("{\"jiffies\":" + unum(j) + ",\"event\":\"leaked\",\"count\":" + num(n) + "}");
	else
		line("[" + unum(j) + "] leaked " + num(n));
}

} // namespace vysim
