// A recording stand-in for the station table: the parsers' five calls out
// are kept, in order, with copies of their arguments.
#ifndef VY_TEST_FAKE_STA_H
#define VY_TEST_FAKE_STA_H

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace fake_sta {

enum class Fn {
	SetDhcpStatus,
	AddDomain,
	AddDomainIp,
	AddDomainCname,
	RejectDomain,
};

using Mac = std::array<std::uint8_t, 6>;

struct Call {
	Fn fn = Fn::AddDomain;
	Mac mac{};
	/* DNS: the name as text (up to its NUL) and the length passed. */
	std::string name;
	std::uint16_t name_len = 0;
	std::string cname;
	std::uint16_t cname_len = 0;
	std::uint8_t rcode = 0;
	/* AddDomain: the station's address; AddDomainIp: the answer;
	 * SetDhcpStatus: the station's address. */
	std::uint32_t ip = 0;
	/* DHCP */
	std::uint32_t status = 0;
	std::uint8_t type = 0;
	std::uint32_t server = 0, gateway = 0, dns = 0;
	std::string hostname; /* the buffer as text, up to its NUL */
	std::uint8_t hostname_len = 0;

	bool operator==(const Call &o) const;
};

void PrintTo(const Call &c, std::ostream *os);

const std::vector<Call> &calls();
void clear();

/* Expected calls, for comparisons. */
Call add_domain(const Mac &mac, const std::string &name, std::uint16_t len,
		std::uint32_t sta_ip);
Call add_domain_ip(const Mac &mac, const std::string &name,
		   std::uint16_t len, std::uint32_t ip);
Call add_domain_cname(const Mac &mac, const std::string &name,
		      std::uint16_t len, const std::string &cname,
		      std::uint16_t cname_len);
Call reject_domain(const Mac &mac, const std::string &name,
		   std::uint16_t len, std::uint8_t rcode);
Call set_dhcp_status(const Mac &mac, std::uint32_t status, std::uint8_t type,
		     std::uint32_t ip, std::uint32_t server,
		     std::uint32_t gateway, std::uint32_t dns,
		     const std::string &hostname, std::uint8_t hostname_len);

} // namespace fake_sta

#endif
