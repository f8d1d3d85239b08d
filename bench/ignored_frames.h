/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Frames the module ignores and the floor the hook is measured against,
 * shared by the timed benchmark (bench_hot_path.cpp) and the instruction
 * count (icount_ignore.cpp), so that both measure the same frames against
 * the same floor.
 */
#ifndef VY_BENCH_IGNORED_FRAMES_H
#define VY_BENCH_IGNORED_FRAMES_H

#include <vector>

#include "bench_util.h"
#include "frames.h"
#include "vy_hook.h"

namespace ignored {

constexpr int kBatch = 64;

enum class Kind {
	WiredToWired,  /* a DNS query between two wired hosts */
	NonIpv4,       /* IPv6 from a station */
	NonUdp,        /* TCP from a station */
	UdpOtherPort,  /* QUIC from a station */
};

const struct {
	Kind kind;
	const char *name;
	const char *title;
} kKinds[] = {
	{Kind::WiredToWired, "wired_to_wired", "wired-to-wired frame"},
	{Kind::NonIpv4, "non_ipv4", "non-IPv4 frame"},
	{Kind::NonUdp, "non_udp", "non-UDP frame"},
	{Kind::UdpOtherPort, "udp_other_port", "UDP on another port"},
};

/* kBatch frames of one kind, varied in addresses and ports as a busy
 * bridge's frames are. */
inline std::vector<vy_skb> frames_of(Kind kind)
{
	std::vector<vy_skb> out;
	for (int i = 0; i < kBatch; i++) {
		frames::Udp4 f;
		f.src = frames::mac((std::uint8_t)(0x10 + i));
		f.dst = frames::mac(0xfe);
		f.saddr = 0xc0a84d00u + 100u + (std::uint32_t)i;
		f.daddr = 0x5db8d822u + (std::uint32_t)(i * 7);
		f.sport = (std::uint16_t)(40000 + i * 13);
		f.payload.assign(200 + (size_t)(i % 5) * 100, 0x5a);
		switch (kind) {
		case Kind::WiredToWired:
			f.dport = 53;
			f.payload.resize(40);
			break;
		case Kind::NonIpv4:
			f.ethertype = 0x86dd;
			break;
		case Kind::NonUdp:
			f.protocol = 6;
			f.dport = 443;
			break;
		case Kind::UdpOtherPort:
			f.dport = 443;
			break;
		}
		out.push_back(bench_util::skb_of(f.build()));
	}
	return out;
}

/* The port the frames of a kind arrive on. */
inline vy_dev *in_port(const bench_util::Module &m, Kind kind)
{
	return kind == Kind::WiredToWired ? m.lan : m.wlan;
}

/*
 * The floor: the decision "parse as DHCP, parse as DNS, or leave" with the
 * header reads it cannot do without and the bounds checks that make them
 * safe, through the same platform calls the hook makes. Not inlined, so
 * that it costs a call like the hook; extern "C", so that callgrind can be
 * told its name.
 */
extern "C" __attribute__((noinline)) inline unsigned
vy_bench_ignore_floor(const vy_skb *skb, const vy_hook_state *st, bool pre)
{
	vy_skb_view v;
	vy_plat_skb_view(skb, &v);
	if (!v.mac || v.end < v.mac || v.end - v.mac < 14)
		return 0;
	if (vy_get_be16(v.mac + 12) != 0x0800)
		return 0;
	vy_dev *port = pre ? vy_plat_hook_state_in(st) : vy_plat_hook_state_out(st);
	if (!port)
		return 0;
	if (vy_plat_dev_is_vlan(port))
		port = vy_plat_vlan_real_dev(port);
	if (!port || !vy_plat_dev_is_wireless(port))
		return 0;
	const u8 *ip = v.mac + 14;
	if (v.end - ip < 20 || ip[9] != 17)
		return 0;
	long ihl = 4 * (ip[0] & 0x0f);
	if (v.end - ip < ihl + 8)
		return 0;
	u16 sport = vy_get_be16(ip + ihl), dport = vy_get_be16(ip + ihl + 2);
	if (sport == 67 || dport == 67)
		return 1;
	if (sport == 53 || dport == 53)
		return 2;
	return 0;
}

} // namespace ignored

#endif
