// SPDX-License-Identifier: GPL-2.0
/*
 * veyra's kernel platform: the core services of vy_platform.h (memory,
 * locks, the semaphore, the hook work, timers, time, log) and the module's
 * entry points. The glue files are the only ones that see kernel headers;
 * the logic in src/ is freestanding C++ and reaches the kernel only through
 * these functions.
 */
#include <linux/bug.h>
#include <linux/build_bug.h>
#include <linux/errno.h>
#include <linux/irqflags.h>
#include <linux/jiffies.h>
#include <linux/kernel.h>
#include <linux/lockdep.h>
#include <linux/module.h>
#include <linux/preempt.h>
#include <linux/printk.h>
#include <linux/ratelimit.h>
#include <linux/semaphore.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/timer.h>
#include <linux/version.h>
#include <linux/workqueue.h>

#include "../vy_platform.h"

/* ---- memory -------------------------------------------------------------- */

void *vy_plat_zalloc(vy_size size)
{
	return kzalloc(size, GFP_ATOMIC);
}

void vy_plat_free(const void *p)
{
	kfree(p);
}

/* ---- reader-writer spinlock ---------------------------------------------- */

/* The token an unlock is handed back: which variant the lock call took. */
enum {
	VY_LOCK_PLAIN = 1,
	VY_LOCK_BH = 2,
};

static rwlock_t *vy_rwlock(struct vy_plat_rwlock *l)
{
	return (rwlock_t *)l->opaque;
}

/*
 * Bottom halves cannot be disabled (and need not be) where interrupts are
 * already off or in a hard interrupt: there the plain variant is taken.
 */
static bool vy_lock_plain_ctx(void)
{
#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 11, 0)
	return irqs_disabled() || in_hardirq();
#else
	return irqs_disabled() || in_irq();
#endif
}

void vy_plat_rwlock_init(struct vy_plat_rwlock *l)
{
	BUILD_BUG_ON(sizeof(rwlock_t) > sizeof(struct vy_plat_rwlock));
	BUILD_BUG_ON(__alignof__(rwlock_t) > __alignof__(struct vy_plat_rwlock));
	rwlock_init(vy_rwlock(l));
}

int vy_plat_write_lock(struct vy_plat_rwlock *l)
	__acquires(l)
{
	if (vy_lock_plain_ctx()) {
		write_lock(vy_rwlock(l));
		return VY_LOCK_PLAIN;
	}
	write_lock_bh(vy_rwlock(l));
	return VY_LOCK_BH;
}

void vy_plat_write_unlock(struct vy_plat_rwlock *l, int token)
	__releases(l)
{
	if (token == VY_LOCK_PLAIN)
		write_unlock(vy_rwlock(l));
	else
		write_unlock_bh(vy_rwlock(l));
}

int vy_plat_read_lock(struct vy_plat_rwlock *l)
	__acquires(l)
{
	if (vy_lock_plain_ctx()) {
		read_lock(vy_rwlock(l));
		return VY_LOCK_PLAIN;
	}
	read_lock_bh(vy_rwlock(l));
	return VY_LOCK_BH;
}

void vy_plat_read_unlock(struct vy_plat_rwlock *l, int token)
	__releases(l)
{
	if (token == VY_LOCK_PLAIN)
		read_unlock(vy_rwlock(l));
	else
		read_unlock_bh(vy_rwlock(l));
}

void vy_plat_rwlock_assert_held(struct vy_plat_rwlock *l, int write)
{
	/*
	 * Either mode satisfies the check: lockdep's read/write variants
	 * are not available on every kernel this module supports.
	 */
	lockdep_assert_held(vy_rwlock(l));
}

/* ---- counting semaphore -------------------------------------------------- */

static struct semaphore *vy_sem(struct vy_plat_sem *s)
{
	return (struct semaphore *)s->opaque;
}

void vy_plat_sema_init(struct vy_plat_sem *s, int count)
{
	BUILD_BUG_ON(sizeof(struct semaphore) > sizeof(struct vy_plat_sem));
	BUILD_BUG_ON(__alignof__(struct semaphore) >
		     __alignof__(struct vy_plat_sem));
	sema_init(vy_sem(s), count);
}

/*
 * The hook work sleeps here for as long as listening lasts, often minutes.
 * An uninterruptible sleep that long makes the hung-task detector report
 * the worker every two minutes, so the sleep is interruptible; a kworker
 * never receives signals, so it only returns once the semaphore is taken.
 */
void vy_plat_down(struct vy_plat_sem *s)
{
	while (down_interruptible(vy_sem(s)))
		;
}

void vy_plat_up(struct vy_plat_sem *s)
{
	up(vy_sem(s));
}

/* ---- the hook work ------------------------------------------------------- */

static void vy_work_fn(struct work_struct *work)
{
	vy_hook_work_fn();
}

static DECLARE_WORK(vy_hook_work, vy_work_fn);

void vy_plat_work_queue(void)
{
	queue_work(system_wq, &vy_hook_work);
}

void vy_plat_work_cancel_sync(void)
{
	cancel_work_sync(&vy_hook_work);
}

/* ---- kernel timer -------------------------------------------------------- */

/*
 * What the logic's timer storage holds. The logic's callback is handed the
 * storage back, which starts with this record.
 */
struct vy_glue_timer {
	struct timer_list timer;
	vy_plat_timer_fn fn;
};

static struct vy_glue_timer *vy_timer(const struct vy_plat_timer *t)
{
	return (struct vy_glue_timer *)t->opaque;
}

static void vy_timer_fire(struct timer_list *tl)
{
	struct vy_glue_timer *gt = from_timer(gt, tl, timer);

	gt->fn((struct vy_plat_timer *)gt);
}

void vy_plat_timer_setup(struct vy_plat_timer *t, vy_plat_timer_fn fn)
{
	struct vy_glue_timer *gt = vy_timer(t);

	BUILD_BUG_ON(sizeof(struct vy_glue_timer) > sizeof(struct vy_plat_timer));
	BUILD_BUG_ON(__alignof__(struct vy_glue_timer) >
		     __alignof__(struct vy_plat_timer));
	gt->fn = fn;
	timer_setup(&gt->timer, vy_timer_fire, 0);
}

void vy_plat_timer_mod(struct vy_plat_timer *t, unsigned long expires)
{
	mod_timer(&vy_timer(t)->timer, expires);
}

int vy_plat_timer_pending(const struct vy_plat_timer *t)
{
	return timer_pending(&vy_timer(t)->timer);
}

void vy_plat_timer_del_sync(struct vy_plat_timer *t)
{
	del_timer_sync(&vy_timer(t)->timer);
}

/* ---- time ---------------------------------------------------------------- */

unsigned long vy_plat_jiffies(void)
{
	return jiffies;
}

vy_u32 vy_plat_jiffies_to_msecs(unsigned long j)
{
	return jiffies_to_msecs(j);
}

/* ---- log ----------------------------------------------------------------- */

void vy_plat_log(int level, const char *fmt, ...)
{
	struct va_format vaf;
	va_list args;

	va_start(args, fmt);
	vaf.fmt = fmt;
	vaf.va = &args;
	switch (level) {
	case VY_LOG_ERR:
		pr_err("%pV", &vaf);
		break;
	case VY_LOG_WARNING:
		pr_warn("%pV", &vaf);
		break;
	case VY_LOG_NOTICE:
		pr_notice("%pV", &vaf);
		break;
	case VY_LOG_INFO:
		pr_info("%pV", &vaf);
		break;
	case VY_LOG_DEBUG:
		/* The module's one dynamic-debug site, off until enabled. */
		pr_debug("%pV", &vaf);
		break;
	default:
		/* No level: the console's default, as printk without one. */
		vprintk(fmt, args);
		break;
	}
	va_end(args);
}

/*
 * The algorithm of the kernel's ___ratelimit(), with printk_ratelimited's
 * interval and burst, over the logic's zero-filled per-site records. A
 * struct ratelimit_state per site would hold a raw spinlock that spinlock
 * debugging and lockdep reject until it is initialised, and the logic has
 * no constructors to do that; so one glue lock, defined statically, guards
 * every site. Its section is a few loads and stores: waiting for it costs
 * nothing, and unlike ___ratelimit()'s trylock a busy state of one site
 * never drops another site's line. Interrupts are off inside, so any
 * context may call it.
 */
static DEFINE_RAW_SPINLOCK(vy_ratelimit_lock);

int vy_plat_log_ratelimit(struct vy_plat_ratelimit *rs, const char *func)
{
	unsigned long flags;
	int missed = 0;
	int ok;

	raw_spin_lock_irqsave(&vy_ratelimit_lock, flags);
	if (!rs->begin)
		rs->begin = jiffies;
	if (time_is_before_jiffies(rs->begin + DEFAULT_RATELIMIT_INTERVAL)) {
		missed = rs->missed;
		rs->missed = 0;
		rs->begin = jiffies;
		rs->printed = 0;
	}
	ok = rs->printed < DEFAULT_RATELIMIT_BURST;
	if (ok)
		rs->printed++;
	else
		rs->missed++;
	raw_spin_unlock_irqrestore(&vy_ratelimit_lock, flags);

	/*
	 * The report names the function whose lines were dropped, as the
	 * kernel's does; printed once the lock is released.
	 */
	if (missed)
		pr_warn("%s: %d callbacks suppressed\n", func, missed);
	return ok;
}

int vy_plat_snprintf(char *buf, vy_size size, const char *fmt, ...)
{
	va_list args;
	int n;

	va_start(args, fmt);
	n = vsnprintf(buf, size, fmt, args);
	va_end(args);
	return n;
}

/* ---- module -------------------------------------------------------------- */

/* Only reachable if an abstract class's vtable were ever emitted. */
void __cxa_pure_virtual(void);
void __cxa_pure_virtual(void)
{
	WARN_ONCE(1, "veyra: pure virtual call\n");
}

static int __init vy_module_init(void)
{
	/* The logic's time limits are compiled in jiffies of this HZ. */
	BUILD_BUG_ON(VY_HZ != HZ);
	BUILD_BUG_ON(VY_ENOMEM != ENOMEM || VY_EFAULT != EFAULT ||
		     VY_EBUSY != EBUSY || VY_EINVAL != EINVAL);
	return veyra_init();
}

static void __exit vy_module_exit(void)
{
	veyra_exit();
}

module_init(vy_module_init);
module_exit(vy_module_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Follows Wi-Fi stations' DHCP and DNS onboarding on an access point");
