/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The C ABI between veyra's logic (src/) and the platform it runs on:
 * platform/kernel/ (the Linux module glue) or platform/host/ (user space,
 * for tests and tools).
 *
 * Rules of this header:
 *  - valid C and C++, includes nothing: only compiler-provided types;
 *  - no kernel type crosses it: kernel objects the logic owns are opaque
 *    storage sized here and checked against the real type in the glue
 *    (BUILD_BUG_ON), kernel objects the logic only passes around are
 *    incomplete struct pointers;
 *  - errors are negative errno values.
 */
#ifndef VY_PLATFORM_H
#define VY_PLATFORM_H

#ifdef __cplusplus
extern "C" {
#endif

typedef __UINT8_TYPE__ vy_u8;
typedef __UINT16_TYPE__ vy_u16;
typedef __UINT32_TYPE__ vy_u32;
typedef __INT32_TYPE__ vy_s32;
typedef __UINT64_TYPE__ vy_u64;
typedef __SIZE_TYPE__ vy_size;

/* The timer frequency. Both builds pass -DVY_HZ (the kernel build from
 * CONFIG_HZ, checked against HZ in the glue); the host runs at 100. */
#ifndef VY_HZ
#define VY_HZ 100
#endif

#define VY_ENOMEM 12
#define VY_EFAULT 14
#define VY_EBUSY 16
#define VY_EINVAL 22

/* ---- memory ---------------------------------------------------------- */

/* Zero-filled, never sleeps (GFP_ATOMIC); NULL on failure. */
void *vy_plat_zalloc(vy_size size);
void vy_plat_free(const void *p);

/* ---- reader-writer spinlock ------------------------------------------ */

/*
 * Opaque storage for a rwlock_t (large enough for a lockdep kernel).
 * The lock functions choose the variant by context: the plain lock when
 * interrupts are disabled or in hard-interrupt context, otherwise the one
 * that disables bottom halves. They return a token naming the variant
 * taken, which the matching unlock must be given back.
 */
struct vy_plat_rwlock {
	vy_u64 opaque[16];
};

void vy_plat_rwlock_init(struct vy_plat_rwlock *l);
int vy_plat_write_lock(struct vy_plat_rwlock *l);
void vy_plat_write_unlock(struct vy_plat_rwlock *l, int token);
int vy_plat_read_lock(struct vy_plat_rwlock *l);
void vy_plat_read_unlock(struct vy_plat_rwlock *l, int token);
/* Debug aid: the host build aborts when the caller does not hold the lock
 * (for writing, when write is non-zero); the kernel build asks lockdep. */
void vy_plat_rwlock_assert_held(struct vy_plat_rwlock *l, int write);

/* ---- counting semaphore ---------------------------------------------- */

struct vy_plat_sem {
	vy_u64 opaque[16];
};

void vy_plat_sema_init(struct vy_plat_sem *s, int count);
void vy_plat_down(struct vy_plat_sem *s); /* sleeps, process context only */
void vy_plat_up(struct vy_plat_sem *s);   /* any context */

/* ---- the hook work: one work item on the shared workqueue ------------- */

/*
 * The platform owns the single work item; its function is the logic's
 * vy_hook_work_fn(). Queueing a queued, not yet started item does nothing;
 * queueing a running one runs it once more after it returns.
 */
void vy_plat_work_queue(void);
void vy_plat_work_cancel_sync(void);
void vy_hook_work_fn(void); /* provided by the logic */

/* ---- kernel timer ---------------------------------------------------- */

struct vy_plat_timer {
	vy_u64 opaque[24];
};

typedef void (*vy_plat_timer_fn)(struct vy_plat_timer *t);

void vy_plat_timer_setup(struct vy_plat_timer *t, vy_plat_timer_fn fn);
void vy_plat_timer_mod(struct vy_plat_timer *t, unsigned long expires);
int vy_plat_timer_pending(const struct vy_plat_timer *t);
void vy_plat_timer_del_sync(struct vy_plat_timer *t);

/* ---- time ------------------------------------------------------------ */

unsigned long vy_plat_jiffies(void);
vy_u32 vy_plat_jiffies_to_msecs(unsigned long j);

/* ---- log ------------------------------------------------------------- */

enum vy_log_level {
	VY_LOG_ERR = 3,
	VY_LOG_WARNING = 4,
	VY_LOG_NOTICE = 5,
	VY_LOG_INFO = 6,
	VY_LOG_DEBUG = 7,
	VY_LOG_DEFAULT = 8, /* no level given: the kernel's default level */
};

/*
 * One kernel log line. The format understands the kernel's %pM, %pI4 and
 * %pS besides the usual conversions. VY_LOG_DEBUG lines also go through
 * dynamic debug: they print only where that site is enabled.
 */
void vy_plat_log(int level, const char *fmt, ...)
	__attribute__((format(printf, 2, 3)));
/*
 * The rate limit of one log call site, as the kernel's printk_ratelimited
 * keeps one per site: at most 10 lines in 5 s. Zero-filled storage is a
 * fresh state (each site has a static one); the platform owns the fields.
 */
struct vy_plat_ratelimit {
	unsigned long begin; /* jiffies at the window's start, 0: none yet */
	vy_s32 printed;      /* lines let through in this window */
	vy_s32 missed;       /* lines dropped since the last report */
};

/* Non-zero when one more line of the site that owns rs may be printed now.
 * The first call of a new window after lines were dropped first logs the
 * kernel's warning "<func>: <n> callbacks suppressed"; func is the calling
 * function's name. */
int vy_plat_log_ratelimit(struct vy_plat_ratelimit *rs, const char *func);
/* The kernel's snprintf, with the same %p extensions. */
int vy_plat_snprintf(char *buf, vy_size size, const char *fmt, ...)
	__attribute__((format(printf, 3, 4)));

/* ---- bridge hooks and the frames they see ----------------------------- */

struct vy_skb;        /* struct sk_buff */
struct vy_dev;        /* struct net_device */
struct vy_hook_state; /* struct nf_hook_state */

/* Registers both bridge hooks (pre- and post-routing, priority 301) in the
 * initial namespace; the hook functions are the logic's
 * vy_br_pre_routing_hook and vy_br_post_routing_hook. */
int vy_plat_register_hooks(void);
void vy_plat_unregister_hooks(void);
unsigned int vy_br_pre_routing_hook(void *priv, struct vy_skb *skb,
				    const struct vy_hook_state *state);
unsigned int vy_br_post_routing_hook(void *priv, struct vy_skb *skb,
				     const struct vy_hook_state *state);

/* What the classification reads of a socket buffer, in one call. */
struct vy_skb_view {
	const vy_u8 *mac; /* head + mac_header; NULL when not set */
	const vy_u8 *end; /* head + tail: the end of the linear data */
	vy_u32 len;       /* skb->len */
};

void vy_plat_skb_view(const struct vy_skb *skb, struct vy_skb_view *v);
struct vy_dev *vy_plat_hook_state_in(const struct vy_hook_state *st);
struct vy_dev *vy_plat_hook_state_out(const struct vy_hook_state *st);

int vy_plat_dev_is_vlan(const struct vy_dev *dev);
struct vy_dev *vy_plat_vlan_real_dev(const struct vy_dev *dev);
int vy_plat_dev_is_wireless(const struct vy_dev *dev);
const char *vy_plat_dev_name(const struct vy_dev *dev);
const vy_u8 *vy_plat_dev_addr(const struct vy_dev *dev);
/* The master upper device, looked up under the RCU read lock and returned
 * with a reference held (NULL when there is none); vy_plat_dev_put drops it. */
struct vy_dev *vy_plat_dev_master_get(struct vy_dev *dev);
void vy_plat_dev_put(struct vy_dev *dev);

/* ---- umac ------------------------------------------------------------ */

/* The platform owns the monitor record (umac's layout); its callback calls
 * the logic's vy_sta_evt_cb with the event code and the event record. */
int vy_plat_umac_monitor_register(void);
int vy_plat_umac_monitor_unregister(void);
int vy_sta_evt_cb(vy_s32 event, const void *record);

void vy_plat_notify_sta_dhcp(const char *vap, const vy_u8 *mac, vy_u8 status,
			     vy_u8 reason, const char *hostname,
			     vy_u8 hostname_len, vy_u32 ip, vy_u8 type,
			     vy_u32 server, vy_u32 gateway, vy_u32 latency);
void vy_plat_notify_sta_dns(const char *vap, const vy_u8 *mac, vy_u8 status,
			    vy_u32 dns_server, vy_u32 latency);

/* ---- character devices, user copies, sysfs ---------------------------- */

struct vy_file; /* an open file of one of the two devices */
struct vy_kobj; /* struct kobject */

enum vy_chrdev_id {
	VY_CHRDEV_SUMMARY = 0, /* "vy_summary", open = vy_summary_dev_open */
	VY_CHRDEV_DUMP = 1,    /* "vy_dump", open = vy_dump_dev_open */
};

/* Registers the device with a dynamic major, minors 0-255; returns the
 * major or a negative error. The file operations live in the platform and
 * call the logic's functions below; they name the module as their owner. */
int vy_plat_register_chrdev(int id);
void vy_plat_unregister_chrdev(int id, int major);

/* The file's private data slot. Reads on one open file are serialised by
 * the platform (a per-file mutex), so the logic sees one reader at a time. */
void **vy_plat_file_private(struct vy_file *f);

/* Return the number of bytes NOT copied, as the kernel's functions do. */
unsigned long vy_plat_copy_to_user(void *to, const void *from, unsigned long n);
unsigned long vy_plat_copy_from_user(void *to, const void *from, unsigned long n);

int vy_dump_dev_open(struct vy_file *f);
int vy_summary_dev_open(struct vy_file *f);
long vy_dump_dev_read(struct vy_file *f, void *ubuf, vy_size count);
long vy_dump_dev_write(struct vy_file *f, const void *ubuf, vy_size count);
int vy_dump_dev_release(struct vy_file *f);

enum vy_sysfs_attr_id {
	VY_SYSFS_SUMMARY_MAJOR = 0, /* summary_dev_major_num */
	VY_SYSFS_DUMP_MAJOR = 1,    /* dump_dev_major_num */
};

/* The "veyra" directory at the top of sysfs, and its two read-only (0644)
 * attributes, whose show calls the logic's vy_sysfs_show. */
struct vy_kobj *vy_plat_kobject_create(void);
int vy_plat_sysfs_create_file(struct vy_kobj *k, int attr);
void vy_plat_sysfs_remove_file(struct vy_kobj *k, int attr);
void vy_plat_kobject_put(struct vy_kobj *k);
long vy_sysfs_show(int attr, char *page); /* page holds 4096 bytes */

/* ---- module entry, provided by the logic ------------------------------ */

int veyra_init(void);
void veyra_exit(void);

#ifdef __cplusplus
}
#endif
#endif /* VY_PLATFORM_H */
