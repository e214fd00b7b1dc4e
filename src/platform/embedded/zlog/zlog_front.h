// SPDX-License-Identifier: Apache-2.0
/* How the platform makes a category of our front; its presence beside zlog.h tells the front from
 * any other zlog. Used by the embedded platform's qxmw_trace_init only. */

#ifndef ZLOG_FRONT_H
#define ZLOG_FRONT_H

#include "zlog.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the log (SFLOW_LOG, SFLOW_LOG_LEVEL) for the process of this name and returns its category,
 * never null: always the same one, which is never released. */
zlog_category_t* zlog_front_open(const char* process);

#ifdef __cplusplus
}
#endif

#endif
