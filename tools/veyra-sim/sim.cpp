// SPDX-License-Identifier: GPL-2.0
#include "sim.h"

#include <cstdio>

#include "capture.h"
#include "vy_sta_list.h"

namespace vysim {

namespace {

const std::uint8_t kBridgeMac[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0xff};
constexpr std::uint64_t kNsPerJiffy = 1000000000ull / VY_HZ;
/* A read loop that never sees 0 is a module fault; stop it rather than
 * spin forever. */
constexpr int kMaxReadCalls = 1 << 20;

int chrdev_id(Device d)
{
	return d == Device::Dump ? VY_CHRDEV_DUMP : VY_CHRDEV_SUMMARY;
}

} // namespace

void Sim::start()
{
	vy_host::reset();
	vy_host::set_event_sink([this](const vy_host::Event &e) { out_.event(e); });
	bridge_ = vy_host::bridge_create("br0", kBridgeMac);
	debug_level = opt_.debug_level;
	veyra_init();
	loaded_ = true;
	after_command();
}

void Sim::after_command()
{
	vy_host::settle();
	/* Everything was printed through the sink; keep memory flat on long
	 * captures. */
	vy_host::take_events();
	std::fflush(stdout);
}

vy_dev *Sim::port(const std::string &name)
{
	vy_dev *d = vy_host::dev_find(name);
	if (!d) {
		d = vy_host::dev_create(name, false);
		vy_host::dev_set_master(d, bridge_);
	}
	return d;
}

bool Sim::followed(const std::uint8_t *mac) const
{
	if (!loaded_)
		return false;
	int token = vy_plat_read_lock(&vy_sta_table.sta_lock);
	bool found = _vy_find_sta(mac) != nullptr;
	vy_plat_read_unlock(&vy_sta_table.sta_lock, token);
	return found;
}

bool Sim::replay(const std::string &path, vy_dev *dev, std::string &err)
{
	Capture cap;
	if (!load_capture(path, cap, err))
		return false;

	const unsigned long base = vy_host::jiffies();
	bool have_t0 = false;
	std::uint64_t t0 = 0;
	for (const CaptureFrame &f : cap.frames) {
		if (f.has_ts) {
			if (!have_t0) {
				have_t0 = true;
				t0 = f.ts_ns;
			}
			/* A frame stamped before the first one is replayed at
			 * the current time: simulated time never goes back. */
			if (f.ts_ns > t0) {
				unsigned long target = base + (unsigned long)((f.ts_ns - t0) / kNsPerJiffy);
				if (target > vy_host::jiffies())
					vy_host::advance_to(target);
			}
		}
		const std::uint8_t *bytes = cap.bytes.data() + f.offset;
		std::vector<std::uint8_t> frame(bytes, bytes + f.len);
		bool inbound;
		if (f.dir != Direction::Unknown)
			inbound = f.dir == Direction::Inbound;
		else
			inbound = frame.size() >= 12 && followed(frame.data() + 6);
		vy_skb skb = vy_host::make_skb(frame);
		if (inbound)
			vy_host::pass_pre_routing(skb, dev);
		else
			vy_host::pass_post_routing(skb, dev);
		after_command();
	}
	return true;
}

void Sim::device_io(const Command &c)
{
	const char *name = device_name(c.dev);
	vy_host::File *f = nullptr;
	for (auto it = held_.rbegin(); it != held_.rend(); ++it)
		if (it->dev == c.dev) {
			f = it->file;
			break;
		}
	bool own = !f;
	if (own) {
		int err = 0;
		f = vy_host::open(chrdev_id(c.dev), &err);
		if (!f) {
			out_.open_failed(vy_host::jiffies(), name, err);
			return;
		}
	}
	if (c.kind == Cmd::Write) {
		long r = vy_host::write(f, reinterpret_cast<const char *>(c.bytes.data()),
					c.bytes.size());
		out_.write_result(vy_host::jiffies(), name, r);
	} else {
		std::string data;
		std::vector<char> buf(c.num ? c.num : 1);
		for (int calls = 0; calls < kMaxReadCalls; calls++) {
			long r = vy_host::read(f, buf.data(), c.num);
			if (r <= 0 || (std::uint64_t)r > c.num)
				break;
			data.append(buf.data(), (std::size_t)r);
		}
		out_.read_result(vy_host::jiffies(), name, data);
	}
	if (own)
		vy_host::release(f);
}

bool Sim::exec(const Command &c, const std::string &dir, std::string &err)
{
	switch (c.kind) {
	case Cmd::None:
		return true;
	case Cmd::Port: {
		if (vy_host::dev_find(c.name)) {
			err = "port " + c.name + " already exists (declare ports before using them)";
			return false;
		}
		vy_dev *d;
		if (c.port_kind == PortKind::Vlan)
			d = vy_host::vlan_create(c.name, port(c.name2));
		else
			d = vy_host::dev_create(c.name, c.port_kind == PortKind::Wireless);
		vy_host::dev_set_master(d, bridge_);
		return true;
	}
	case Cmd::Time:
		if (c.num < vy_host::jiffies()) {
			err = "time " + std::to_string(c.num) + " is before the current time " +
			      std::to_string(vy_host::jiffies());
			return false;
		}
		vy_host::advance_to(c.num);
		return true;
	case Cmd::Advance:
		if (c.num > (1ull << 62) - vy_host::jiffies()) {
			err = "advance goes past the largest time the simulator handles";
			return false;
		}
		vy_host::advance(c.num);
		return true;
	case Cmd::Join:
	case Cmd::Leave:
	case Cmd::Event:
		/* Without a registered monitor umac has nobody to tell. */
		vy_host::umac_event((int)c.code, c.mac, c.name);
		return true;
	case Cmd::Rx:
	case Cmd::Tx:
	case Cmd::Fwd: {
		vy_skb skb = vy_host::make_skb(c.bytes);
		if (c.kind == Cmd::Tx) {
			vy_host::pass_post_routing(skb, port(c.name));
		} else {
			vy_host::pass_pre_routing(skb, port(c.name));
			if (c.kind == Cmd::Fwd)
				vy_host::pass_post_routing(skb, port(c.name2));
		}
		return true;
	}
	case Cmd::Pcap: {
		std::string path = c.name;
		if (!path.empty() && path[0] != '/' && !dir.empty())
			path = dir + "/" + path;
		return replay(path, port(c.name2), err);
	}
	case Cmd::Write:
	case Cmd::Read:
		device_io(c);
		return true;
	case Cmd::Open: {
		int e = 0;
		vy_host::File *f = vy_host::open(chrdev_id(c.dev), &e);
		if (f)
			held_.push_back({c.dev, f});
		else
			out_.open_failed(vy_host::jiffies(), device_name(c.dev), e);
		return true;
	}
	case Cmd::Close:
		for (auto it = held_.rbegin(); it != held_.rend(); ++it)
			if (it->dev == c.dev) {
				vy_host::File *f = it->file;
				held_.erase(std::next(it).base());
				vy_host::release(f);
				return true;
			}
		err = std::string(device_name(c.dev)) + " is not held open by an open command";
		return false;
	case Cmd::FailAlloc:
		vy_host::fail_next_allocations((int)c.num);
		return true;
	case Cmd::FailHook:
		vy_host::fail_next_hook_registration((int)c.code);
		return true;
	case Cmd::Unload:
		if (!loaded_) {
			err = "the module is not loaded";
			return false;
		}
		if (!held_.empty()) {
			/* An open device file holds the module, as in the kernel. */
			err = std::string("cannot unload while ") + device_name(held_.back().dev) +
			      " is held open (close it first)";
			return false;
		}
		veyra_exit();
		loaded_ = false;
		return true;
	case Cmd::Load:
		if (loaded_) {
			err = "the module is already loaded";
			return false;
		}
		/* A fresh load starts from the module's initial verbosity. */
		debug_level = opt_.debug_level;
		veyra_init();
		loaded_ = true;
		return true;
	case Cmd::Sysfs: {
		int attr = c.name == kSysfsDump ? VY_SYSFS_DUMP_MAJOR : VY_SYSFS_SUMMARY_MAJOR;
		bool present = vy_host::sysfs_present(attr);
		out_.sysfs(vy_host::jiffies(), c.name, present,
			   present ? vy_host::sysfs_read(attr) : std::string());
		return true;
	}
	}
	return true;
}

bool Sim::run(const std::string &text, const std::string &name, const std::string &dir)
{
	std::size_t pos = 0;
	unsigned long lineno = 0;
	while (pos < text.size()) {
		std::size_t nl = text.find('\n', pos);
		std::size_t end = nl == std::string::npos ? text.size() : nl;
		std::string line = text.substr(pos, end - pos);
		pos = end + 1;
		lineno++;

		Command c;
		std::string err;
		bool ok = parse_line(line, c, err) && exec(c, dir, err);
		after_command();
		if (!ok) {
			std::fprintf(stderr, "veyra-sim: %s:%lu: %s\n", name.c_str(), lineno,
				     err.c_str());
			return false;
		}
	}
	return true;
}

void Sim::release_all()
{
	while (!held_.empty()) {
		vy_host::File *f = held_.back().file;
		held_.pop_back();
		vy_host::release(f);
	}
}

void Sim::finish()
{
	release_all();
	if (loaded_) {
		veyra_exit();
		loaded_ = false;
	}
	after_command();
	out_.leaked(vy_host::jiffies(), vy_host::live_allocations());
	std::fflush(stdout);
}

void Sim::stop_quietly()
{
	vy_host::set_event_sink(nullptr);
	release_all();
	if (loaded_) {
		veyra_exit();
		loaded_ = false;
	}
	vy_host::settle();
	vy_host::take_events();
	std::fflush(stdout);
}

} // namespace vysim
