// SPDX-License-Identifier: GPL-2.0
/*
 * veyra's kernel platform: the two diagnostics character devices, user
 * copies, and the /sys/veyra directory with its two attributes.
 */
#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/kobject.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include <linux/sysfs.h>
#include <linux/uaccess.h>

#include "../vy_platform.h"

#define VY_CHRDEV_MINORS 256

/* ---- character devices --------------------------------------------------- */

/*
 * What an open file of either device carries. The logic keeps its own
 * per-file state in @private; @lock serialises reads on the file, so the
 * logic sees one reader at a time.
 */
struct vy_file {
	struct mutex lock; /* serialises reads */
	void *private;
};

void **vy_plat_file_private(struct vy_file *f)
{
	return &f->private;
}

static int vy_chr_open(struct file *file, int (*open)(struct vy_file *f))
{
	struct vy_file *f;
	int ret;

	f = kzalloc(sizeof(*f), GFP_KERNEL);
	if (!f)
		return -ENOMEM;
	mutex_init(&f->lock);
	ret = open(f);
	if (ret) {
		mutex_destroy(&f->lock);
		kfree(f);
		return ret;
	}
	file->private_data = f;
	return 0;
}

static int vy_chr_summary_open(struct inode *inode, struct file *file)
{
	return vy_chr_open(file, vy_summary_dev_open);
}

static int vy_chr_dump_open(struct inode *inode, struct file *file)
{
	return vy_chr_open(file, vy_dump_dev_open);
}

static ssize_t vy_chr_read(struct file *file, char __user *buf, size_t count,
			   loff_t *ppos)
{
	struct vy_file *f = file->private_data;
	ssize_t ret;

	if (mutex_lock_interruptible(&f->lock))
		return -ERESTARTSYS;
	ret = vy_dump_dev_read(f, (void __force *)buf, count);
	mutex_unlock(&f->lock);
	return ret;
}

static ssize_t vy_chr_write(struct file *file, const char __user *buf,
			    size_t count, loff_t *ppos)
{
	return vy_dump_dev_write(file->private_data,
				 (const void __force *)buf, count);
}

static int vy_chr_release(struct inode *inode, struct file *file)
{
	struct vy_file *f = file->private_data;
	int ret;

	ret = vy_dump_dev_release(f);
	mutex_destroy(&f->lock);
	kfree(f);
	return ret;
}

static const struct file_operations vy_summary_fops = {
	.owner = THIS_MODULE,
	.open = vy_chr_summary_open,
	.read = vy_chr_read,
	.write = vy_chr_write,
	.release = vy_chr_release,
};

static const struct file_operations vy_dump_fops = {
	.owner = THIS_MODULE,
	.open = vy_chr_dump_open,
	.read = vy_chr_read,
	.write = vy_chr_write,
	.release = vy_chr_release,
};

static const struct {
	const char *name;
	const struct file_operations *fops;
} vy_chrdevs[] = {
	[VY_CHRDEV_SUMMARY] = { "vy_summary", &vy_summary_fops },
	[VY_CHRDEV_DUMP] = { "vy_dump", &vy_dump_fops },
};

int vy_plat_register_chrdev(int id)
{
	if (id < 0 || id >= ARRAY_SIZE(vy_chrdevs))
		return -EINVAL;
	return __register_chrdev(0, 0, VY_CHRDEV_MINORS, vy_chrdevs[id].name,
				 vy_chrdevs[id].fops);
}

void vy_plat_unregister_chrdev(int id, int major)
{
	if (id < 0 || id >= ARRAY_SIZE(vy_chrdevs) || major <= 0)
		return;
	__unregister_chrdev(major, 0, VY_CHRDEV_MINORS, vy_chrdevs[id].name);
}

/* ---- user copies ---------------------------------------------------------- */

unsigned long vy_plat_copy_to_user(void *to, const void *from, unsigned long n)
{
	return copy_to_user((void __user __force *)to, from, n);
}

unsigned long vy_plat_copy_from_user(void *to, const void *from,
				     unsigned long n)
{
	return copy_from_user(to, (const void __user __force *)from, n);
}

/* ---- sysfs ---------------------------------------------------------------- */

static ssize_t vy_attr_show(struct kobject *kobj, struct kobj_attribute *attr,
			    char *buf);

/* Read-only in effect: without a store, writes are refused. */
static struct kobj_attribute vy_attrs[] = {
	[VY_SYSFS_SUMMARY_MAJOR] = __ATTR(summary_dev_major_num, 0644,
					  vy_attr_show, NULL),
	[VY_SYSFS_DUMP_MAJOR] = __ATTR(dump_dev_major_num, 0644,
				       vy_attr_show, NULL),
};

static ssize_t vy_attr_show(struct kobject *kobj, struct kobj_attribute *attr,
			    char *buf)
{
	return vy_sysfs_show(attr - vy_attrs, buf);
}

struct vy_kobj *vy_plat_kobject_create(void)
{
	return (struct vy_kobj *)kobject_create_and_add("veyra", NULL);
}

int vy_plat_sysfs_create_file(struct vy_kobj *k, int attr)
{
	if (!k || attr < 0 || attr >= ARRAY_SIZE(vy_attrs))
		return -EINVAL;
	return sysfs_create_file((struct kobject *)k, &vy_attrs[attr].attr);
}

void vy_plat_sysfs_remove_file(struct vy_kobj *k, int attr)
{
	if (!k || attr < 0 || attr >= ARRAY_SIZE(vy_attrs))
		return;
	sysfs_remove_file((struct kobject *)k, &vy_attrs[attr].attr);
}

void vy_plat_kobject_put(struct vy_kobj *k)
{
	kobject_put((struct kobject *)k);
}
