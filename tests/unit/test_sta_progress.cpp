// A station's DHCP and DNS progress and the periodic update that applies
// the timeouts and ends listening windows, driven through simulated time.
// The onboarding scenario pins a whole exchange's notifications (the
// latency of a renewal, a refusal and a timeout) and notices.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.h"

namespace {

using Progress = ModuleTest;

// ---- DHCP progress ---------------------------------------------------

TEST_F(Progress, DhcpStatusRuleRowByRow)
{
	enum Prep { Fresh, Running, Ok, Fail };
	enum Start { Zero, FirstStamp, Now };
	struct Row {
		Prep prep;
		u32 req;
		bool changed;
		u32 status;
		Start start;
		u8 listeners;
		u32 latency;
	} rows[] = {
		{Fresh, 0, false, 0, Now, 2, 0},
		{Ok, 0, true, 0, Now, 2, 0},
		{Fail, 0, true, 0, Now, 2, 0},
		{Fresh, 1, true, 1, Zero, 1, 0},
		{Fresh, 2, true, 2, Zero, 1, 0},
		{Ok, 2, true, 2, Zero, 1, 0},
		{Fail, 1, true, 1, Zero, 1, 0},
		{Running, 0, false, 0, FirstStamp, 2, 0},
		{Running, 1, true, 1, Zero, 1, 200},
		{Running, 2, true, 2, Zero, 1, 200},
		{Ok, 1, false, 1, Zero, 1, 0},
		{Fail, 2, false, 2, Zero, 1, 0},
		{Fresh, 3, false, 0, Zero, 2, 0},
		{Running, 3, false, 0, FirstStamp, 2, 0},
		{Ok, 3, false, 1, Zero, 1, 0},
	};
	u8 i = 0;

	debug_level = 4;
	for (const Row &r : rows) {
		SCOPED_TRACE("row " + std::to_string(i));
		const Mac m = mac_of(1, i++);

		join(m);
		unsigned long prep_time = vy_host::jiffies();
		if (r.prep != Fresh)
			dhcp(m, r.prep == Running ? 0 : r.prep == Ok ? 1 : 2,
			     r.prep == Running ? 1 : 5);
		vy_host::advance(20);
		vy_host::take_events();

		EXPECT_EQ(dhcp(m, r.req, 3), 0);
		sta s = snap(m);
		std::vector<Event> n = notes(EventKind::NotifyDhcp);

		EXPECT_EQ(s.dhcp_status, r.status);
		EXPECT_EQ(s.dhcp_type, 3);
		EXPECT_EQ(s.dhcp_reason, 0);
		EXPECT_EQ(s.listeners, r.listeners);
		EXPECT_EQ(s.dhcp_latency, r.latency);
		EXPECT_EQ(s.dhcp_start, r.start == Zero	      ? 0
					: r.start == FirstStamp ? prep_time
								: vy_host::jiffies());
		ASSERT_EQ(n.size(), r.changed ? 1u : 0u);
		if (r.changed) {
			EXPECT_EQ(n[0].status, r.status);
			EXPECT_EQ(n[0].latency, r.latency);
			EXPECT_EQ(n[0].type, 3);
		} else if (r.req != 3) { // 3 never reaches the rule
			EXPECT_TRUE(logged(VY_LOG_DEBUG, "_vy_set_sta_dhcp_status",
					   "STA " + mac_str(m) + " dhcp status does not change (" +
						   (r.req ? r.req == 1 ? "OK" : "FAIL" : "UNKNOWN") +
						   ", DHCPREQUEST)"));
		}
		expect_consistent();
	}
}

TEST_F(Progress, HostnameStoredOnlyFrom1To64Bytes)
{
	const Mac a = mac_of(3, 1);
	const std::string h(299, 'h');
	struct Row {
		u8 len;
		bool stored, warned;
	} rows[] = {{0, false, false}, {1, true, false}, {64, true, false},
		    {65, false, true}, {255, false, true}};

	join(a);
	dhcp(a, 3, 8, 0, 0, 0, 0, "prior", 5);
	for (const Row &r : rows) {
		SCOPED_TRACE(r.len);
		vy_host::take_events();
		sta before = snap(a);
		dhcp(a, 3, 8, 0, 0, 0, 0, h.c_str(), r.len);
		sta s = snap(a);
		EXPECT_EQ(s.hostname_len, r.stored ? r.len : before.hostname_len);
		EXPECT_EQ(std::string(s.hostname),
			  r.stored ? h.substr(0, r.len) : std::string(before.hostname));
		EXPECT_EQ(s.hostname[VY_HOSTNAME_SIZE - 1], '\0');
		EXPECT_EQ(logged(VY_LOG_WARNING, "vy_set_sta_dhcp_status",
				 "STA " + mac_str(a) + " hostname length " +
					 std::to_string(r.len) +
					 " >= VY internal STA hostname array size 65"),
			  r.warned);
	}
	// A null buffer stores nothing, whatever the length says.
	dhcp(a, 3, 8, 0, 0, 0, 0, nullptr, 5);
	EXPECT_EQ(snap(a).hostname_len, 64);
}

TEST_F(Progress, DhcpNoticeAndZeroAddresses)
{
	const Mac a = mac_of(4, 1);
	const u32 dns = ip4(10, 1, 0, 53);
	const std::string added = "STA " + mac_str(a) + " is already added. ";
	const std::string zeros = "ip = 0.0.0.0, dhcp server ip = 0.0.0.0, gateway ip = 0.0.0.0, hostname = NULL, hostname_len = 0";

	debug_level = 2;
	join(a);
	dhcp(a, 3, 8, ip4(10, 1, 0, 5), ip4(10, 1, 0, 1), ip4(10, 1, 0, 254), dns,
	     "phone", 5);
	// Zero addresses never erase (the onboarding scenario shows it for the
	// others); the notice shows the arguments.
	dhcp(a, 1, 5);
	EXPECT_EQ(snap(a).dns_server_ip, dns);
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_set_sta_dhcp_status",
			   added + "Set dhcp status = 0, dhcp type = 8 (DHCPINFORM), ip = 10.1.0.5, dhcp server ip = 10.1.0.1, gateway ip = 10.1.0.254, hostname = phone, hostname_len = 5"));
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_set_sta_dhcp_status",
			   added + "Set dhcp status = 1, dhcp type = 5 (DHCPACK), " + zeros));

	// Only types 1 to 8 are named in the message notice.
	for (u8 type : {0, 9, 200}) {
		dhcp(a, 3, type);
		EXPECT_EQ(snap(a).dhcp_type, type);
		EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_set_sta_dhcp_status",
				   added + "Set dhcp status = 1, dhcp type = " +
					   std::to_string(type) + " (Unknown DHCP type), " + zeros));
	}

	// An unknown station is reported and not created.
	const Mac unknown = mac_of(4, 2);
	const std::pair<u8, const char *> types[] = {{1, "DHCPDISCOVER"},
						     {9, "UNKNOWN"},
						     {10, "Unknown DHCP type"},
						     {200, "Unknown DHCP type"}};
	vy_host::take_events();
	for (const auto &t : types) {
		EXPECT_EQ(dhcp(unknown, 0, t.first, ip4(1, 2, 3, 4)), -1);
		EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_set_sta_dhcp_status",
				   "Device " + mac_str(unknown) + " does not exist. dhcp type = " +
					   std::to_string(t.first) + " (" + t.second + ")"));
	}
	EXPECT_FALSE(has_sta(unknown));
	EXPECT_TRUE(notes(EventKind::NotifyDhcp).empty());
	EXPECT_EQ(vy_set_sta_dhcp_status(nullptr, 1, 5, 0, 0, 0, 0, nullptr, 0), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_set_sta_dhcp_status", "sta_mac is null"));
}

// ---- DNS progress ----------------------------------------------------

// A query records the name and the station's address only (0.0.0.0 too).
TEST_F(Progress, FirstDnsAnswerOfAnyKindReleasesOneListener)
{
	struct Row { // a latency of 0: the name was never queried
		std::function<s32(const Mac &)> respond;
		std::string info; // after "STA <mac> is "
		u32 latency;
	} rows[] = {
		{[](const Mac &m) { return answer(m, "a.com", ip4(1, 2, 3, 4)); },
		 "already added. Add dns domain-ip mapping (a.com, 1.2.3.4)", 120},
		{[](const Mac &m) { return vy_reject_sta_domain(m.b, "a.com", 5, 3); },
		 "added. Reject dns domain a.com with rcode = 3", 120},
		{[](const Mac &m) {
			 return vy_add_sta_domain_cname(m.b, "a.com", 5, "b.net", 5);
		 },
		 "already added. Add dns domain-cname mapping (a.com, b.net)", 120},
		{[](const Mac &m) { return answer(m, "a.com", ip4(1, 2, 3, 4)); },
		 "already added. Add dns domain-ip mapping (a.com, 1.2.3.4)", 0},
	};
	u8 i = 0;

	debug_level = 3;
	for (const Row &r : rows) {
		SCOPED_TRACE(r.info);
		const Mac m = mac_of(7, i++);

		join(m);
		dhcp(m, 3, 8, 0, 0, 0, ip4(9, 9, 9, 9));
		if (r.latency) {
			query(m, "a.com", ip4(10, 0, 0, 9));
			EXPECT_EQ(snap(m).ip, ip4(10, 0, 0, 9));
			query(m, "a.com");
			EXPECT_EQ(snap(m).ip, 0u);
			EXPECT_EQ(snap(m).listeners, 2);
		}
		vy_host::advance(12);
		EXPECT_TRUE(notes(EventKind::NotifyDns, &m).empty());
		vy_host::take_events();
		EXPECT_EQ(r.respond(m), 0);
		EXPECT_EQ(r.respond(m), 0); // a second answer changes nothing
		sta s = snap(m);
		EXPECT_EQ(s.dns_status, 1u);
		EXPECT_EQ(s.listeners, 1);
		EXPECT_EQ(s.dns_latest_latency, r.latency);
		std::vector<Event> n = notes(EventKind::NotifyDns);
		ASSERT_EQ(n.size(), 1u);
		EXPECT_EQ(n[0].status, 1);
		EXPECT_EQ(n[0].dns_server, ip4(9, 9, 9, 9));
		EXPECT_EQ(n[0].latency, r.latency);
		EXPECT_TRUE(vy_host::log_contains("]:STA " + mac_str(m) + " is " + r.info));
		expect_consistent();
	}
}

TEST_F(Progress, RefusedNameChangesNothing)
{
	const Mac a = mac_of(8, 1), unknown = mac_of(8, 2);
	const std::string ms = mac_str(a), mu = "Device " + mac_str(unknown) + " does not exist";
	// A null name is the empty name, whatever length comes with it.
	struct Row {
		const char *func;
		std::function<s32(const u8 *)> call;
		std::string missing, refused;
	} rows[] = {
		{"vy_add_sta_domain",
		 [](const u8 *m) { return vy_add_sta_domain(m, nullptr, 5, 0); }, mu,
		 "vy_add_domain_entry() fails, STA = " + ms + ", domain = "},
		{"vy_add_sta_domain_ip",
		 [](const u8 *m) { return vy_add_sta_domain_ip(m, nullptr, 5, ip4(1, 2, 3, 4)); },
		 mu, "vy_add_domain_ip() fails, STA = " + ms + ", domain = , ip = 1.2.3.4"},
		{"vy_add_sta_domain_cname",
		 [](const u8 *m) { return vy_add_sta_domain_cname(m, nullptr, 5, "b.org", 5); },
		 mu, "vy_add_domain_cname() fails, STA = " + ms + ", domain = , cname = b.org"},
		{"vy_reject_sta_domain",
		 [](const u8 *m) { return vy_reject_sta_domain(m, nullptr, 5, 2); },
		 "STA " + mac_str(unknown) + " does not exist",
		 "vy_reject_domain(): domain is absent. STA = " + ms + ", domain = , rcode = 2"},
	};

	join(a);
	for (const Row &r : rows) {
		SCOPED_TRACE(r.refused);
		EXPECT_EQ(r.call(unknown.b), -1);
		EXPECT_TRUE(logged(VY_LOG_WARNING, r.func, r.missing));
		EXPECT_EQ(r.call(a.b), -1);
		EXPECT_TRUE(logged(VY_LOG_WARNING, r.func, r.refused));
		EXPECT_EQ(r.call(nullptr), -1);
		EXPECT_TRUE(logged(VY_LOG_ERR, r.func, "sta_mac is null"));
	}
	EXPECT_EQ(vy_get_sta_count(), 1);
	sta s = snap(a);
	EXPECT_EQ(s.dns_status, 0u);
	EXPECT_EQ(s.listeners, 2);
	EXPECT_EQ(vy_is_domain_hlist_empty(&s.domain_hlist), 1);
	EXPECT_TRUE(notes(EventKind::NotifyDns).empty());
	// A null alias target is the empty one too.
	EXPECT_EQ(vy_add_sta_domain_cname(a.b, "a.org", 5, nullptr, 5), -1);
	EXPECT_TRUE(logged(VY_LOG_WARNING, "vy_add_sta_domain_cname",
			   "vy_add_domain_cname() fails, STA = " + ms + ", domain = a.org, cname = "));

	// A station's refused names cannot flood the log; missing stations
	// are rare and always reported.
	vy_host::advance(1000);
	vy_host::take_events();
	for (int k = 0; k < 30; k++) {
		answer(a, "", 1);
		answer(unknown, "x.org", 1);
	}
	size_t refused = 0, missing = 0;
	for (const std::string &t : logs_of(VY_LOG_WARNING, "vy_add_sta_domain_ip"))
		(t.find("fails") != std::string::npos ? refused : missing)++;
	EXPECT_GE(refused, 1u);
	EXPECT_LT(refused, 30u);
	EXPECT_EQ(missing, 30u);
}

TEST_F(Progress, DnsStatusRuleTable)
{
	struct Row {
		u32 cur, req;
		s32 result;
		u32 after;
		int delta;
	} rows[] = {
		{0, 0, 0, 0, 0}, {0, 1, 1, 1, -1}, {0, 2, 1, 2, -1}, {1, 0, 0, 1, 0},
		{1, 2, 0, 1, 0}, {2, 0, 1, 0, 1},  {2, 1, 1, 1, 0},  {2, 2, 0, 2, 0},
	};
	const Mac a = mac_of(10, 1);
	domain_entry target = {}, owner = {};

	target.is_cname = 1;
	target.first_latency = 70;
	owner.first_latency = 40;
	join(a);
	for (const Row &r : rows) {
		SCOPED_TRACE(std::to_string(r.cur) + "->" + std::to_string(r.req));
		vy_write_guard guard(&vy_sta_table.sta_lock);
		sta *e = _vy_find_sta(a.b);

		e->dns_status = r.cur;
		e->dns_latest_latency = 1;
		s32 before = vy_read_listeners();
		EXPECT_EQ(_vy_set_sta_dns_status(e, r.req, &target), r.result);
		EXPECT_EQ(e->dns_status, r.after);
		EXPECT_EQ(vy_read_listeners(), before + r.delta);
		EXPECT_EQ(e->dns_latest_latency, 1u); // alias targets never count
		_vy_set_sta_dns_status(e, e->dns_status, &owner);
		EXPECT_EQ(e->dns_latest_latency, 40u);
	}
}

// ---- the periodic update ---------------------------------------------

TEST_F(Progress, DhcpTimesOutAfterMoreThan15Seconds)
{
	// a sits in the first bucket of the table, c in the last.
	const Mac a = mac_of(11, 8), b = mac_of(11, 2), c = mac_of(11, 7);

	join(a); // runs at 1500, 2000, ...
	vy_add_sta_entry(b.b, "wlan0");
	vy_add_sta_entry(c.b, "wlan0");
	dhcp(a, 0, 1);
	dhcp(c, 0, 1);
	vy_host::advance_to(1030);
	dhcp(c, 1, 5); // c's last exchange took 300 ms
	vy_host::advance_to(1200);
	vy_sta_start_timer(); // already pending: the run stays at 1500
	vy_host::advance_to(1499);
	dhcp(b, 0, 1);
	vy_host::advance_to(1500);
	dhcp(c, 0, 3); // renewal

	vy_host::advance_to(2500); // a: exactly 1500 jiffies
	EXPECT_EQ(snap(a).dhcp_status, 0u);
	EXPECT_TRUE(notes(EventKind::NotifyDhcp, &a).empty());

	vy_host::advance_to(3000); // a: 2000, b: 1501, c: 1500
	for (const Mac *m : {&a, &b}) {
		std::vector<Event> n = notes(EventKind::NotifyDhcp, m);
		ASSERT_EQ(n.size(), 1u);
		EXPECT_EQ(n[0].jiffies, 3000u);
		EXPECT_EQ(n[0].status, 2);
		EXPECT_EQ(n[0].reason, 1);
		EXPECT_EQ(snap(*m).dhcp_start, 0u);
		EXPECT_EQ(snap(*m).listeners, 1);
	}
	EXPECT_EQ(snap(c).dhcp_status, 0u);

	vy_host::advance_to(3500);
	std::vector<Event> n = notes(EventKind::NotifyDhcp, &c);
	ASSERT_EQ(n.size(), 3u); // ack, renewal, timeout
	EXPECT_EQ(n[2].status, 2);
	EXPECT_EQ(n[2].reason, 1);
	EXPECT_EQ(n[2].latency, 300u); // a timeout measures nothing
	expect_consistent();
}

TEST_F(Progress, ListeningWindowEndsAfter35Seconds)
{
	const Mac idle = mac_of(12, 1), late = mac_of(12, 2),
		  dhcp_busy = mac_of(12, 3), dns_busy = mac_of(12, 4),
		  answered = mac_of(12, 5);

	join(idle);
	for (const Mac *m : {&dhcp_busy, &dns_busy, &answered})
		vy_add_sta_entry(m->b, "wlan0");
	query(answered, "a.com");
	answer(answered, "a.com", 1);
	vy_host::advance_to(1499);
	vy_add_sta_entry(late.b, "wlan0");
	vy_host::advance_to(4400);
	dhcp(dhcp_busy, 0, 1);
	vy_host::advance_to(4501); // idle: exactly 3500 at the run of 4500
	EXPECT_EQ(snap(idle).listeners, 2);
	EXPECT_EQ(snap(answered).listeners, 1);
	vy_host::advance_to(4800);
	query(dns_busy, "b.com");

	vy_host::advance_to(5000);
	struct Row {
		const Mac *m;
		u8 listeners;
		bool open;
	} rows[] = {{&idle, 0, false},	   {&late, 0, false},
		    {&dhcp_busy, 2, true}, {&dns_busy, 2, true},
		    {&answered, 0, false}};
	for (const Row &r : rows) {
		SCOPED_TRACE(mac_str(*r.m));
		EXPECT_EQ(snap(*r.m).listeners, r.listeners);
		EXPECT_EQ(snap(*r.m).join_time != 0, r.open);
	}
	EXPECT_EQ(snap(idle).dns_status, 0u);
	EXPECT_TRUE(notes(EventKind::NotifyDns, &idle).empty());

	// The run that times the exchange out also ends the window.
	vy_host::advance_to(6000);
	EXPECT_EQ(notes(EventKind::NotifyDhcp, &dhcp_busy).size(), 1u);
	EXPECT_EQ(snap(dhcp_busy).listeners, 0);
	// An unanswered query holds the window until it times out.
	EXPECT_EQ(snap(dns_busy).listeners, 2);
	vy_host::advance_to(6500);
	std::vector<Event> n = notes(EventKind::NotifyDns, &dns_busy);
	ASSERT_EQ(n.size(), 1u);
	EXPECT_EQ(n[0].status, 2);
	EXPECT_EQ(snap(dns_busy).listeners, 0);
	EXPECT_EQ(vy_read_listeners(), 0);
}

TEST_F(Progress, AllocationFailureSendsWhatWasQueued)
{
	// Buckets 1, 2, 3, walked in that order.
	const Mac first = mac_of(16, 1), broken = mac_of(16, 2),
		  later = mac_of(16, 3);

	join(broken);
	vy_host::advance_to(4000);
	vy_add_sta_entry(first.b, "wlan0");
	vy_add_sta_entry(later.b, "wlan0");
	vy_host::advance_to(5000); // broken's window ends with DHCP unseen
	ASSERT_EQ(snap(broken).listeners, 0);
	for (const Mac *m : {&first, &broken, &later})
		dhcp(*m, 0, 1);

	// broken holds no DHCP listener, so its timeout over-releases: that
	// error is logged between the first copy and broken's own copy.
	vy_host::set_event_sink([](const Event &e) {
		if (e.kind == EventKind::Log &&
		    e.text.find("substacted") != std::string::npos)
			vy_host::fail_next_allocations(1);
	});
	vy_host::advance_to(7000);
	vy_host::set_event_sink(nullptr);

	EXPECT_EQ(notes(EventKind::NotifyDhcp, &first).size(), 1u);
	EXPECT_TRUE(notes(EventKind::NotifyDhcp, &broken).empty());
	EXPECT_EQ(snap(broken).dhcp_status, 2u); // the change stays
	EXPECT_EQ(snap(later).dhcp_status, 0u);	 // not reached in this run
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_sta_periodic_update", "kzalloc fails"));
	EXPECT_TRUE(timer_pending());

	vy_host::advance_to(7500);
	EXPECT_EQ(notes(EventKind::NotifyDhcp, &later).size(), 1u);
	EXPECT_TRUE(notes(EventKind::NotifyDhcp, &broken).empty());
	expect_consistent();
}

} // namespace
