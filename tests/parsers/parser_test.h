// Shared fixture of the parser tests: a fresh host platform, every log
// level on, and messages copied into heap buffers of exactly their size so
// that AddressSanitizer sees any read past the end.
#ifndef VY_TEST_PARSER_TEST_H
#define VY_TEST_PARSER_TEST_H

#include <memory>
#include <regex>

#include <gtest/gtest.h>

#include "msg_builder.h"
#include "vy_common.h"
#include "vy_host.h"

using Lines = std::vector<std::string>;

inline std::string text(const msg::Ip &ip)
{
	return std::to_string(ip[0]) + "." + std::to_string(ip[1]) + "." +
	       std::to_string(ip[2]) + "." + std::to_string(ip[3]);
}

/* Every log line and station table call since the last take, in order:
 * a line as "<level> function:text" (level one of E W N I D, the source
 * line left out), a call as "> what arguments" (recorder.cpp). */
Lines take_trace();

/* A row of the message tables: the message, its direction, the parser's
 * result and every line it leaves, in order. */
template <class Message> struct Row {
	std::string what;
	Message m;
	u8 to_wireless;
	s32 result;
	Lines out;
};

/* A message in a heap block of exactly its size. */
inline std::unique_ptr<u8[]> heap(const msg::Bytes &m)
{
	std::unique_ptr<u8[]> p(new u8[m.size() ? m.size() : 1]);

	std::memcpy(p.get(), m.data(), m.size());
	return p;
}

class ParserTest : public ::testing::Test {
public:
	/* A pointer as the log prints it. */
	static std::string ptr(const void *p)
	{
		char buf[64];

		vy_plat_snprintf(buf, sizeof(buf), "%p", p);
		return buf;
	}

	/* Expected lines: "{end}" and "{@N}" stand for the last byte a check
	 * allowed and the byte at offset N of the message. */
	static Lines expand(Lines lines, const u8 *dns, const u8 *end)
	{
		static const std::regex at("\\{@([0-9]+)\\}");
		std::smatch mt;

		for (std::string &s : lines) {
			for (size_t i; (i = s.find("{end}")) != std::string::npos;)
				s.replace(i, 5, ptr(end));
			while (std::regex_search(s, mt, at))
				s.replace(mt.position(0), mt.length(0),
					  ptr(dns + std::stoul(mt[1].str())));
		}
		return lines;
	}

protected:
	void SetUp() override
	{
		vy_host::reset();
		take_trace();
		debug_level = 4;
		/* Away from jiffies 0, which means "not set" to the platform. */
		vy_host::advance_to(1000);
	}

	void TearDown() override { debug_level = 1; }
};

#endif
