// SPDX-License-Identifier: GPL-2.0
/*
 * Packet capture reader for veyra-sim: classic pcap (either byte order,
 * micro- or nanosecond timestamps) and pcapng (section header, interface
 * description with if_tsresol/if_tsoffset, enhanced, simple and the old
 * packet block), Ethernet link type only.
 *
 * A capture comes from a customer's access point, so it is untrusted: every
 * field is checked against the bytes that are really there before it is
 * used, and a malformed file is reported with the byte offset of the
 * offending record instead of being half replayed.
 */
#ifndef VEYRA_SIM_CAPTURE_H
#define VEYRA_SIM_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vysim {

enum class Direction {
	Unknown,  /* no direction recorded: decided by the replayer */
	Inbound,  /* received on the capture's interface */
	Outbound, /* sent through it */
};

struct CaptureFrame {
	std::uint64_t ts_ns = 0; /* capture time, nanoseconds */
	bool has_ts = false;     /* false for a simple packet block */
	Direction dir = Direction::Unknown;
	std::size_t offset = 0; /* the frame's bytes within the file */
	std::size_t len = 0;
};

/* Parses a whole capture held in [data, end). On success fills frames (in
 * file order) and returns true; otherwise returns false with a one-line
 * description in err and leaves frames empty. */
bool parse_capture(const std::uint8_t *data, const std::uint8_t *end,
		   std::vector<CaptureFrame> &frames, std::string &err);

struct Capture {
	std::vector<std::uint8_t> bytes;
	std::vector<CaptureFrame> frames;
};

/* Reads and parses the file at path. */
bool load_capture(const std::string &path, Capture &cap, std::string &err);

} // namespace vysim

#endif
