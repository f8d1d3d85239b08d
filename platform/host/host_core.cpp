// SPDX-License-Identifier: GPL-2.0
/*
 * The host platform's core: allocator, locks, semaphore, the hook work's
 * thread, simulated time and timers, the log and the event capture.
 *
 * One mutex (g_mu) with one condition variable guards the scheduling state:
 * semaphores, the work item and the timers. The reader-writer locks are
 * real pthread locks of their own, since the logic holds them across calls
 * into the platform.
 */
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "host_internal.h"

namespace vy_host {

namespace {

/* Never destroyed: the worker thread may still wait on them when the
 * program exits, and destroying a waited-on condition variable hangs. */
std::mutex &g_mu = *new std::mutex;
std::condition_variable &g_cv = *new std::condition_variable;

std::atomic<unsigned long> g_jiffies{0};
std::atomic<long> g_live_allocs{0};
std::atomic<long> g_total_allocs{0};
std::atomic<int> g_fail_allocs{0};
std::atomic<int> g_ok_before_fail{0};
std::atomic<int> g_locks_held{0};
std::atomic<long> g_lock_acquisitions{0};
std::atomic<bool> g_dyndbg{true};

/* ---- the hook work (guarded by g_mu) ---- */
bool g_free_running = false;
bool g_gate_open = false; /* the worker may run */
bool g_work_queued = false;
bool g_work_running = false;
const vy_plat_sem *g_worker_blocked_on = nullptr;
std::thread::id g_worker_id;
bool g_worker_started = false;

/* ---- timers (guarded by g_mu) ---- */
struct HostTimer {
	vy_plat_timer_fn fn;
	unsigned long expires;
	unsigned long long order; /* arming order, for equal expiries */
	bool pending;
	bool running;
	unsigned magic;
};
static_assert(sizeof(HostTimer) <= sizeof(vy_plat_timer), "timer storage");
std::vector<HostTimer *> g_timers; /* every set-up timer */
unsigned long long g_timer_order = 0;
constexpr unsigned kTimerMagic = 0x7133e5u;

struct HostSem {
	int count;
	unsigned magic;
};
static_assert(sizeof(HostSem) <= sizeof(vy_plat_sem), "semaphore storage");
constexpr unsigned kSemMagic = 0x5e3a0u;

struct HostRwlock {
	pthread_rwlock_t rw;
	std::atomic<pthread_t> writer;
	std::atomic<int> readers;
	unsigned magic;
};
static_assert(sizeof(HostRwlock) <= sizeof(vy_plat_rwlock), "lock storage");
constexpr unsigned kLockMagic = 0x10c4u;

/* ---- capture ---- */
std::mutex g_cap_mu;
std::vector<Event> g_events;
std::function<void(const Event &)> g_sink;

/* ---- rate limit: per call site, 10 lines per 5 s of simulated time ---- */
std::mutex g_rl_mu;
/* Every site state seen: the states are the logic's statics, which reset()
 * returns to zero like a fresh module load. */
std::set<vy_plat_ratelimit *> g_rl_sites;

HostTimer *as_timer(const vy_plat_timer *t)
{
	return reinterpret_cast<HostTimer *>(const_cast<vy_plat_timer *>(t));
}

HostSem *as_sem(vy_plat_sem *s)
{
	return reinterpret_cast<HostSem *>(s);
}

HostRwlock *as_lock(vy_plat_rwlock *l)
{
	HostRwlock *h = reinterpret_cast<HostRwlock *>(l);
	if (h->magic != kLockMagic)
		contract_violation("lock used before vy_plat_rwlock_init");
	return h;
}

bool on_worker()
{
	return g_worker_started && std::this_thread::get_id() == g_worker_id;
}

/* The worker cannot make progress: idle, or asleep on a semaphore whose
 * count is 0. Called with g_mu held. */
bool worker_settled()
{
	if (g_work_running)
		return g_worker_blocked_on &&
		       reinterpret_cast<const HostSem *>(g_worker_blocked_on)->count == 0;
	return !g_work_queued;
}

void worker_main()
{
	std::unique_lock<std::mutex> lk(g_mu);
	for (;;) {
		g_cv.wait(lk, [] { return g_work_queued && g_gate_open; });
		g_work_queued = false;
		g_work_running = true;
		lk.unlock();
		vy_hook_work_fn();
		lk.lock();
		g_work_running = false;
		g_cv.notify_all();
	}
}

/* Consumes one allocation of the programmed failure sequence. */
bool alloc_should_fail()
{
	for (int ok = g_ok_before_fail.load(); ok > 0;)
		if (g_ok_before_fail.compare_exchange_weak(ok, ok - 1))
			return false;
	for (int f = g_fail_allocs.load(); f > 0;)
		if (g_fail_allocs.compare_exchange_weak(f, f - 1))
			return true;
	return false;
}

} // namespace

[[noreturn]] void contract_violation(const char *what)
{
	std::fprintf(stderr, "veyra host platform: %s\n", what);
	std::abort();
}

void capture(Event ev)
{
	ev.jiffies = g_jiffies.load();
	std::lock_guard<std::mutex> lk(g_cap_mu);
	if (g_sink)
		g_sink(ev);
	g_events.push_back(std::move(ev));
}

const std::vector<Event> &events()
{
	return g_events;
}

std::vector<Event> take_events()
{
	std::lock_guard<std::mutex> lk(g_cap_mu);
	std::vector<Event> out;
	out.swap(g_events);
	return out;
}

void set_event_sink(std::function<void(const Event &)> sink)
{
	std::lock_guard<std::mutex> lk(g_cap_mu);
	g_sink = std::move(sink);
}

std::vector<std::string> log_lines(int level)
{
	std::lock_guard<std::mutex> lk(g_cap_mu);
	std::vector<std::string> out;
	for (const Event &e : g_events)
		if (e.kind == EventKind::Log && (level == 0 || e.level == level))
			out.push_back(e.text);
	return out;
}

bool log_contains(const std::string &needle)
{
	for (const std::string &l : log_lines())
		if (l.find(needle) != std::string::npos)
			return true;
	return false;
}

void reset()
{
	{
		std::lock_guard<std::mutex> lk(g_mu);
		if (g_work_running || g_work_queued)
			contract_violation("reset while the hook work is queued or "
					   "running: call veyra_exit first");
		for (HostTimer *t : g_timers)
			if (t->running)
				contract_violation("reset while a timer runs");
		g_timers.clear();
		g_timer_order = 0;
		g_gate_open = g_free_running;
	}
	g_jiffies = 0;
	g_live_allocs = 0;
	g_total_allocs = 0;
	g_fail_allocs = 0;
	g_ok_before_fail = 0;
	g_locks_held = 0;
	g_lock_acquisitions = 0;
	g_dyndbg = true;
	{
		std::lock_guard<std::mutex> lk(g_rl_mu);
		for (vy_plat_ratelimit *rs : g_rl_sites)
			*rs = vy_plat_ratelimit{};
		g_rl_sites.clear();
	}
	{
		std::lock_guard<std::mutex> lk(g_cap_mu);
		g_events.clear();
		g_sink = nullptr;
	}
	reset_net();
	reset_umac();
	reset_chrdev();
}

void set_free_running(bool on)
{
	std::lock_guard<std::mutex> lk(g_mu);
	g_free_running = on;
	g_gate_open = on;
	g_cv.notify_all();
}

void set_dyndbg(bool on)
{
	g_dyndbg = on;
}

unsigned long jiffies()
{
	return g_jiffies.load();
}

void settle()
{
	std::unique_lock<std::mutex> lk(g_mu);
	g_gate_open = true;
	g_cv.notify_all();
	g_cv.wait(lk, [] { return worker_settled(); });
	g_gate_open = g_free_running;
}

void advance_to(unsigned long j)
{
	if (j < g_jiffies.load())
		contract_violation("time cannot go backwards");
	settle();
	for (;;) {
		HostTimer *due = nullptr;
		{
			std::lock_guard<std::mutex> lk(g_mu);
			for (HostTimer *t : g_timers) {
				if (!t->pending || t->expires > j)
					continue;
				if (!due || t->expires < due->expires ||
				    (t->expires == due->expires && t->order < due->order))
					due = t;
			}
			if (!due)
				break;
			if (due->expires > g_jiffies.load())
				g_jiffies = due->expires;
			due->pending = false;
			due->running = true;
		}
		due->fn(reinterpret_cast<vy_plat_timer *>(due));
		{
			std::lock_guard<std::mutex> lk(g_mu);
			due->running = false;
			g_cv.notify_all();
		}
		settle();
	}
	g_jiffies = j;
	settle();
}

void advance(unsigned long n)
{
	advance_to(g_jiffies.load() + n);
}

long live_allocations()
{
	return g_live_allocs.load();
}

long total_allocations()
{
	return g_total_allocs.load();
}

void fail_next_allocations(int n)
{
	g_ok_before_fail = 0;
	g_fail_allocs = n;
}

void fail_allocations_after(int ok, int n)
{
	g_ok_before_fail = ok;
	g_fail_allocs = n;
}

int locks_held()
{
	return g_locks_held.load();
}

long lock_acquisitions()
{
	return g_lock_acquisitions.load();
}

} // namespace vy_host

using namespace vy_host;

/* ---- the ABI ---------------------------------------------------------- */

extern "C" {

void *vy_plat_zalloc(vy_size size)
{
	if (alloc_should_fail())
		return nullptr;
	void *p = std::calloc(1, size ? size : 1);
	if (p) {
		g_live_allocs++;
		g_total_allocs++;
	}
	return p;
}

void vy_plat_free(const void *p)
{
	if (!p)
		return;
	g_live_allocs--;
	std::free(const_cast<void *>(p));
}

void vy_plat_rwlock_init(vy_plat_rwlock *l)
{
	HostRwlock *h = reinterpret_cast<HostRwlock *>(l);
	std::memset(static_cast<void *>(l), 0, sizeof(*l));
	pthread_rwlock_init(&h->rw, nullptr);
	new (&h->writer) std::atomic<pthread_t>(pthread_t{});
	new (&h->readers) std::atomic<int>(0);
	h->magic = kLockMagic;
}

int vy_plat_write_lock(vy_plat_rwlock *l)
{
	HostRwlock *h = as_lock(l);
	if (h->writer.load() == pthread_self())
		contract_violation("write lock taken twice by one thread");
	pthread_rwlock_wrlock(&h->rw);
	h->writer = pthread_self();
	g_locks_held++;
	g_lock_acquisitions++;
	return 1;
}

void vy_plat_write_unlock(vy_plat_rwlock *l, int token)
{
	HostRwlock *h = as_lock(l);
	if (h->writer.load() != pthread_self() || token != 1)
		contract_violation("write unlock without the write lock");
	h->writer = pthread_t{};
	g_locks_held--;
	pthread_rwlock_unlock(&h->rw);
}

int vy_plat_read_lock(vy_plat_rwlock *l)
{
	HostRwlock *h = as_lock(l);
	if (h->writer.load() == pthread_self())
		contract_violation("read lock taken under the write lock");
	pthread_rwlock_rdlock(&h->rw);
	h->readers++;
	g_locks_held++;
	g_lock_acquisitions++;
	return 1;
}

void vy_plat_read_unlock(vy_plat_rwlock *l, int token)
{
	HostRwlock *h = as_lock(l);
	if (h->readers.load() <= 0 || token != 1)
		contract_violation("read unlock without the read lock");
	h->readers--;
	g_locks_held--;
	pthread_rwlock_unlock(&h->rw);
}

void vy_plat_rwlock_assert_held(vy_plat_rwlock *l, int write)
{
	HostRwlock *h = as_lock(l);
	if (h->writer.load() == pthread_self())
		return;
	if (write || h->readers.load() <= 0)
		contract_violation(write ? "sta_lock must be held for writing here"
					 : "lock must be held here");
}

void vy_plat_sema_init(vy_plat_sem *s, int count)
{
	std::lock_guard<std::mutex> lk(g_mu);
	HostSem *h = as_sem(s);
	h->count = count;
	h->magic = kSemMagic;
}

void vy_plat_down(vy_plat_sem *s)
{
	std::unique_lock<std::mutex> lk(g_mu);
	HostSem *h = as_sem(s);
	if (h->magic != kSemMagic)
		contract_violation("semaphore used before vy_plat_sema_init");
	bool worker = on_worker();
	if (worker)
		g_worker_blocked_on = s;
	g_cv.notify_all();
	/* The worker continues only while the driver lets it run, so that the
	 * order of events does not depend on thread scheduling. */
	g_cv.wait(lk, [&] { return h->count > 0 && (!worker || g_gate_open); });
	h->count--;
	if (worker)
		g_worker_blocked_on = nullptr;
}

void vy_plat_up(vy_plat_sem *s)
{
	std::lock_guard<std::mutex> lk(g_mu);
	HostSem *h = as_sem(s);
	if (h->magic != kSemMagic)
		contract_violation("semaphore used before vy_plat_sema_init");
	h->count++;
	g_cv.notify_all();
}

void vy_plat_work_queue(void)
{
	std::lock_guard<std::mutex> lk(g_mu);
	if (!g_worker_started) {
		g_worker_started = true;
		std::thread t(worker_main);
		g_worker_id = t.get_id();
		t.detach();
	}
	g_work_queued = true;
	g_cv.notify_all();
}

void vy_plat_work_cancel_sync(void)
{
	std::unique_lock<std::mutex> lk(g_mu);
	if (on_worker())
		contract_violation("the hook work cancels itself");
	g_work_queued = false;
	g_gate_open = true;
	g_cv.notify_all();
	g_cv.wait(lk, [] { return !g_work_running; });
	g_gate_open = g_free_running;
}

void vy_plat_timer_setup(vy_plat_timer *t, vy_plat_timer_fn fn)
{
	std::lock_guard<std::mutex> lk(g_mu);
	HostTimer *h = as_timer(t);
	if (std::find(g_timers.begin(), g_timers.end(), h) == g_timers.end())
		g_timers.push_back(h);
	h->fn = fn;
	h->pending = false;
	h->running = false;
	h->expires = 0;
	h->magic = kTimerMagic;
}

void vy_plat_timer_mod(vy_plat_timer *t, unsigned long expires)
{
	std::lock_guard<std::mutex> lk(g_mu);
	HostTimer *h = as_timer(t);
	if (h->magic != kTimerMagic)
		contract_violation("timer armed before vy_plat_timer_setup");
	h->expires = expires;
	h->order = ++g_timer_order;
	h->pending = true;
}

int vy_plat_timer_pending(const vy_plat_timer *t)
{
	std::lock_guard<std::mutex> lk(g_mu);
	return as_timer(t)->pending;
}

void vy_plat_timer_del_sync(vy_plat_timer *t)
{
	std::unique_lock<std::mutex> lk(g_mu);
	HostTimer *h = as_timer(t);
	if (h->magic != kTimerMagic)
		contract_violation("timer deleted before vy_plat_timer_setup");
	/* Like del_timer_sync: wait for a running callback, then remove the
	 * timer it may have re-armed. */
	g_cv.wait(lk, [&] { return !h->running; });
	h->pending = false;
}

unsigned long vy_plat_jiffies(void)
{
	return g_jiffies.load();
}

vy_u32 vy_plat_jiffies_to_msecs(unsigned long j)
{
	return (vy_u32)(j * (1000 / VY_HZ));
}

void vy_plat_log(int level, const char *fmt, ...)
{
	if (level == VY_LOG_DEBUG && !g_dyndbg.load())
		return;
	va_list ap;
	va_start(ap, fmt);
	Event ev{};
	ev.kind = EventKind::Log;
	ev.level = level;
	ev.text = vformat(fmt, ap);
	va_end(ap);
	if (!ev.text.empty() && ev.text.back() == '\n')
		ev.text.pop_back();
	capture(std::move(ev));
}

/* The kernel's ___ratelimit() for one site, with its report of the
 * dropped lines. */
int vy_plat_log_ratelimit(vy_plat_ratelimit *rs, const char *func)
{
	int missed = 0;
	int ok;
	{
		std::lock_guard<std::mutex> lk(g_rl_mu);
		g_rl_sites.insert(rs);
		unsigned long now = g_jiffies.load();
		if (!rs->begin)
			rs->begin = now;
		if ((long)(rs->begin + 5 * VY_HZ - now) < 0) {
			missed = rs->missed;
			rs->missed = 0;
			rs->begin = now;
			rs->printed = 0;
		}
		ok = rs->printed < 10;
		if (ok)
			rs->printed++;
		else
			rs->missed++;
	}
	if (missed)
		vy_plat_log(VY_LOG_WARNING, "%s: %d callbacks suppressed\n", func,
			    missed);
	return ok;
}

int vy_plat_snprintf(char *buf, vy_size size, const char *fmt, ...)
{
	va_list ap;
	va_start(ap, fmt);
	int n = vsnprintf_kernel(buf, size, fmt, ap);
	va_end(ap);
	return n;
}

} // extern "C"
