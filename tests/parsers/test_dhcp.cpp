// The DHCP parser: size range and cookie, the option walk (repeats, pad
// and end, options cut short by the payload), and the outcome of every
// message type in each direction. Each row lists the exact log lines and
// the station table call, in order.
#include "parser_test.h"
#include "vy_dhcp.h"

namespace {

using namespace msg;

const Mac kMac{0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0x0e};
const Ip kCi{10, 0, 0, 11}, kYi{10, 0, 0, 22}, kReq{10, 0, 0, 33};
const Ip kSrv{10, 0, 0, 1}, kGw{10, 0, 0, 254}, kDns{10, 0, 0, 53}, k0{0, 0, 0, 0};

enum : u8 { DISCOVER = 1, OFFER, REQUEST, DECLINE, ACK, NACK, RELEASE, INFORM };
enum : u8 { FROM_STA = 0, TO_STA = 1 };
enum : u32 { UNKNOWN = 0, OK = 1, FAIL = 2, INVALID = 3 };

const std::string kDbg = "D vy_parse_dhcp:";

/* What the station table is handed: the call, then the notice about it. */
struct Handed {
	u32 status;
	u8 type;
	Ip ip;
	std::string host = "sta1";
	Ip server = kSrv, gw = kGw, dns = kDns;
	int host_len = -1; /* the host name's size unless set */
};

Lines handed(const Handed &h)
{
	static const char *const names[] = {"", "DHCPDISCOVER", "DHCPOFFER", "DHCPREQUEST",
					    "DHCPDECLINE", "DHCPACK", "DHCPNACK",
					    "DHCPRELEASE", "DHCPINFORM"};
	const std::string len =
		std::to_string(h.host_len < 0 ? h.host.size() : size_t(h.host_len));
	return {"> dhcp 02:aa:bb:cc:dd:0e status " + std::to_string(h.status) + " type " +
			std::to_string(h.type) + " ip " + text(h.ip) + " server " +
			text(h.server) + " gateway " + text(h.gw) + " dns " + text(h.dns) +
			" host " + h.host + "/" + len,
		"N vy_parse_dhcp:receive " +
			std::string(h.type <= INFORM ? names[h.type] : "UNKNOWN") + ". STA " +
			h.host + ", hostname_len: " + len + ", mac: 02:aa:bb:cc:dd:0e, ip: " +
			text(h.ip) + ", dhcp server: " + text(h.server) +
			", gateway: " + text(h.gw)};
}

/* A bare message: addresses but no options. */
Dhcp base()
{
	return Dhcp().chaddr(kMac).ciaddr(kCi).yiaddr(kYi);
}

/* The options the parser collects, without END. */
Dhcp collected(Dhcp d)
{
	return d.addr_option(kOptRequestedIp, kReq).addr_option(kOptServerId, kSrv)
		.addr_option(kOptRouter, kGw).addr_option(kOptDns, kDns).hostname("sta1");
}

/* A message of a type with them, END and the usual zero padding. */
Dhcp full(u8 type)
{
	return collected(base().type(type)).raw({kOptEnd}).pad_to(300);
}

Lines size_line(int len)
{
	return {kDbg + "invalid option length. dhcp_len = " + std::to_string(len) +
		", sizeof(dhcp_packet_t) = 240, option_length " + std::to_string(len - 240)};
}

Lines wrong_way(const std::string &type, const char *way)
{
	return {kDbg + "receive DHCP " + type + " which goes " + way + " a wireless interface."};
}

const std::string h64(64, 'h');

const Row<Bytes> kRows[] = {
	/* ---- outcome by type and direction ---- */
	{"discover", full(DISCOVER).build(), FROM_STA, 0, handed({UNKNOWN, DISCOVER, kReq})},
	{"discover_to_sta", full(DISCOVER).build(), TO_STA, 0, wrong_way("DISCOVER", "to")},
	{"offer", full(OFFER).build(), TO_STA, 0, handed({UNKNOWN, OFFER, kYi})},
	{"offer_from_sta", full(OFFER).build(), FROM_STA, 0, wrong_way("OFFER", "from")},
	{"request_with_requested_address", full(REQUEST).build(), FROM_STA, 0,
	 handed({UNKNOWN, REQUEST, kReq})},
	{"request_without_requested_address", base().type(REQUEST).hostname("sta1").build(),
	 FROM_STA, 0, handed({UNKNOWN, REQUEST, kCi, "sta1", k0, k0, k0})},
	{"request_to_sta", full(REQUEST).build(), TO_STA, 0, wrong_way("REQUEST", "to")},
	{"ack", full(ACK).build(), TO_STA, 0, handed({OK, ACK, kYi})},
	/* an ACK without an address answers an INFORM */
	{"ack_without_address", full(ACK).yiaddr(k0).build(), TO_STA, 0,
	 handed({INVALID, ACK, k0})},
	{"ack_from_sta", full(ACK).build(), FROM_STA, 0, wrong_way("ACK", "from")},

	/* ---- size range and cookie ---- */
	{"size_239", Bytes(239, 1), FROM_STA, -1, size_line(239)},
	{"size_240_no_options", base().build(), FROM_STA, 0,
	 handed({INVALID, 0, k0, "", k0, k0, k0})},
	{"size_552", full(DISCOVER).pad_to(552).build(), FROM_STA, 0,
	 handed({UNKNOWN, DISCOVER, kReq})},
	{"size_553", full(DISCOVER).pad_to(553).build(), FROM_STA, -1, size_line(553)},
	{"bad_cookie", full(DISCOVER).cookie({0x63, 0x82, 0x53, 0x64}).build(), FROM_STA, -1,
	 {kDbg + "not dhcp magic cookie. pkt magic_cookie = 63 82 53 64, "
		 "dhcp magic_cookie = 63 82 53 63"}},

	/* ---- options ---- */
	{"repeated_options_last_wins",
	 base().type(DISCOVER).addr_option(kOptServerId, {9, 9, 9, 9}).hostname("sta1")
		 .addr_option(kOptServerId, kSrv).type(RELEASE).addr_option(kOptRouter, kGw)
		 .addr_option(kOptDns, kDns).addr_option(kOptRequestedIp, kReq).build(),
	 TO_STA, 0, handed({UNKNOWN, RELEASE, kReq})},
	{"type_option_of_length_2_ignored",
	 collected(base().type(DISCOVER).option(kOptMessageType, {NACK, NACK})).build(), FROM_STA,
	 0, Lines{kDbg + "invalid dhcp option: MESSAGE_TYPE(53) len = 2 (should be 1)"} +
		    handed({UNKNOWN, DISCOVER, kReq})},
	/* a last option of length 0 ends exactly at the message end */
	{"zero_length_last_option", base().type(DISCOVER).option(kOptHostname, {}).build(),
	 FROM_STA, 0, handed({UNKNOWN, DISCOVER, k0, "", k0, k0, k0})},
	{"hostname_of_64", base().type(DISCOVER).hostname(h64).build(), FROM_STA, 0,
	 handed({UNKNOWN, DISCOVER, k0, h64, k0, k0, k0})},
	{"hostname_of_65_ignored",
	 base().type(DISCOVER).hostname("first").hostname(std::string(65, 'h')).build(),
	 FROM_STA, 0,
	 Lines{kDbg + "invalid dhcp option: hostname len 65 >= 65"} +
		 handed({UNKNOWN, DISCOVER, k0, "first", k0, k0, k0})},
	/* the first router and server listed */
	{"two_routers_and_servers_give_the_first",
	 base().type(ACK).option(kOptRouter, {10, 0, 0, 254, 10, 0, 0, 253})
		 .option(kOptDns, {10, 0, 0, 53, 8, 8, 8, 8}).build(),
	 TO_STA, 0, handed({OK, ACK, kYi, "", k0, kGw, kDns})},
	/* a shorter name overwrites the start of the one before */
	{"shorter_hostname_overwrites_the_start",
	 base().type(DISCOVER).hostname("abcdef").hostname("xy").build(), FROM_STA, 0,
	 handed({UNKNOWN, DISCOVER, k0, "xycdef", k0, k0, k0, 2})},
	/* an address option's first four bytes, whatever its length byte */
	{"address_option_length_not_examined",
	 base().type(DISCOVER).raw({kOptRequestedIp, 2, 10, 9, 0, 0, kOptEnd}).build(), FROM_STA,
	 0, handed({UNKNOWN, DISCOVER, {10, 9, 0, 0}, "", k0, k0, k0})},
	{"pad_is_one_byte",
	 base().raw({0}).type(DISCOVER).raw({0, 0, 0}).addr_option(kOptServerId, kSrv).raw({0})
		 .hostname("sta1").build(),
	 FROM_STA, 0, handed({UNKNOWN, DISCOVER, k0, "sta1", kSrv, k0, k0})},
	{"end_ends_the_walk",
	 base().type(DISCOVER).raw({kOptEnd}).hostname("late").addr_option(kOptServerId, kSrv)
		 .build(),
	 FROM_STA, 0, handed({UNKNOWN, DISCOVER, k0, "", k0, k0, k0})},
};

std::vector<Row<Bytes>> cases()
{
	std::vector<Row<Bytes>> v(std::begin(kRows), std::end(kRows));

	/* types followed whichever way they go */
	const std::pair<u8, u32> both[] = {{DECLINE, UNKNOWN}, {NACK, FAIL}, {RELEASE, UNKNOWN},
					   {INFORM, INVALID}, {9, INVALID}};
	for (u8 dir : {FROM_STA, TO_STA})
		for (const auto &[type, status] : both)
			v.push_back({"type_" + std::to_string(type) + (dir ? "_to" : "_from"),
				     full(type).build(), dir, 0, handed({status, type, kReq})});

	/* The last option cut short by the payload: its code and offset (15,
	 * after the type, server and host name options) are logged; an
	 * unknown option's data is never read. */
	const std::pair<const char *, Bytes> cuts[] = {
		{"cut_length_byte", {kOptServerId}},
		{"cut_address", {kOptServerId, 4, 1, 2}},
		{"cut_type_byte", {kOptMessageType, 1}},
		{"cut_hostname_of_64", {kOptHostname, 64, 'a', 'b'}},
		{"cut_unknown_option", {77, 10, 1}},
	};
	for (const auto &[what, tail] : cuts) {
		const std::string cut = kDbg + "dhcp option " + std::to_string(tail[0]) +
					" cut short at option offset 15 (option length " +
					std::to_string(15 + tail.size()) + ")";
		v.push_back({what,
			     base().type(DISCOVER).addr_option(kOptServerId, kSrv).hostname("sta1")
				     .raw(tail).build(),
			     FROM_STA, 0,
			     (tail[0] == 77 ? Lines{} : Lines{cut}) +
				     handed({UNKNOWN, DISCOVER, k0, "sta1", kSrv, k0, k0})});
	}
	return v;
}

class DhcpMessage : public ParserTest, public ::testing::WithParamInterface<Row<Bytes>> {};

TEST_P(DhcpMessage, LogsAndCall)
{
	const Row<Bytes> &c = GetParam();
	const auto h = heap(c.m);

	EXPECT_EQ(vy_parse_dhcp(h.get(), c.m.size(), c.to_wireless), c.result);
	EXPECT_EQ(take_trace(), c.out);
}

INSTANTIATE_TEST_SUITE_P(DhcpMessages, DhcpMessage, ::testing::ValuesIn(cases()),
			 [](const auto &info) { return info.param.what; });

} // namespace
