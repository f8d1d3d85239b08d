// Per-station domain table: lookup, answers, CNAME circles, the timeout
// pass, reset, deep copy and the table bound, on the host platform.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.h"
#include "vy_domain_list.h"

namespace {

size_t count_entries(const domain_hlist &t)
{
	size_t n = 0;

	for (const auto &h : t.heads)
		for (vy_hlist_node *p = h.first; p; p = p->next)
			n++;
	return n;
}

// Names of a circle, starting at e and following cname_list.
std::vector<std::string> circle_of(domain_entry *e)
{
	std::vector<std::string> names{e->domain};

	for (vy_list_head *l = e->cname_list.next; l != &e->cname_list; l = l->next)
		names.push_back(vy_container_of(l, domain_entry, cname_list)->domain);
	return names;
}

class DomainList : public ::testing::Test {
protected:
	void SetUp() override
	{
		vy_host::reset();
		vy_domain_init(&t);
		// jiffies 0 means "not set": start the clock away from it.
		vy_host::advance_to(1000);
	}

	void TearDown() override
	{
		debug_level = 1;
		vy_del_all_domain_hlist(&t);
		EXPECT_EQ(vy_host::live_allocations(), 0);
		EXPECT_EQ(vy_is_domain_hlist_empty(&t), 1);
		EXPECT_EQ(t.count, 0u);
	}

	domain_entry *query(const char *n) { return vy_add_domain_entry(&t, n, len_of(n), 0); }
	domain_entry *answer(const char *n, u32 ip) { return vy_add_domain_ip(&t, n, len_of(n), ip); }
	domain_entry *alias(const char *o, const char *tg)
	{
		return vy_add_domain_cname(&t, o, len_of(o), tg, len_of(tg));
	}
	domain_entry *find(const char *n) { return _vy_find_domain(&t, n, len_of(n)); }
	void pass()
	{
		u32 avg;
		vy_timeout_domain(&t, &avg);
	}

	domain_hlist t;
};

TEST_F(DomainList, EmptyNamesAndAliasToItselfAreRefused)
{
	const char nul_first[] = "\0abc";

	EXPECT_EQ(vy_add_domain_entry(&t, "abc", 0, 0), nullptr);
	EXPECT_EQ(vy_add_domain_entry(&t, nul_first, 4, 0), nullptr);
	EXPECT_EQ(vy_add_domain_ip(&t, "abc", 0, ip4(1, 2, 3, 4)), nullptr);
	EXPECT_EQ(vy_reject_domain(&t, "abc", 0, 3), nullptr);
	EXPECT_EQ(_vy_find_domain(&t, "abc", 0), nullptr);
	EXPECT_EQ(_vy_find_domain(nullptr, "abc", 3), nullptr);
	EXPECT_EQ(_vy_find_domain(&t, nullptr, 3), nullptr);
	EXPECT_EQ(vy_add_domain_cname(nullptr, "a.b", 3, "c.d", 3), nullptr);
	EXPECT_EQ(vy_add_domain_cname(&t, nullptr, 3, "c.d", 3), nullptr);
	EXPECT_EQ(alias("loop.test", "loop.test"), nullptr);
	EXPECT_EQ(vy_is_domain_hlist_empty(&t), 1);
	EXPECT_EQ(vy_host::total_allocations(), 0);
	vy_del_all_domain_hlist(nullptr);
	EXPECT_EQ(vy_is_domain_hlist_empty(nullptr), 1);
}

TEST_F(DomainList, AddressesRotateThroughFourSlots)
{
	debug_level = 4;
	const char *n = "many.example";
	domain_entry *e = nullptr;

	// 0.0.0.0 is an answer like any other, not an empty slot.
	for (u8 i = 1; i <= 6; i++)
		e = answer(n, ip4(i == 2 ? 0 : 10, 0, 0, i == 2 ? 0 : i));
	ASSERT_NE(e, nullptr);
	const u32 rotated[] = {ip4(10, 0, 0, 5), ip4(10, 0, 0, 6), ip4(10, 0, 0, 3),
			       ip4(10, 0, 0, 4)};
	auto expect_rotated = [&] {
		EXPECT_EQ(e->ip_num, 4);
		EXPECT_EQ(std::vector<u32>(e->ips, e->ips + 4),
			  std::vector<u32>(rotated, rotated + 4));
		EXPECT_EQ(e->ip_replace_idx, 2);
	};
	expect_rotated();
	EXPECT_EQ(logs_of(VY_LOG_DEBUG, "_vy_add_domain_ip_mapping"),
		  (std::vector<std::string>{
			  "the domain maps too many IPs so replace an old IP with a new IP.\n"
			  "domain = many.example, idx = 0, old ip = 10.0.0.1, new ip = 10.0.0.5",
			  "the domain maps too many IPs so replace an old IP with a new IP.\n"
			  "domain = many.example, idx = 1, old ip = 0.0.0.0, new ip = 10.0.0.6"}));

	// A repeated address ends the new query and moves nothing; so does a
	// repeat of the address in the first slot.
	vy_host::advance_to(1005);
	query(n);
	vy_host::advance_to(1012);
	answer(n, ip4(10, 0, 0, 3));
	EXPECT_EQ(e->query_time, 0u);
	EXPECT_EQ(e->latency, vy_plat_jiffies_to_msecs(7));
	expect_rotated();
	answer(n, ip4(10, 0, 0, 5));
	expect_rotated();
	EXPECT_EQ(vy_host::log_lines(VY_LOG_DEBUG).size(), 2u);

	// Every slot is replaced in turn.
	answer(n, ip4(10, 0, 0, 7));
	answer(n, ip4(10, 0, 0, 8));
	for (u8 i = 0; i < 4; i++)
		EXPECT_EQ(e->ips[i], ip4(10, 0, 0, 5 + i));
}

TEST_F(DomainList, FailureOfAnyMemberMarksEveryMember)
{
	alias("a.test", "b.test");
	alias("b.test", "c.test");
	vy_host::advance_to(1040);
	ASSERT_EQ(vy_reject_domain(&t, "b.test", 6, 3), find("b.test"));
	for (const char *n : {"a.test", "b.test", "c.test"}) {
		domain_entry *e = find(n);
		EXPECT_EQ(e->rcode, 3) << n;
		EXPECT_EQ(e->query_time, 0u) << n;
		EXPECT_EQ(e->latency, vy_plat_jiffies_to_msecs(40)) << n;
		EXPECT_EQ(e->last_update, 1040u) << n;
	}
	// An unknown name is created and rejected alone.
	domain_entry *x = vy_reject_domain(&t, "nx.test", 7, 3);
	ASSERT_NE(x, nullptr);
	EXPECT_EQ(x->rcode, 3);
	EXPECT_EQ(circle_of(x).size(), 1u);
}

TEST_F(DomainList, LinkingSamePairTwiceJoinsNothing)
{
	debug_level = 4;
	domain_entry *w = alias("w.test", "t.test");
	domain_entry *tg = find("t.test");

	answer("t.test", ip4(198, 51, 100, 1));
	u32 first = w->first_latency;
	vy_host::advance_to(1100);
	EXPECT_EQ(alias("w.test", "t.test"), w);
	vy_host::advance_to(1150);
	EXPECT_EQ(alias("t.test", "w.test"), tg); // the same circle, seen from t

	EXPECT_EQ(logs_of(VY_LOG_DEBUG, "vy_add_domain_cname"),
		  (std::vector<std::string>{"The domain w.test already had cname t.test before.",
					    "The domain t.test already had cname w.test before."}));
	EXPECT_EQ(vy_host::log_lines(VY_LOG_DEBUG).size(), 2u);
	EXPECT_EQ(circle_of(w).size(), 2u);
	EXPECT_EQ(count_entries(t), 2u);
	EXPECT_EQ(w->first_latency, first);
	EXPECT_EQ(w->last_update, 1150u);
	// w, re-added as a target in the second call, stays a queried name.
	EXPECT_EQ(w->is_cname, 0);
	EXPECT_EQ(tg->is_cname, 1);
	EXPECT_EQ(tg->last_update, 1150u);
	EXPECT_EQ(tg->query_time, 1100u); // refreshed by the first repeat
	EXPECT_EQ(tg->latency, 0u);
	EXPECT_EQ(tg->ip_num, 1);
}

// One entry per case, on its own table, examined by a pass `elapsed`
// jiffies after the entry's last activity.
TEST_F(DomainList, TimeoutAggregationAndExpiryBoundaries)
{
	struct {
		bool answered;
		unsigned long elapsed;
		u32 status;
		bool timed_out, kept;
	} cases[] = {
		{false, 1500, VY_STATUS_UNKNOWN, false, true},
		{false, 1501, VY_STATUS_FAIL, true, true}, // stamped, not freed
		{true, 1500, VY_STATUS_OK, false, true},
		{true, 1501, VY_STATUS_UNKNOWN, false, true},
		{true, 30000, VY_STATUS_UNKNOWN, false, true},
		{true, 30001, VY_STATUS_UNKNOWN, false, false},
	};
	unsigned long base = 2000;

	for (const auto &c : cases) {
		SCOPED_TRACE(testing::Message() << c.answered << "/" << c.elapsed);
		domain_hlist tab;
		vy_domain_init(&tab);
		vy_host::advance_to(base);
		domain_entry *e = vy_add_domain_entry(&tab, "t.test", 6, 0);
		ASSERT_NE(e, nullptr);
		if (c.answered) {
			vy_host::advance_to(base + 3);
			vy_add_domain_ip(&tab, "t.test", 6, ip4(1, 2, 3, 4));
		}
		unsigned long at = e->last_update + c.elapsed;
		vy_host::advance_to(at);
		u32 avg = 99;
		EXPECT_EQ(vy_timeout_domain(&tab, &avg), c.status);
		EXPECT_EQ(avg, c.status == VY_STATUS_OK ? vy_plat_jiffies_to_msecs(3) : 0u);
		EXPECT_EQ(_vy_find_domain(&tab, "t.test", 6) != nullptr, c.kept);
		EXPECT_EQ(tab.count, c.kept ? 1u : 0u);
		if (c.kept)
			EXPECT_EQ(e->timed_out, c.timed_out);
		if (c.timed_out) {
			EXPECT_EQ(e->query_time, 0u);
			EXPECT_EQ(e->last_update, at);
		}
		vy_del_all_domain_hlist(&tab);
		base = at + 100;
	}
}

TEST_F(DomainList, ExpiryUnlinksFromCircle)
{
	alias("old.test", "mid.test");
	answer("mid.test", ip4(5, 5, 5, 1)); // both answered at 1000
	vy_host::advance_to(20000);
	domain_entry *mid = alias("mid.test", "new.test"); // "old" goes stale
	ASSERT_NE(mid, nullptr);
	vy_host::advance_to(31001);
	pass();
	EXPECT_EQ(find("old.test"), nullptr);
	EXPECT_EQ(circle_of(mid), (std::vector<std::string>{"mid.test", "new.test"}));
	answer("new.test", ip4(5, 5, 5, 5)); // walks the circle: must not touch "old"
	EXPECT_EQ(mid->ip_num, 2);
}

TEST_F(DomainList, TableHoldsAtMost512Names)
{
	for (int i = 0; i < VY_DOMAIN_MAX_ENTRIES; i++)
		ASSERT_NE(query(("n" + std::to_string(i) + ".test").c_str()), nullptr) << i;
	EXPECT_EQ(t.count, 512u);
	EXPECT_EQ(query("extra.test"), nullptr);
	EXPECT_EQ(answer("extra.test", ip4(1, 1, 1, 1)), nullptr);
	EXPECT_EQ(alias("n1.test", "extra.test"), nullptr);
	EXPECT_EQ(count_entries(t), 512u);
	EXPECT_EQ(vy_host::live_allocations(), 512);

	// Known names are still refreshed and answered.
	vy_host::advance_to(1200);
	domain_entry *e = answer("n7.test", ip4(2, 2, 2, 2));
	ASSERT_NE(e, nullptr);
	EXPECT_EQ(e->latency, vy_plat_jiffies_to_msecs(200));
	EXPECT_EQ(alias("n7.test", "n8.test"), e);

	// Expiry makes room again.
	find("n3.test")->last_update = 0;
	pass();
	EXPECT_EQ(t.count, 511u);
	EXPECT_NE(query("extra.test"), nullptr);
	EXPECT_EQ(query("extra2.test"), nullptr);
}

TEST(DomainListBucket, SumsTheDocumentedBytes)
{
	// Bytes 0, L/2 and L-1 of a name of length L below 4; bytes 0, 1,
	// L/2 and L-1 from 4 on.
	const std::pair<const char *, u32> cases[] = {
		{"a", 3}, {"ab", 1}, {"abc", 2}, {"abcd", 2}, {"abcdefg", 2}};
	for (const auto &c : cases)
		EXPECT_EQ(vy_domain_bucket(c.first, len_of(c.first)), c.second) << c.first;
	EXPECT_EQ(vy_domain_bucket("abc", 0), 0u);
}

} // namespace
