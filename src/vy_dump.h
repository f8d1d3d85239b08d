/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The diagnostics devices /dev/vy_dump and /dev/vy_summary: the read
 * sequence, the command parser, their registration and the sysfs majors.
 */
#ifndef VY_DUMP_H
#define VY_DUMP_H

#include "vy_sta_list.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

#define VY_DUMP_TEXT_SIZE 350
#define VY_CMD_MAX 64

enum : u32 {
	VY_DUMP_WAY_NONE = 0,
	VY_DUMP_WAY_DUMP = 1,
	VY_DUMP_WAY_SUMMARY = 2,
};

s32 vy_dump_init(void);
void vy_dump_exit(void);

/* The command line parser, "%15s %7s %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx"
 * as sscanf reads it: returns the number of fields filled (0 to 8). */
int vy_dump_scan_command(const char *line, char cmd[16], char arg[8],
			 u8 mac[ETH_ALEN]);
/* The same over the bytes [line, end): a NUL or end ends the input. Only
 * the fields counted in the result are written. */
int vy_dump_scan_command_range(const char *line, const char *end,
			       char cmd[16], char arg[8], u8 mac[ETH_ALEN]);

} /* extern "C" */

#endif /* VY_DUMP_H */
