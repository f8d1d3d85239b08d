/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Shared types, status codes, name tables, logging macros, lock guards and
 * the kernel's intrusive lists, for every unit of the module.
 *
 * Freestanding C++17: no standard library, no exceptions, no RTTI, no
 * global constructors. Records are plain data, allocated zero-filled by
 * the platform and used without constructors.
 */
#ifndef VY_COMMON_H
#define VY_COMMON_H

#include "../platform/vy_platform.h"

typedef vy_u8 u8;
typedef vy_u16 u16;
typedef vy_u32 u32;
typedef vy_s32 s32;
typedef __INT16_TYPE__ s16;
typedef vy_u64 u64;

#define VY_ARRAY_SIZE(a) (sizeof(a) / sizeof((a)[0]))
#define HZ VY_HZ

#define ETH_ALEN 6

/* ---- unlocked shared scalars ------------------------------------------ */

/*
 * debug_level, force_listen and the listener total are read without a lock
 * from every context; these are the kernel's READ_ONCE/WRITE_ONCE, written
 * as relaxed atomics so that the compiler neither tears nor caches them.
 */
template <typename T> static inline T vy_read_once(const T &x)
{
	return __atomic_load_n(&x, __ATOMIC_RELAXED);
}

template <typename T> static inline void vy_write_once(T &x, T v)
{
	__atomic_store_n(&x, v, __ATOMIC_RELAXED);
}

/* ---- status codes and name tables ------------------------------------- */

enum : u32 {
	VY_STATUS_UNKNOWN = 0, /* pending, or not yet known */
	VY_STATUS_OK = 1,
	VY_STATUS_FAIL = 2,
	VY_STATUS_INVALID = 3, /* a DHCP message that changes no status */
};

extern "C" {
/* "UNKNOWN", "OK", "FAIL", "INVALID"; anything above 3 is "INVALID". */
const char *vy_status_name(u32 status);
/* The ten-entry DHCP type-name table; anything above 9 is "UNKNOWN". */
const char *vy_dhcp_type_name(u8 type);
/* Types 0-9 by the table, anything larger "Unknown DHCP type". */
const char *vy_dhcp_type_name_or_unknown(u8 type);
}

/* ---- logging ---------------------------------------------------------- */

extern "C" s32 debug_level;

static inline s32 vy_debug_level(void)
{
	return vy_read_once(debug_level);
}

/*
 * Every line starts with the emitting function's name and its source line.
 * Errors always print; warnings need debug_level 1, notices 2, info 3 and
 * debug lines 4 (and their dynamic-debug site enabled).
 */
#define vy_err(fmt, ...) \
	vy_plat_log(VY_LOG_ERR, "%s:%d:" fmt, __func__, __LINE__, ##__VA_ARGS__)

#define _vy_log_at(min, lvl, fmt, ...)                                       \
	do {                                                                 \
		if (vy_debug_level() >= (min))                               \
			vy_plat_log(lvl, "%s[%d]:" fmt, __func__, __LINE__,  \
				    ##__VA_ARGS__);                          \
	} while (0)

#define vy_warn(fmt, ...) _vy_log_at(1, VY_LOG_WARNING, fmt, ##__VA_ARGS__)
#define vy_notice(fmt, ...) _vy_log_at(2, VY_LOG_NOTICE, fmt, ##__VA_ARGS__)
#define vy_info(fmt, ...) _vy_log_at(3, VY_LOG_INFO, fmt, ##__VA_ARGS__)
#define vy_dbg(fmt, ...) _vy_log_at(4, VY_LOG_DEBUG, fmt, ##__VA_ARGS__)

/*
 * A line that a station's traffic (or a looping writer) can trigger at a
 * high rate passes the rate limit of its own call site, so that a flood
 * cannot fill the log, and one noisy site cannot hide another's lines.
 * The state is a zero-initialised POD: no constructor, no guard variable.
 */
#define vy_warn_ratelimited(fmt, ...)                                        \
	do {                                                                 \
		static struct vy_plat_ratelimit _vy_rs;                      \
		if (vy_debug_level() >= 1 &&                                 \
		    vy_plat_log_ratelimit(&_vy_rs, __func__))                \
			vy_plat_log(VY_LOG_WARNING, "%s[%d]:" fmt, __func__, \
				    __LINE__, ##__VA_ARGS__);                \
	} while (0)

/* An error line, printed whatever debug_level, under its site's limit. */
#define vy_err_ratelimited(fmt, ...)                                         \
	do {                                                                 \
		static struct vy_plat_ratelimit _vy_rs;                      \
		if (vy_plat_log_ratelimit(&_vy_rs, __func__))                \
			vy_plat_log(VY_LOG_ERR, "%s:%d:" fmt, __func__,      \
				    __LINE__, ##__VA_ARGS__);                \
	} while (0)

/* ---- memory and strings ---------------------------------------------- */

#define vy_memcpy __builtin_memcpy
#define vy_memset __builtin_memset
#define vy_memcmp __builtin_memcmp

/* A zero-filled record from the atomic allocator; NULL on failure. */
template <typename T> static inline T *vy_zalloc(void)
{
	return static_cast<T *>(vy_plat_zalloc(sizeof(T)));
}

/* strlcpy without its read of the whole source: copies at most size - 1
 * bytes and always terminates (size > 0). */
static inline void vy_strlcpy(char *dst, const char *src, vy_size size)
{
	vy_size i = 0;

	for (; i + 1 < size && src[i]; i++)
		dst[i] = src[i];
	dst[i] = '\0';
}

static inline int vy_strcmp(const char *a, const char *b)
{
	while (*a && *a == *b) {
		a++;
		b++;
	}
	return (int)(u8)*a - (int)(u8)*b;
}

static inline int vy_strncmp(const char *a, const char *b, vy_size n)
{
	for (vy_size i = 0; i < n; i++) {
		if (a[i] != b[i])
			return (int)(u8)a[i] - (int)(u8)b[i];
		if (!a[i])
			return 0;
	}
	return 0;
}

static inline bool vy_mac_is_zero(const u8 *mac)
{
	for (int i = 0; i < ETH_ALEN; i++)
		if (mac[i])
			return false;
	return true;
}

/* Unaligned network-order loads: frame bytes carry no alignment. */
static inline u16 vy_get_be16(const u8 *p)
{
	return (u16)((p[0] << 8) | p[1]);
}

static inline u32 vy_get_be32(const u8 *p)
{
	return ((u32)p[0] << 24) | ((u32)p[1] << 16) | ((u32)p[2] << 8) | p[3];
}

/* An IPv4 address kept in network order, exactly as the bytes stand. */
static inline u32 vy_get_ip(const u8 *p)
{
	u32 v;

	vy_memcpy(&v, p, 4);
	return v;
}

/* ---- lock guards ------------------------------------------------------ */

/* RAII guards for the reader-writer spinlocks. The variant (plain or
 * bottom-half) is chosen by the platform from the context and handed back
 * at unlock. Not copyable: a lock is released exactly once. */
class vy_write_guard {
public:
	explicit vy_write_guard(vy_plat_rwlock *l)
		: l_(l), token_(vy_plat_write_lock(l))
	{
	}
	~vy_write_guard() { vy_plat_write_unlock(l_, token_); }
	vy_write_guard(const vy_write_guard &) = delete;
	vy_write_guard &operator=(const vy_write_guard &) = delete;

private:
	vy_plat_rwlock *l_;
	int token_;
};

class vy_read_guard {
public:
	explicit vy_read_guard(vy_plat_rwlock *l)
		: l_(l), token_(vy_plat_read_lock(l))
	{
	}
	~vy_read_guard() { vy_plat_read_unlock(l_, token_); }
	vy_read_guard(const vy_read_guard &) = delete;
	vy_read_guard &operator=(const vy_read_guard &) = delete;

private:
	vy_plat_rwlock *l_;
	int token_;
};

/* ---- the kernel's hash lists and circular lists ----------------------- */

struct vy_hlist_node {
	vy_hlist_node *next;
	vy_hlist_node **pprev;
};

struct vy_hlist_head {
	vy_hlist_node *first;
};

static inline void vy_hlist_add_head(vy_hlist_node *n, vy_hlist_head *h)
{
	vy_hlist_node *first = h->first;

	n->next = first;
	if (first)
		first->pprev = &n->next;
	h->first = n;
	n->pprev = &h->first;
}

static inline void vy_hlist_del(vy_hlist_node *n)
{
	*n->pprev = n->next;
	if (n->next)
		n->next->pprev = n->pprev;
	n->next = nullptr;
	n->pprev = nullptr;
}

struct vy_list_head {
	vy_list_head *next;
	vy_list_head *prev;
};

static inline void vy_list_init(vy_list_head *l)
{
	l->next = l;
	l->prev = l;
}

/* Removes e from its circle and leaves it a circle of its own. */
static inline void vy_list_del_init(vy_list_head *e)
{
	e->prev->next = e->next;
	e->next->prev = e->prev;
	vy_list_init(e);
}

#define vy_container_of(ptr, type, member) \
	reinterpret_cast<type *>(reinterpret_cast<char *>(ptr) - \
				 __builtin_offsetof(type, member))

#endif /* VY_COMMON_H */
