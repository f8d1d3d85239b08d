// Builders for the messages the parsers read: DNS messages from names,
// pointers and records; DHCP messages from the fixed part and options.
// Counts and lengths are filled from what was added unless a test sets
// them on purpose.
#ifndef VY_TEST_MSG_BUILDER_H
#define VY_TEST_MSG_BUILDER_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace msg {

using Bytes = std::vector<std::uint8_t>;
using Ip = std::array<std::uint8_t, 4>;
using Mac = std::array<std::uint8_t, 6>;

/* Concatenation, for messages and for the tests' expected lines. */
template <class T> std::vector<T> operator+(std::vector<T> a, const std::vector<T> &b)
{
	a.insert(a.end(), b.begin(), b.end());
	return a;
}

/* ---- DNS names ---------------------------------------------------------- */

/* The labels of a dotted name, without the terminating zero byte. */
inline Bytes labels(const std::string &dotted)
{
	Bytes out;

	for (size_t start = 0, dot = 0; !dotted.empty() && dot != std::string::npos;
	     start = dot + 1) {
		dot = dotted.find('.', start);
		const std::string label = dotted.substr(start, dot - start);
		out.push_back(static_cast<std::uint8_t>(label.size()));
		out.insert(out.end(), label.begin(), label.end());
	}
	return out;
}

/* A complete uncompressed name: its labels and the zero byte. */
inline Bytes name(const std::string &dotted)
{
	return labels(dotted) + Bytes{0};
}

/* A compression pointer to an offset from the message start. */
inline Bytes ptr(std::uint16_t offset)
{
	return Bytes{static_cast<std::uint8_t>(0xC0 | (offset >> 8)),
		     static_cast<std::uint8_t>(offset & 0xFF)};
}

/* ---- DNS messages ------------------------------------------------------- */

class Dns {
public:
	Dns &response(std::uint8_t rcode = 0)
	{
		flags_ = static_cast<std::uint16_t>(0x8180 | (rcode & 0x0F));
		return *this;
	}
	Dns &query()
	{
		flags_ = 0x0100;
		return *this;
	}
	Dns &qdcount(std::uint16_t n)
	{
		qdcount_ = n;
		return *this;
	}
	Dns &ancount(std::uint16_t n)
	{
		ancount_ = n;
		return *this;
	}

	Dns &question(const std::string &dotted, std::uint16_t qtype = 1 /* A */)
	{
		body_ = body_ + name(dotted);
		put16(body_, qtype);
		put16(body_, 1); /* IN */
		questions_++;
		return *this;
	}

	/* One resource record; rdlength defaults to the RDATA's size. */
	Dns &record(const Bytes &owner, std::uint16_t type, const Bytes &rdata,
		    std::optional<std::uint16_t> rdlength = std::nullopt)
	{
		body_ = body_ + owner;
		put16(body_, type);
		put16(body_, 1); /* IN */
		put16(body_, 0); /* TTL: 300 s */
		put16(body_, 300);
		put16(body_, rdlength ? *rdlength : static_cast<std::uint16_t>(rdata.size()));
		body_ = body_ + rdata;
		records_++;
		return *this;
	}
	Dns &a(const Bytes &owner, const Ip &ip)
	{
		return record(owner, 1 /* A */, Bytes(ip.begin(), ip.end()));
	}

	/* Bytes appended as they are (a name a pointer will lead to, junk). */
	Dns &raw(const Bytes &b)
	{
		body_ = body_ + b;
		return *this;
	}

	Bytes build() const
	{
		Bytes m{0x12, 0x34};

		put16(m, flags_);
		put16(m, qdcount_ ? *qdcount_ : questions_);
		put16(m, ancount_ ? *ancount_ : records_);
		m.resize(12); /* no authority or additional records */
		return m + body_;
	}

private:
	static void put16(Bytes &b, std::uint16_t v)
	{
		b.push_back(static_cast<std::uint8_t>(v >> 8));
		b.push_back(static_cast<std::uint8_t>(v));
	}

	std::uint16_t flags_ = 0x0100;
	std::optional<std::uint16_t> qdcount_;
	std::optional<std::uint16_t> ancount_;
	std::uint16_t questions_ = 0;
	std::uint16_t records_ = 0;
	Bytes body_;
};

/* ---- DHCP messages ------------------------------------------------------ */

constexpr size_t kDhcpFixed = 240;

constexpr std::uint8_t kOptRouter = 3;
constexpr std::uint8_t kOptDns = 6;
constexpr std::uint8_t kOptHostname = 12;
constexpr std::uint8_t kOptRequestedIp = 50;
constexpr std::uint8_t kOptMessageType = 53;
constexpr std::uint8_t kOptServerId = 54;
constexpr std::uint8_t kOptEnd = 255;

class Dhcp {
public:
	Dhcp()
	{
		/* BOOTREQUEST over Ethernet, and the magic cookie */
		m_.assign(kDhcpFixed, 0);
		m_[0] = m_[1] = 1;
		m_[2] = 6;
		cookie({0x63, 0x82, 0x53, 0x63});
	}

	Dhcp &ciaddr(const Ip &ip) { return put(12, ip.data(), 4); }
	Dhcp &yiaddr(const Ip &ip) { return put(16, ip.data(), 4); }
	Dhcp &siaddr(const Ip &ip) { return put(20, ip.data(), 4); }
	Dhcp &chaddr(const Mac &mac) { return put(28, mac.data(), 6); }
	Dhcp &cookie(const Ip &c) { return put(236, c.data(), 4); }

	/* Code, length byte, data. */
	Dhcp &option(std::uint8_t code, const Bytes &data)
	{
		m_.push_back(code);
		m_.push_back(static_cast<std::uint8_t>(data.size()));
		m_.insert(m_.end(), data.begin(), data.end());
		return *this;
	}
	Dhcp &type(std::uint8_t t) { return option(kOptMessageType, {t}); }
	Dhcp &addr_option(std::uint8_t code, const Ip &ip)
	{
		return option(code, Bytes(ip.begin(), ip.end()));
	}
	Dhcp &hostname(const std::string &h)
	{
		return option(kOptHostname, Bytes(h.begin(), h.end()));
	}
	Dhcp &raw(const Bytes &b)
	{
		m_.insert(m_.end(), b.begin(), b.end());
		return *this;
	}
	/* Zero bytes up to a total size (the usual padding after END). */
	Dhcp &pad_to(size_t size)
	{
		m_.resize(std::max(m_.size(), size), 0);
		return *this;
	}

	Bytes build() const { return m_; }

private:
	Dhcp &put(size_t at, const std::uint8_t *p, size_t n)
	{
		std::memcpy(&m_[at], p, n);
		return *this;
	}

	Bytes m_;
};

} // namespace msg

#endif
