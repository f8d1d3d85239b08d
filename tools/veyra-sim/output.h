// SPDX-License-Identifier: GPL-2.0
/*
 * veyra-sim's output: one line per event in text mode, one JSON object per
 * line with --json. Both modes carry the same fields.
 */
#ifndef VEYRA_SIM_OUTPUT_H
#define VEYRA_SIM_OUTPUT_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "vy_host.h"

namespace vysim {

/* "err", "warning", "notice", "info", "debug", "default". */
const char *level_name(int level);
/* Dotted quad of an address stored in network order. */
std::string ipv4(std::uint32_t net_order);
std::string mac_text(const std::uint8_t mac[6]);
/* '"' and '\' escaped with a backslash, bytes outside printable ASCII as
 * \xHH. */
std::string escape_text(const std::string &s);
/* A JSON string literal, quotes included; bytes above 0x7f are taken as
 * Latin-1 code points so that any byte string gives valid JSON. */
std::string json_string(const std::string &s);

class Printer {
public:
	Printer(std::FILE *out, bool json) : out_(out), json_(json) {}

	void event(const vy_host::Event &e);
	void read_result(unsigned long j, const char *dev, const std::string &data);
	void open_failed(unsigned long j, const char *dev, int err);
	void write_result(unsigned long j, const char *dev, long res);
	/* present false: the attribute does not exist (module not loaded). */
	void sysfs(unsigned long j, const std::string &name, bool present,
		   const std::string &value);
	void leaked(unsigned long j, long n);

private:
	void line(const std::string &s);

	std::FILE *out_;
	bool json_;
};

} // namespace vysim

#endif
