// SPDX-License-Identifier: GPL-2.0
/*
 * The simulated access point: one bridge br0, its ports, and the module's
 * own code loaded on the host platform, driven command by command.
 */
#ifndef VEYRA_SIM_SIM_H
#define VEYRA_SIM_SIM_H

#include <string>
#include <vector>

#include "output.h"
#include "scenario.h"

struct vy_dev;

namespace vysim {

struct Options {
	bool json = false;
	int debug_level = 1;
};

class Sim {
public:
	Sim(const Options &opt, Printer &out) : opt_(opt), out_(out) {}

	/* A fresh platform with br0, and the module loaded at jiffies 0. */
	void start();
	/* Runs the lines of one scenario. name is used in messages, dir
	 * resolves relative capture paths. Returns false after printing
	 * "NAME:LINE: message" to stderr for a malformed line. */
	bool run(const std::string &text, const std::string &name, const std::string &dir);
	/* Closes held devices, unloads the module and prints the leak count. */
	void finish();
	/* After an error: the same clean-up, printing nothing more. */
	void stop_quietly();

private:
	bool exec(const Command &c, const std::string &dir, std::string &err);
	vy_dev *port(const std::string &name);
	bool replay(const std::string &path, vy_dev *dev, std::string &err);
	bool followed(const std::uint8_t *mac) const;
	void device_io(const Command &c);
	void release_all();
	void after_command();

	struct Held {
		Device dev;
		vy_host::File *file;
	};

	Options opt_;
	Printer &out_;
	vy_dev *bridge_ = nullptr;
	bool loaded_ = false;
	std::vector<Held> held_;
};

} // namespace vysim

#endif
