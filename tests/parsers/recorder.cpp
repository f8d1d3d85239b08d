// The station table as the parsers see it: the link wraps their five calls
// out, and each is recorded as a line among the log lines.
#include <cstdarg>

#include "host_internal.h"
#include "parser_test.h"

namespace {

Lines g_trace;

void take_logs()
{
	for (const auto &e : vy_host::take_events()) {
		if (e.kind != vy_host::EventKind::Log)
			continue;
		/* "fn[123]:text" -> "fn:text" */
		static const std::regex line("\\[[0-9]+\\]:");
		g_trace.push_back(std::string(1, "EWNID"[e.level - VY_LOG_ERR]) + " " +
				  std::regex_replace(e.text, line, ":"));
	}
}

/* A call, formatted as the log formats its lines. */
s32 record(const char *fmt, ...)
{
	va_list ap;

	va_start(ap, fmt);
	const std::string call = "> " + vy_host::vformat(fmt, ap);
	va_end(ap);
	take_logs();
	g_trace.push_back(call);
	return 0;
}

} // namespace

Lines take_trace()
{
	take_logs();
	Lines t;
	t.swap(g_trace);
	return t;
}

extern "C" {

s32 __wrap_vy_set_sta_dhcp_status(const u8 *mac, u32 status, u8 type, u32 ip, u32 server,
				  u32 gateway, u32 dns, const char *hostname, u8 hostname_len)
{
	return record("dhcp %pM status %u type %u ip %pI4 server %pI4 gateway %pI4 dns %pI4 "
		      "host %s/%u",
		      mac, status, type, &ip, &server, &gateway, &dns, hostname, hostname_len);
}

s32 __wrap_vy_add_sta_domain(const u8 *mac, const char *name, u16 len, u32 sta_ip)
{
	return record("query %pM %s/%u from %pI4", mac, name, len, &sta_ip);
}

s32 __wrap_vy_add_sta_domain_ip(const u8 *mac, const char *name, u16 len, u32 ip)
{
	return record("ip %pM %s/%u %pI4", mac, name, len, &ip);
}

s32 __wrap_vy_add_sta_domain_cname(const u8 *mac, const char *name, u16 len, const char *cname,
				   u16 cname_len)
{
	return record("cname %pM %s/%u %s/%u", mac, name, len, cname, cname_len);
}

s32 __wrap_vy_reject_sta_domain(const u8 *mac, const char *name, u16 len, u8 rcode)
{
	return record("reject %pM %s/%u rcode %u", mac, name, len, rcode);
}

} /* extern "C" */
