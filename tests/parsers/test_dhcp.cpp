// The DHCP parser: size range and cookie, the option walk (repeats, pad
// and end, options cut short by the payload), and the outcome of every
// message type in each direction. Checks the exact call on the station
// table and the exact log lines.
#include <optional>

#include "parser_test.h"
#include "vy_dhcp.h"

namespace {

using fake_sta::Call;
using msg::Bytes;
using msg::Dhcp;
using msg::Ip;
using msg::ip_value;

const fake_sta::Mac kMac{0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0x0e};
const std::string kMacText = "02:aa:bb:cc:dd:0e";
const Ip kCi{10, 0, 0, 11}, kYi{10, 0, 0, 22}, kReq{10, 0, 0, 33};
const Ip kSrv{10, 0, 0, 1}, kGw{10, 0, 0, 254}, kDns{10, 0, 0, 53};
const Ip kZero{0, 0, 0, 0};

enum : u8 {
	DISCOVER = 1, OFFER, REQUEST, DECLINE, ACK, NACK, RELEASE, INFORM,
};
enum : u8 { FROM_STA = 0, TO_STA = 1 };

const std::string kDbg = "D vy_parse_dhcp:";

std::string text(const Ip &ip)
{
	return std::to_string(ip[0]) + "." + std::to_string(ip[1]) + "." +
	       std::to_string(ip[2]) + "." + std::to_string(ip[3]);
}

/* The notice that follows every hand-over. */
std::string notice(const std::string &type, const std::string &host,
		   unsigned host_len, const Ip &ip, const Ip &server = kSrv,
		   const Ip &gw = kGw)
{
	return "N vy_parse_dhcp:receive " + type + ". STA " + host +
	       ", hostname_len: " + std::to_string(host_len) + ", mac: " +
	       kMacText + ", ip: " + text(ip) + ", dhcp server: " +
	       text(server) + ", gateway: " + text(gw);
}

Call handed(u32 status, u8 type, const Ip &ip, const std::string &host = "sta1",
	    u8 host_len = 4, const Ip &server = kSrv, const Ip &gw = kGw,
	    const Ip &dns = kDns)
{
	return fake_sta::set_dhcp_status(kMac, status, type, ip_value(ip),
					 ip_value(server), ip_value(gw),
					 ip_value(dns), host, host_len);
}

Dhcp base()
{
	Dhcp d;

	d.chaddr(kMac).ciaddr(kCi).yiaddr(kYi);
	return d;
}

/* The options the parser collects, then END and the usual zero padding. */
Dhcp &collected(Dhcp &d, bool with_requested = true)
{
	if (with_requested)
		d.addr_option(msg::kOptRequestedIp, kReq);
	d.addr_option(msg::kOptServerId, kSrv)
		.addr_option(msg::kOptRouter, kGw)
		.addr_option(msg::kOptDns, kDns)
		.hostname("sta1")
		.raw({msg::kOptEnd})
		.pad_to(300);
	return d;
}

/* A message of a type with every option the parser collects. */
Dhcp full(u8 type, bool with_requested = true)
{
	Dhcp d = base();

	d.type(type);
	return collected(d, with_requested);
}

struct DhcpCase {
	std::string what;
	Bytes m;
	u8 to_wireless;
	s32 result;
	std::optional<Call> call;
	std::vector<std::string> logs;
};

void PrintTo(const DhcpCase &c, std::ostream *os)
{
	*os << c.what;
}

const char *const kTypeNames[] = {"",	      "DHCPDISCOVER", "DHCPOFFER",
				  "DHCPREQUEST", "DHCPDECLINE",  "DHCPACK",
				  "DHCPNACK",	  "DHCPRELEASE",  "DHCPINFORM"};

/* A message of a type handed on with a status and station address. */
DhcpCase accepted(const std::string &what, const Dhcp &d, u8 dir, u8 type,
		  u32 status, const Ip &ip,
		  std::vector<std::string> before = {})
{
	before.push_back(notice(type <= 8 ? kTypeNames[type] : "UNKNOWN",
				"sta1", 4, ip));
	return {what, d.build(), dir, 0, handed(status, type, ip), before};
}

DhcpCase dropped(const std::string &what, u8 type, u8 dir,
		 const std::string &line)
{
	return {what, full(type).build(), dir, 0, std::nullopt,
		{kDbg + line}};
}

std::vector<DhcpCase> cases()
{
	std::vector<DhcpCase> v;

	/* ---- outcome by type and direction ---- */
	for (u8 dir : {FROM_STA, TO_STA}) {
		const std::string d = dir ? "_to_sta" : "_from_sta";

		v.push_back(accepted("decline" + d, full(DECLINE), dir, DECLINE,
				     0, kReq));
		v.push_back(accepted("nack" + d, full(NACK), dir, NACK, 2, kReq));
		v.push_back(accepted("release" + d, full(RELEASE), dir, RELEASE,
				     0, kReq));
		v.push_back(accepted("inform" + d, full(INFORM), dir, INFORM, 3,
				     kReq));
		v.push_back(accepted("type_9" + d, full(9), dir, 9, 3, kReq));
	}
	v.push_back(accepted("discover", full(DISCOVER), FROM_STA, DISCOVER, 0,
			     kReq));
	v.push_back(accepted("discover_without_requested_address",
			     full(DISCOVER, false), FROM_STA, DISCOVER, 0,
			     kZero));
	v.push_back(dropped("discover_to_sta", DISCOVER, TO_STA,
			    "receive DHCP DISCOVER which goes to a wireless interface."));
	v.push_back(accepted("offer", full(OFFER), TO_STA, OFFER, 0, kYi));
	v.push_back(dropped("offer_from_sta", OFFER, FROM_STA,
			    "receive DHCP OFFER which goes from a wireless interface."));
	v.push_back(accepted("request_with_requested_address", full(REQUEST),
			     FROM_STA, REQUEST, 0, kReq));
	v.push_back(accepted("request_without_requested_address",
			     full(REQUEST, false), FROM_STA, REQUEST, 0, kCi));
	{
		Dhcp d = base();
		d.type(REQUEST)
			.addr_option(msg::kOptRequestedIp, kZero)
			.addr_option(msg::kOptServerId, kSrv)
			.addr_option(msg::kOptRouter, kGw)
			.addr_option(msg::kOptDns, kDns)
			.hostname("sta1");
		v.push_back(accepted("request_with_requested_address_zero", d,
				     FROM_STA, REQUEST, 0, kCi));
	}
	v.push_back(dropped("request_to_sta", REQUEST, TO_STA,
			    "receive DHCP REQUEST which goes to a wireless interface."));
	v.push_back(accepted("ack", full(ACK), TO_STA, ACK, 1, kYi));
	{
		Dhcp d = full(ACK);
		d.yiaddr(kZero);
		v.push_back(accepted("ack_without_address", d, TO_STA, ACK, 3,
				     kZero));
	}
	v.push_back(dropped("ack_from_sta", ACK, FROM_STA,
			    "receive DHCP ACK which goes from a wireless interface."));
	v.push_back(accepted("type_200_is_unknown", full(200), FROM_STA, 200, 3,
			     kReq));

	/* ---- size range and cookie ---- */
	{
		Dhcp d = base();
		Bytes m = d.build();
		m.resize(239);
		v.push_back({"size_239", m, FROM_STA, -1, std::nullopt,
			     {kDbg + "invalid option length. dhcp_len = 239, "
				     "sizeof(dhcp_packet_t) = 240, option_length -1"}});
	}
	v.push_back({"size_553", full(DISCOVER).pad_to(553).build(), FROM_STA,
		     -1, std::nullopt,
		     {kDbg + "invalid option length. dhcp_len = 553, "
			     "sizeof(dhcp_packet_t) = 240, option_length 313"}});
	v.push_back({"size_0", Bytes(), FROM_STA, -1, std::nullopt,
		     {kDbg + "invalid option length. dhcp_len = 0, "
			     "sizeof(dhcp_packet_t) = 240, option_length -240"}});
	v.push_back({"size_240_no_options", base().build(), FROM_STA, 0,
		     handed(3, 0, kZero, "", 0, kZero, kZero, kZero),
		     {notice("", "", 0, kZero, kZero, kZero)}});
	v.push_back(accepted("size_552", full(DISCOVER).pad_to(552), FROM_STA,
			     DISCOVER, 0, kReq));
	{
		/* Options up to the very last byte of the largest message. */
		Dhcp d = base();
		d.type(DISCOVER)
			.addr_option(msg::kOptRequestedIp, kReq)
			.addr_option(msg::kOptServerId, kSrv)
			.addr_option(msg::kOptRouter, kGw)
			.addr_option(msg::kOptDns, kDns)
			.hostname("sta1")
			.pad_to(msg::kDhcpMax - 6)
			.addr_option(msg::kOptRouter, kGw);
		EXPECT_EQ(d.size(), msg::kDhcpMax);
		v.push_back(accepted("option_ends_at_552", d, FROM_STA, DISCOVER, 0,
				     kReq));
	}
	v.push_back({"bad_cookie",
		     full(DISCOVER).cookie({0x63, 0x82, 0x53, 0x64}).build(),
		     FROM_STA, -1, std::nullopt,
		     {kDbg + "not dhcp magic cookie. pkt magic_cookie = 63 82 53 64, "
			     "dhcp magic_cookie = 63 82 53 63"}});

	/* ---- options ---- */
	{
		Dhcp d = base();
		d.type(DISCOVER)
			.addr_option(msg::kOptServerId, {9, 9, 9, 9})
			.hostname("sta1")
			.addr_option(msg::kOptServerId, kSrv)
			.type(RELEASE)
			.addr_option(msg::kOptRouter, kGw)
			.addr_option(msg::kOptDns, kDns)
			.addr_option(msg::kOptRequestedIp, kReq);
		v.push_back(accepted("repeated_options_last_wins", d, TO_STA,
				     RELEASE, 0, kReq));
	}
	{
		Dhcp d = base();
		d.type(DISCOVER).option(msg::kOptMessageType, {NACK, NACK});
		v.push_back(accepted("type_option_of_length_2_ignored",
				     collected(d), FROM_STA, DISCOVER, 0, kReq,
				     {kDbg + "invalid dhcp option: MESSAGE_TYPE(53) "
					     "len = 2 (should be 1)"}));
	}
	{
		Dhcp d = base();
		d.option(msg::kOptMessageType, {NACK, NACK})
			.addr_option(msg::kOptServerId, kSrv);
		v.push_back({"only_type_option_of_length_2", d.build(), FROM_STA,
			     0, handed(3, 0, kZero, "", 0, kSrv, kZero, kZero),
			     {kDbg + "invalid dhcp option: MESSAGE_TYPE(53) len = 2 "
				     "(should be 1)",
			      notice("", "", 0, kZero, kSrv, kZero)}});
	}
	{
		/* A last option of length 0 ends exactly at the message end. */
		Dhcp d = base();
		d.type(DISCOVER).option(msg::kOptHostname, {});
		v.push_back({"zero_length_last_option", d.build(), FROM_STA, 0,
			     handed(0, DISCOVER, kZero, "", 0, kZero, kZero, kZero),
			     {notice("DHCPDISCOVER", "", 0, kZero, kZero, kZero)}});
	}
	{
		const std::string h64(64, 'h');
		Dhcp d = base();
		d.type(DISCOVER).hostname(h64);
		v.push_back({"hostname_of_64", d.build(), FROM_STA, 0,
			     handed(0, DISCOVER, kZero, h64, 64, kZero, kZero,
				    kZero),
			     {notice("DHCPDISCOVER", h64, 64, kZero, kZero,
				     kZero)}});
	}
	{
		Dhcp d = base();
		d.type(DISCOVER).hostname("first").hostname(std::string(65, 'h'));
		v.push_back({"hostname_of_65_ignored", d.build(), FROM_STA, 0,
			     handed(0, DISCOVER, kZero, "first", 5, kZero, kZero,
				    kZero),
			     {kDbg + "invalid dhcp option: hostname len 65 >= 65",
			      notice("DHCPDISCOVER", "first", 5, kZero, kZero,
				     kZero)}});
	}
	{
		Dhcp d = base();
		d.type(DISCOVER).hostname("abcdef").hostname("xy");
		v.push_back({"shorter_hostname_overwrites_the_start", d.build(),
			     FROM_STA, 0,
			     handed(0, DISCOVER, kZero, "xycdef", 2, kZero,
				    kZero, kZero),
			     {notice("DHCPDISCOVER", "xycdef", 2, kZero, kZero,
				     kZero)}});
	}
	{
		Dhcp d = base();
		d.type(ACK)
			.option(msg::kOptRouter, {10, 0, 0, 254, 10, 0, 0, 253})
			.option(msg::kOptDns, {10, 0, 0, 53, 8, 8, 8, 8})
			.addr_option(msg::kOptServerId, kSrv)
			.addr_option(msg::kOptRequestedIp, kReq)
			.hostname("sta1");
		v.push_back(accepted("two_routers_and_servers_give_the_first", d,
				     TO_STA, ACK, 1, kYi));
	}
	{
		/* An address option's length byte is not examined: its first
		 * four bytes are taken, then the walk skips the length. */
		Dhcp d = base();
		d.type(DISCOVER).raw({msg::kOptRequestedIp, 2, 10, 9, 0, 0,
				      msg::kOptEnd});
		v.push_back({"address_option_length_not_examined", d.build(),
			     FROM_STA, 0,
			     handed(0, DISCOVER, {10, 9, 0, 0}, "", 0, kZero,
				    kZero, kZero),
			     {notice("DHCPDISCOVER", "", 0, {10, 9, 0, 0}, kZero,
				     kZero)}});
	}
	{
		Dhcp d = base();
		d.raw({msg::kOptPad})
			.type(DISCOVER)
			.raw({msg::kOptPad, msg::kOptPad, msg::kOptPad})
			.addr_option(msg::kOptServerId, kSrv)
			.raw({msg::kOptPad})
			.hostname("sta1");
		v.push_back({"pad_is_one_byte", d.build(), FROM_STA, 0,
			     handed(0, DISCOVER, kZero, "sta1", 4, kSrv, kZero,
				    kZero),
			     {notice("DHCPDISCOVER", "sta1", 4, kZero, kSrv,
				     kZero)}});
	}
	{
		Dhcp d = base();
		d.type(DISCOVER)
			.raw({msg::kOptEnd})
			.hostname("late")
			.addr_option(msg::kOptServerId, kSrv);
		v.push_back({"end_ends_the_walk", d.build(), FROM_STA, 0,
			     handed(0, DISCOVER, kZero, "", 0, kZero, kZero,
				    kZero),
			     {notice("DHCPDISCOVER", "", 0, kZero, kZero, kZero)}});
	}

	/* ---- the last option cut short by the payload ---- */
	struct Cut {
		const char *what;
		Bytes tail;
		int code; /* -1: no message (nothing of it is read) */
	};
	const Cut cuts[] = {
		{"cut_length_byte", {msg::kOptServerId}, msg::kOptServerId},
		{"cut_address", {msg::kOptServerId, 4, 1, 2}, msg::kOptServerId},
		{"cut_address_short_length", {msg::kOptRouter, 1, 1, 2},
		 msg::kOptRouter},
		{"cut_type_byte", {msg::kOptMessageType, 1},
		 msg::kOptMessageType},
		{"cut_hostname", {msg::kOptHostname, 5, 'a', 'b'},
		 msg::kOptHostname},
		{"cut_unknown_option", {77, 10, 1}, -1},
		/* the longest name that is kept, with two of its bytes */
		{"cut_hostname_of_64", {msg::kOptHostname, 64, 'a', 'b'},
		 msg::kOptHostname},
	};
	for (const Cut &c : cuts) {
		Dhcp d = base();
		d.type(DISCOVER)
			.addr_option(msg::kOptServerId, kSrv)
			.hostname("sta1");
		const size_t at = d.size() - msg::kDhcpFixed;
		d.raw(c.tail);
		std::vector<std::string> logs;
		if (c.code >= 0)
			logs.push_back(kDbg + "dhcp option " +
				       std::to_string(c.code) +
				       " cut short at option offset " +
				       std::to_string(at) + " (option length " +
				       std::to_string(at + c.tail.size()) + ")");
		logs.push_back(notice("DHCPDISCOVER", "sta1", 4, kZero, kSrv,
				      kZero));
		v.push_back({c.what, d.build(), FROM_STA, 0,
			     handed(0, DISCOVER, kZero, "sta1", 4, kSrv, kZero,
				    kZero),
			     logs});
	}
	return v;
}

class DhcpMessage : public ParserTest,
		    public ::testing::WithParamInterface<DhcpCase> {};

TEST_P(DhcpMessage, CallAndLogs)
{
	const DhcpCase &c = GetParam();
	Heap h(c.m);

	EXPECT_EQ(vy_parse_dhcp(h.data(), h.size(), c.to_wireless), c.result);
	if (c.call)
		EXPECT_EQ(calls(), std::vector<Call>{*c.call});
	else
		EXPECT_TRUE(calls().empty());
	EXPECT_EQ(logs(), c.logs);
}

INSTANTIATE_TEST_SUITE_P(DhcpMessages, DhcpMessage, ::testing::ValuesIn(cases()),
			 [](const auto &info) { return info.param.what; });

TEST_F(ParserTest, DhcpRefusesMissingPayload)
{
	EXPECT_EQ(vy_parse_dhcp(nullptr, 300, 0), -1);
	EXPECT_TRUE(calls().empty());
	EXPECT_EQ(logs(), std::vector<std::string>{
				  "W vy_parse_dhcp:invalid parameters. (payload = " +
				  ptr(nullptr) + ")"});
}

/* The notice needs debug_level 2, the rest of the lines 4; the call is
 * made whatever the level. */
TEST_F(ParserTest, DhcpLinesFollowTheDebugLevel)
{
	const Bytes m = full(NACK).option(msg::kOptMessageType, {1, 2}).build();
	Heap h(m);

	for (s32 level : {0, 1, 2, 3}) {
		debug_level = level;
		fake_sta::clear();
		EXPECT_EQ(vy_parse_dhcp(h.data(), h.size(), FROM_STA), 0);
		EXPECT_EQ(calls(), std::vector<Call>{handed(2, NACK, kReq)});
		std::vector<std::string> want;
		if (level >= 2)
			want.push_back(notice("DHCPNACK", "sta1", 4, kReq));
		EXPECT_EQ(logs(), want) << "debug_level " << level;
	}
}

} // namespace
