/* SPDX-License-Identifier: GPL-2.0 */
/* The two outgoing station notifications, sent from a private copy of a
 * station entry and never under sta_lock. */
#ifndef VY_NOTIFY_H
#define VY_NOTIFY_H

#include "vy_sta_list.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

void vy_notify_sta_dhcp(const sta *copy);
void vy_notify_sta_dns(const sta *copy);

} /* extern "C" */

#endif /* VY_NOTIFY_H */
