// Shared fixture of the parser tests: a fresh host platform and recorder,
// every log level on, and messages copied into heap buffers of exactly
// their size so that AddressSanitizer sees any read past the end.
#ifndef VY_TEST_PARSER_TEST_H
#define VY_TEST_PARSER_TEST_H

#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fake_sta.h"
#include "msg_builder.h"
#include "vy_common.h"
#include "vy_host.h"

/* A message in a heap block of exactly its size. */
class Heap {
public:
	explicit Heap(const msg::Bytes &b)
		: n_(b.size()), p_(new std::uint8_t[b.size() ? b.size() : 1])
	{
		if (n_)
			std::memcpy(p_.get(), b.data(), n_);
	}
	const u8 *data() const { return p_.get(); }
	u32 size() const { return static_cast<u32>(n_); }
	const u8 *at(size_t off) const { return p_.get() + off; }
	const u8 *last() const { return p_.get() + n_ - 1; }

private:
	size_t n_;
	std::unique_ptr<std::uint8_t[]> p_;
};

class ParserTest : public ::testing::Test {
public:
	/* A pointer as the log prints it. */
	static std::string ptr(const void *p)
	{
		char buf[64];

		vy_plat_snprintf(buf, sizeof(buf), "%p", p);
		return buf;
	}

	/* Expected log text: "{dns}", "{end}" and "{@N}" stand for the message
	 * start, the last byte a check allowed, and the byte at offset N. */
	static std::string expand(std::string s, const u8 *dns, const u8 *end)
	{
		static const std::regex at("\\{@([0-9]+)\\}");
		std::smatch mt;

		for (size_t i; (i = s.find("{dns}")) != std::string::npos;)
			s.replace(i, 5, ptr(dns));
		for (size_t i; (i = s.find("{end}")) != std::string::npos;)
			s.replace(i, 5, ptr(end));
		while (std::regex_search(s, mt, at))
			s.replace(mt.position(0), mt.length(0),
				  ptr(dns + std::stoul(mt[1].str())));
		return s;
	}

protected:
	void SetUp() override
	{
		vy_host::reset();
		fake_sta::clear();
		debug_level = 4;
		/* Away from jiffies 0, which means "not set" to the platform. */
		vy_host::advance_to(1000);
	}

	void TearDown() override { debug_level = 1; }

	/* Starts a new window of the warning rate limit. */
	void fresh_ratelimit() { vy_host::advance(6 * HZ); }

	/* Every line logged since the last call, as "<level> function:text"
	 * with the source line left out; level is one of E W N I D. */
	static std::vector<std::string> logs()
	{
		std::vector<std::string> out;

		for (const auto &e : vy_host::take_events()) {
			if (e.kind != vy_host::EventKind::Log)
				continue;
			out.push_back(std::string(1, level_letter(e.level)) + " " +
				      strip_line(e.text));
		}
		return out;
	}

	static const std::vector<fake_sta::Call> &calls()
	{
		return fake_sta::calls();
	}

private:
	static char level_letter(int level)
	{
		switch (level) {
		case VY_LOG_ERR:
			return 'E';
		case VY_LOG_WARNING:
			return 'W';
		case VY_LOG_NOTICE:
			return 'N';
		case VY_LOG_INFO:
			return 'I';
		case VY_LOG_DEBUG:
			return 'D';
		}
		return '?';
	}

	/* "fn[123]:text" -> "fn:text" */
	static std::string strip_line(const std::string &t)
	{
		size_t open = t.find('[');
		size_t close = t.find("]:");

		if (open == std::string::npos || close == std::string::npos ||
		    close < open)
			return t;
		return t.substr(0, open) + t.substr(close + 1);
	}
};

#endif
