// SPDX-License-Identifier: Apache-2.0
/* Makes a category of our front. The build tells the front from another zlog by this file beside zlog.h.
 * Used by the embedded platform's qxmw_trace_init only. */

#ifndef ZLOG_FRONT_H
#define ZLOG_FRONT_H

#include "zlog.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the log (SFLOW_LOG, SFLOW_LOG_LEVEL) for the process of this name and returns its category:
 * always the same one, never null, never freed. */
zlog_category_t* zlog_front_open(const char* process);

#ifdef __cplusplus
}
#endif

#endif
