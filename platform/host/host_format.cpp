// SPDX-License-Identifier: GPL-2.0
/*
 * A vsnprintf that understands the kernel's pointer extensions used by the
 * module: %pM (MAC), %pI4 (IPv4, network order), %pS (symbol), and prints a
 * NULL pointer as "(null)" for them, as the kernel does. Everything else is
 * handed to the C library one conversion at a time.
 */
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host_internal.h"

namespace vy_host {

/*
 * The kernel's %pS resolves static functions too; dladdr only sees the
 * dynamic symbol table. So the executable's full symbol table is read once
 * (mapped, bounds-checked) and searched for the function holding addr.
 */
struct FuncSym {
	std::uintptr_t start, size;
	std::string name;
};

static std::vector<FuncSym> load_symtab()
{
	std::vector<FuncSym> out;
	int fd = ::open("/proc/self/exe", O_RDONLY);
	if (fd < 0)
		return out;
	struct stat st;
	void *map = MAP_FAILED;
	if (fstat(fd, &st) == 0 && st.st_size > (off_t)sizeof(Elf64_Ehdr))
		map = mmap(nullptr, st.st_size, PROT_READ, MAP_PRIVATE, fd, 0);
	::close(fd);
	if (map == MAP_FAILED)
		return out;
	const char *base = (const char *)map;
	std::size_t size = (std::size_t)st.st_size;
	auto inside = [&](std::uint64_t off, std::uint64_t len) {
		return off <= size && len <= size - off;
	};
	const Elf64_Ehdr *eh = (const Elf64_Ehdr *)base;
	/* The load bias of a position-independent executable. */
	std::uintptr_t bias = 0;
	dl_iterate_phdr(
		[](struct dl_phdr_info *info, std::size_t, void *data) {
			*(std::uintptr_t *)data = info->dlpi_addr;
			return 1; /* the first object is the executable */
		},
		&bias);
	if (std::memcmp(eh->e_ident, ELFMAG, SELFMAG) == 0 &&
	    eh->e_ident[EI_CLASS] == ELFCLASS64 &&
	    inside(eh->e_shoff, (std::uint64_t)eh->e_shnum * sizeof(Elf64_Shdr))) {
		const Elf64_Shdr *sh = (const Elf64_Shdr *)(base + eh->e_shoff);
		for (unsigned i = 0; i < eh->e_shnum; i++) {
			if (sh[i].sh_type != SHT_SYMTAB || sh[i].sh_link >= eh->e_shnum)
				continue;
			const Elf64_Shdr &strs = sh[sh[i].sh_link];
			if (!inside(sh[i].sh_offset, sh[i].sh_size) ||
			    !inside(strs.sh_offset, strs.sh_size))
				continue;
			const Elf64_Sym *sym = (const Elf64_Sym *)(base + sh[i].sh_offset);
			std::size_t n = sh[i].sh_size / sizeof(Elf64_Sym);
			for (std::size_t k = 0; k < n; k++) {
				if (ELF64_ST_TYPE(sym[k].st_info) != STT_FUNC ||
				    !sym[k].st_value || sym[k].st_name >= strs.sh_size)
					continue;
				const char *nm = base + strs.sh_offset + sym[k].st_name;
				std::size_t maxlen = strs.sh_size - sym[k].st_name;
				out.push_back({bias + sym[k].st_value, sym[k].st_size,
					       std::string(nm, strnlen(nm, maxlen))});
			}
		}
	}
	munmap(map, size);
	std::sort(out.begin(), out.end(),
		  [](const FuncSym &a, const FuncSym &b) { return a.start < b.start; });
	return out;
}

static bool find_symbol(const void *addr, std::string *name, std::uintptr_t *off)
{
	static std::once_flag once;
	static std::vector<FuncSym> *syms;
	std::call_once(once, [] { syms = new std::vector<FuncSym>(load_symtab()); });
	std::uintptr_t a = (std::uintptr_t)addr;
	auto it = std::upper_bound(syms->begin(), syms->end(), a,
				   [](std::uintptr_t v, const FuncSym &s) { return v < s.start; });
	if (it == syms->begin())
		return false;
	--it;
	if (a >= it->start + std::max<std::uintptr_t>(it->size, 1))
		return false;
	*name = it->name;
	*off = a - it->start;
	return true;
}

static std::string symbol_name(const void *addr)
{
	Dl_info info;
	std::string name;
	std::uintptr_t offset = 0;
	if (find_symbol(addr, &name, &offset)) {
		info.dli_saddr = (void *)((std::uintptr_t)addr - offset);
	} else if (dladdr(addr, &info) && info.dli_sname) {
		name = info.dli_sname;
	} else {
		return "?";
	}
	int status = 0;
	char *dem = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
	if (status == 0 && dem) {
		name = dem;
		std::size_t paren = name.find('(');
		if (paren != std::string::npos)
			name.resize(paren);
	}
	std::free(dem);
	char off[32];
	std::snprintf(off, sizeof(off), "+0x%lx",
		      (unsigned long)((const char *)addr -
				      (const char *)info.dli_saddr));
	return name + off;
}

static void pad(std::string &out, const std::string &s, int width, bool left)
{
	int fill = width - (int)s.size();
	if (fill > 0 && !left)
		out.append(fill, ' ');
	out += s;
	if (fill > 0 && left)
		out.append(fill, ' ');
}

std::string vformat(const char *fmt, va_list ap)
{
	std::string out;
	va_list args;
	va_copy(args, ap);

	for (const char *p = fmt; *p;) {
		if (*p != '%') {
			out += *p++;
			continue;
		}
		const char *start = p++;
		if (*p == '%') {
			out += '%';
			p++;
			continue;
		}
		bool left = false;
		while (*p && std::strchr("-+ #0", *p)) {
			if (*p == '-')
				left = true;
			p++;
		}
		int width = 0;
		bool star_width = false, star_prec = false;
		if (*p == '*') {
			star_width = true;
			p++;
		} else {
			while (*p >= '0' && *p <= '9')
				width = width * 10 + (*p++ - '0');
		}
		if (*p == '.') {
			p++;
			if (*p == '*') {
				star_prec = true;
				p++;
			} else {
				while (*p >= '0' && *p <= '9')
					p++;
			}
		}
		int lmod = 0; /* 1 h, 2 hh, 3 l, 4 ll, 5 z */
		if (*p == 'h') {
			p++;
			lmod = 1;
			if (*p == 'h') {
				p++;
				lmod = 2;
			}
		} else if (*p == 'l') {
			p++;
			lmod = 3;
			if (*p == 'l') {
				p++;
				lmod = 4;
			}
		} else if (*p == 'z') {
			p++;
			lmod = 5;
		}
		char conv = *p ? *p++ : '\0';
		std::string directive(start, p - start);
		char buf[512];
		int wv = 0, pv = 0;
		if (star_width) {
			wv = va_arg(args, int);
			if (wv < 0) {
				left = true;
				wv = -wv;
			}
			width = wv;
		}
		if (star_prec)
			pv = va_arg(args, int);

		auto emit = [&](auto value) {
			if (star_width && star_prec)
				std::snprintf(buf, sizeof(buf), directive.c_str(), wv, pv, value);
			else if (star_width)
				std::snprintf(buf, sizeof(buf), directive.c_str(), wv, value);
			else if (star_prec)
				std::snprintf(buf, sizeof(buf), directive.c_str(), pv, value);
			else
				std::snprintf(buf, sizeof(buf), directive.c_str(), value);
			out += buf;
		};

		switch (conv) {
		case 'd':
		case 'i':
			if (lmod == 3)
				emit(va_arg(args, long));
			else if (lmod == 4)
				emit(va_arg(args, long long));
			else if (lmod == 5)
				emit(va_arg(args, long));
			else
				emit(va_arg(args, int));
			break;
		case 'u':
		case 'x':
		case 'X':
		case 'o':
			if (lmod == 3)
				emit(va_arg(args, unsigned long));
			else if (lmod == 4)
				emit(va_arg(args, unsigned long long));
			else if (lmod == 5)
				emit(va_arg(args, std::size_t));
			else
				emit(va_arg(args, unsigned int));
			break;
		case 'c':
			emit(va_arg(args, int));
			break;
		case 's': {
			const char *s = va_arg(args, const char *);
			emit(s ? s : "(null)");
			break;
		}
		case 'p': {
			const void *ptr = va_arg(args, const void *);
			std::string text;
			if (*p == 'M' || (*p == 'I' && p[1] == '4') || *p == 'S') {
				char ext = *p;
				p += (ext == 'I') ? 2 : 1;
				if (!ptr) {
					text = "(null)";
				} else if (ext == 'M') {
					const unsigned char *m = (const unsigned char *)ptr;
					std::snprintf(buf, sizeof(buf),
						      "%02x:%02x:%02x:%02x:%02x:%02x",
						      m[0], m[1], m[2], m[3], m[4], m[5]);
					text = buf;
				} else if (ext == 'I') {
					const unsigned char *a = (const unsigned char *)ptr;
					std::snprintf(buf, sizeof(buf), "%u.%u.%u.%u",
						      a[0], a[1], a[2], a[3]);
					text = buf;
				} else {
					text = symbol_name(ptr);
				}
			} else {
				std::snprintf(buf, sizeof(buf), "%016lx",
					      (unsigned long)(std::uintptr_t)ptr);
				text = ptr ? buf : "0000000000000000";
			}
			pad(out, text, width, left);
			break;
		}
		default:
			out += directive;
			break;
		}
	}
	va_end(args);
	return out;
}

int vsnprintf_kernel(char *buf, std::size_t size, const char *fmt, va_list ap)
{
	std::string s = vformat(fmt, ap);
	if (size) {
		std::size_t n = s.size() < size - 1 ? s.size() : size - 1;
		std::memcpy(buf, s.data(), n);
		buf[n] = '\0';
	}
	return (int)s.size();
}

} // namespace vy_host
