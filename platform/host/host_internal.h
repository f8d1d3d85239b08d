/* SPDX-License-Identifier: GPL-2.0 */
/* Shared between the host platform's files; not for tests. */
#ifndef VY_HOST_INTERNAL_H
#define VY_HOST_INTERNAL_H

#include <cstdarg>
#include <condition_variable>
#include <mutex>
#include <string>

#include "vy_host.h"

namespace vy_host {

std::string vformat(const char *fmt, va_list ap);
int vsnprintf_kernel(char *buf, std::size_t size, const char *fmt, va_list ap);

/* Appends an event (stamped with the current jiffies) and shows it to the
 * sink. */
void capture(Event ev);

/* Aborts the test program with a message: a broken platform contract is a
 * bug of the logic, never an input error. */
[[noreturn]] void contract_violation(const char *what);

/* Resets of the other parts of the platform, called by reset(). */
void reset_net();
void reset_umac();
void reset_chrdev();

} // namespace vy_host

#endif
