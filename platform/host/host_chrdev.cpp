// SPDX-License-Identifier: GPL-2.0
/* The host's character devices, user copies and sysfs directory. */
#include <cstring>
#include <set>

#include "host_internal.h"

struct vy_file {
	int id;
	void *priv;
	std::mutex read_mu; /* reads on one open file are serialised */
};

struct vy_kobj {
	int dummy;
};

namespace vy_host {

struct File : vy_file {};

namespace {
std::mutex g_dev_mu;
int g_majors[2] = {0, 0};
int g_next_major = 250;
bool g_kobj = false;
bool g_attrs[2] = {false, false};
int g_fail[FAIL_POINT_COUNT] = {};
std::set<File *> g_open;
vy_kobj g_the_kobj;

int take_fail(FailPoint p)
{
	int e = g_fail[p];
	g_fail[p] = 0;
	return e;
}
} // namespace

void reset_chrdev()
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if (!g_open.empty())
		contract_violation("reset with device files still open");
	g_majors[0] = g_majors[1] = 0;
	g_next_major = 250;
	g_kobj = false;
	g_attrs[0] = g_attrs[1] = false;
	for (int &f : g_fail)
		f = 0;
}

void fail_at(FailPoint p, int err)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	g_fail[p] = err;
}

int chrdev_major(int id)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	return (id == 0 || id == 1) ? g_majors[id] : 0;
}

bool sysfs_present(int attr)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	return g_kobj && (attr == 0 || attr == 1) && g_attrs[attr];
}

bool kobject_present()
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	return g_kobj;
}

std::string sysfs_read(int attr)
{
	if (!sysfs_present(attr))
		return "";
	char page[4096] = {};
	long n = vy_sysfs_show(attr, page);
	if (n < 0 || n > 4096)
		contract_violation("sysfs show returned a bad length");
	return std::string(page, (std::size_t)n);
}

File *open(int id, int *err)
{
	if (!chrdev_major(id)) {
		*err = -19; /* -ENODEV: no such device registered */
		return nullptr;
	}
	File *f = new File;
	f->id = id;
	f->priv = nullptr;
	int r = id == VY_CHRDEV_SUMMARY ? vy_summary_dev_open(f) : vy_dump_dev_open(f);
	if (r < 0) {
		*err = r;
		delete f;
		return nullptr;
	}
	std::lock_guard<std::mutex> lk(g_dev_mu);
	g_open.insert(f);
	*err = 0;
	return f;
}

long read(File *f, char *buf, std::size_t count)
{
	std::lock_guard<std::mutex> lk(f->read_mu);
	return vy_dump_dev_read(f, buf, count);
}

long write(File *f, const char *buf, std::size_t count)
{
	return vy_dump_dev_write(f, buf, count);
}

int release(File *f)
{
	int r = vy_dump_dev_release(f);
	{
		std::lock_guard<std::mutex> lk(g_dev_mu);
		g_open.erase(f);
	}
	delete f;
	return r;
}

int open_files()
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	return (int)g_open.size();
}

} // namespace vy_host

using namespace vy_host;

extern "C" {

int vy_plat_register_chrdev(int id)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if (id != 0 && id != 1)
		contract_violation("unknown character device");
	if (int e = take_fail(id == 0 ? FAIL_CHRDEV_SUMMARY : FAIL_CHRDEV_DUMP))
		return e;
	if (g_majors[id])
		contract_violation("character device registered twice");
	g_majors[id] = g_next_major--;
	return g_majors[id];
}

void vy_plat_unregister_chrdev(int id, int major)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if ((id != 0 && id != 1) || !g_majors[id] || g_majors[id] != major)
		contract_violation("unregistering a character device not registered");
	g_majors[id] = 0;
}

void **vy_plat_file_private(struct vy_file *f)
{
	return &f->priv;
}

unsigned long vy_plat_copy_to_user(void *to, const void *from, unsigned long n)
{
	{
		std::lock_guard<std::mutex> lk(g_dev_mu);
		if (take_fail(FAIL_COPY_TO_USER))
			return n;
	}
	std::memcpy(to, from, n);
	return 0;
}

unsigned long vy_plat_copy_from_user(void *to, const void *from, unsigned long n)
{
	{
		std::lock_guard<std::mutex> lk(g_dev_mu);
		if (take_fail(FAIL_COPY_FROM_USER))
			return n;
	}
	std::memcpy(to, from, n);
	return 0;
}

struct vy_kobj *vy_plat_kobject_create(void)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if (take_fail(FAIL_KOBJECT))
		return nullptr;
	if (g_kobj)
		contract_violation("sysfs directory created twice");
	g_kobj = true;
	return &g_the_kobj;
}

int vy_plat_sysfs_create_file(struct vy_kobj *k, int attr)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if (k != &g_the_kobj || !g_kobj || (attr != 0 && attr != 1))
		contract_violation("sysfs file in an unknown directory");
	if (int e = take_fail(attr == 0 ? FAIL_SYSFS_SUMMARY : FAIL_SYSFS_DUMP))
		return e;
	if (g_attrs[attr])
		return -17; /* -EEXIST */
	g_attrs[attr] = true;
	return 0;
}

void vy_plat_sysfs_remove_file(struct vy_kobj *k, int attr)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if (k != &g_the_kobj || !g_kobj || (attr != 0 && attr != 1))
		contract_violation("sysfs file removed from an unknown directory");
	g_attrs[attr] = false;
}

void vy_plat_kobject_put(struct vy_kobj *k)
{
	std::lock_guard<std::mutex> lk(g_dev_mu);
	if (k != &g_the_kobj || !g_kobj)
		contract_violation("sysfs directory released twice");
	g_kobj = false;
	g_attrs[0] = g_attrs[1] = false;
}

} // extern "C"
