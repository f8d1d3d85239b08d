// SPDX-License-Identifier: GPL-2.0
/* The shared name tables. */
#include "vy_common.h"

static const char *const vy_status_names[] = {"UNKNOWN", "OK", "FAIL",
					       "INVALID"};

static const char *const vy_dhcp_type_names[] = {
	"",	     "DHCPDISCOVER", "DHCPOFFER",   "DHCPREQUEST",
	"DHCPDECLINE", "DHCPACK",      "DHCPNACK",    "DHCPRELEASE",
	"DHCPINFORM",  "UNKNOWN",
};

const char *vy_status_name(u32 status)
{
	if (status >= VY_ARRAY_SIZE(vy_status_names))
		status = VY_STATUS_INVALID;
	return vy_status_names[status];
}

const char *vy_dhcp_type_name(u8 type)
{
	if (type >= VY_ARRAY_SIZE(vy_dhcp_type_names))
		type = VY_ARRAY_SIZE(vy_dhcp_type_names) - 1;
	return vy_dhcp_type_names[type];
}

const char *vy_dhcp_type_name_or_unknown(u8 type)
{
	if (type >= VY_ARRAY_SIZE(vy_dhcp_type_names))
		return "Unknown DHCP type";
	return vy_dhcp_type_names[type];
}
