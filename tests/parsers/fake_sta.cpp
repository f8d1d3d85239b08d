// The recording station table, and stops for every entry point the host
// platform may call into the rest of the module: none of them belongs in
// a parser test, so reaching one is a failure of the test itself.
#include "fake_sta.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <tuple>

#include "vy_sta_list.h"

s32 debug_level = 1;

namespace fake_sta {

namespace {

std::vector<Call> g_calls;

Mac mac_of(const u8 *mac)
{
	Mac m{};

	if (mac)
		std::memcpy(m.data(), mac, m.size());
	return m;
}

std::string text_of(const char *s)
{
	return s ? std::string(s) : std::string("(null)");
}

auto tie(const Call &c)
{
	return std::tie(c.fn, c.mac, c.name, c.name_len, c.cname, c.cname_len,
			c.rcode, c.ip, c.status, c.type, c.server, c.gateway,
			c.dns, c.hostname, c.hostname_len);
}

const char *fn_name(Fn f)
{
	switch (f) {
	case Fn::SetDhcpStatus:
		return "vy_set_sta_dhcp_status";
	case Fn::AddDomain:
		return "vy_add_sta_domain";
	case Fn::AddDomainIp:
		return "vy_add_sta_domain_ip";
	case Fn::AddDomainCname:
		return "vy_add_sta_domain_cname";
	case Fn::RejectDomain:
		return "vy_reject_sta_domain";
	}
	return "?";
}

std::string ip_text(std::uint32_t ip)
{
	const auto *b = reinterpret_cast<const std::uint8_t *>(&ip);

	return std::to_string(b[0]) + "." + std::to_string(b[1]) + "." +
	       std::to_string(b[2]) + "." + std::to_string(b[3]);
}

} // namespace

bool Call::operator==(const Call &o) const
{
	return tie(*this) == tie(o);
}

void PrintTo(const Call &c, std::ostream *os)
{
	*os << fn_name(c.fn) << "(mac ";
	for (size_t i = 0; i < c.mac.size(); i++)
		*os << (i ? ":" : "") << std::hex << std::setw(2)
		    << std::setfill('0') << int(c.mac[i]) << std::dec;
	switch (c.fn) {
	case Fn::SetDhcpStatus:
		*os << ", status " << c.status << ", type " << int(c.type)
		    << ", ip " << ip_text(c.ip) << ", server "
		    << ip_text(c.server) << ", gateway " << ip_text(c.gateway)
		    << ", dns " << ip_text(c.dns) << ", hostname \""
		    << c.hostname << "\"/" << int(c.hostname_len);
		break;
	case Fn::AddDomain:
	case Fn::AddDomainIp:
		*os << ", \"" << c.name << "\"/" << c.name_len << ", ip "
		    << ip_text(c.ip);
		break;
	case Fn::AddDomainCname:
		*os << ", \"" << c.name << "\"/" << c.name_len << ", cname \""
		    << c.cname << "\"/" << c.cname_len;
		break;
	case Fn::RejectDomain:
		*os << ", \"" << c.name << "\"/" << c.name_len << ", rcode "
		    << int(c.rcode);
		break;
	}
	*os << ")";
}

const std::vector<Call> &calls()
{
	return g_calls;
}

void clear()
{
	g_calls.clear();
}

Call add_domain(const Mac &mac, const std::string &name, std::uint16_t len,
		std::uint32_t sta_ip)
{
	Call c;

	c.fn = Fn::AddDomain;
	c.mac = mac;
	c.name = name;
	c.name_len = len;
	c.ip = sta_ip;
	return c;
}

Call add_domain_ip(const Mac &mac, const std::string &name,
		   std::uint16_t len, std::uint32_t ip)
{
	Call c = add_domain(mac, name, len, ip);

	c.fn = Fn::AddDomainIp;
	return c;
}

Call add_domain_cname(const Mac &mac, const std::string &name,
		      std::uint16_t len, const std::string &cname,
		      std::uint16_t cname_len)
{
	Call c = add_domain(mac, name, len, 0);

	c.fn = Fn::AddDomainCname;
	c.cname = cname;
	c.cname_len = cname_len;
	return c;
}

Call reject_domain(const Mac &mac, const std::string &name,
		   std::uint16_t len, std::uint8_t rcode)
{
	Call c = add_domain(mac, name, len, 0);

	c.fn = Fn::RejectDomain;
	c.rcode = rcode;
	return c;
}

Call set_dhcp_status(const Mac &mac, std::uint32_t status, std::uint8_t type,
		     std::uint32_t ip, std::uint32_t server,
		     std::uint32_t gateway, std::uint32_t dns,
		     const std::string &hostname, std::uint8_t hostname_len)
{
	Call c;

	c.fn = Fn::SetDhcpStatus;
	c.mac = mac;
	c.status = status;
	c.type = type;
	c.ip = ip;
	c.server = server;
	c.gateway = gateway;
	c.dns = dns;
	c.hostname = hostname;
	c.hostname_len = hostname_len;
	return c;
}

} // namespace fake_sta

using fake_sta::Call;
using fake_sta::Fn;

s32 vy_set_sta_dhcp_status(const u8 *mac, u32 status, u8 type, u32 ip,
			   u32 server_ip, u32 gateway_ip, u32 dns_ip,
			   const char *hostname, u8 hostname_len)
{
	fake_sta::g_calls.push_back(fake_sta::set_dhcp_status(
		fake_sta::mac_of(mac), status, type, ip, server_ip, gateway_ip,
		dns_ip, fake_sta::text_of(hostname), hostname_len));
	return 0;
}

s32 vy_add_sta_domain(const u8 *mac, const char *name, u16 name_len,
		      u32 sta_ip)
{
	fake_sta::g_calls.push_back(fake_sta::add_domain(
		fake_sta::mac_of(mac), fake_sta::text_of(name), name_len,
		sta_ip));
	return 0;
}

s32 vy_add_sta_domain_ip(const u8 *mac, const char *name, u16 name_len,
			 u32 ip)
{
	fake_sta::g_calls.push_back(fake_sta::add_domain_ip(
		fake_sta::mac_of(mac), fake_sta::text_of(name), name_len, ip));
	return 0;
}

s32 vy_add_sta_domain_cname(const u8 *mac, const char *name, u16 name_len,
			    const char *cname, u16 cname_len)
{
	fake_sta::g_calls.push_back(fake_sta::add_domain_cname(
		fake_sta::mac_of(mac), fake_sta::text_of(name), name_len,
		fake_sta::text_of(cname), cname_len));
	return 0;
}

s32 vy_reject_sta_domain(const u8 *mac, const char *name, u16 name_len,
			 u8 rcode)
{
	fake_sta::g_calls.push_back(fake_sta::reject_domain(
		fake_sta::mac_of(mac), fake_sta::text_of(name), name_len,
		rcode));
	return 0;
}

/* ---- entry points of the rest of the module ---------------------------- */

[[noreturn]] static void not_in_parser_tests(const char *fn)
{
	std::fprintf(stderr, "%s called in a parser test\n", fn);
	std::abort();
}

void vy_hook_work_fn(void)
{
	not_in_parser_tests(__func__);
}

unsigned int vy_br_pre_routing_hook(void *, vy_skb *, const vy_hook_state *)
{
	not_in_parser_tests(__func__);
}

unsigned int vy_br_post_routing_hook(void *, vy_skb *, const vy_hook_state *)
{
	not_in_parser_tests(__func__);
}

int vy_sta_evt_cb(vy_s32, const void *)
{
	not_in_parser_tests(__func__);
}

int vy_dump_dev_open(vy_file *)
{
	not_in_parser_tests(__func__);
}

int vy_summary_dev_open(vy_file *)
{
	not_in_parser_tests(__func__);
}

long vy_dump_dev_read(vy_file *, void *, vy_size)
{
	not_in_parser_tests(__func__);
}

long vy_dump_dev_write(vy_file *, const void *, vy_size)
{
	not_in_parser_tests(__func__);
}

int vy_dump_dev_release(vy_file *)
{
	not_in_parser_tests(__func__);
}

long vy_sysfs_show(int, char *)
{
	not_in_parser_tests(__func__);
}

int veyra_init(void)
{
	not_in_parser_tests(__func__);
}

void veyra_exit(void)
{
	not_in_parser_tests(__func__);
}
