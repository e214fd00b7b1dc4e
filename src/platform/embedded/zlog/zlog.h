// SPDX-License-Identifier: Apache-2.0
/* zlog as this system's processes use it: one category, two calls. This front is built if no zlog is
 * installed; a process that includes <zlog.h> works with either. The platform initialises and configures
 * the log (qxmw_trace_init). */

#ifndef ZLOG_H
#define ZLOG_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zlog_category_s zlog_category_t;

/* Writes one line, if lines of this level are written.
 *   category  the logging process's; nothing is written if it is null
 *   file, func, line   the place of the call; the lengths are without the terminators
 *   level     a higher one is more important; 10 steps, 11 details, 12 life cycle, 13 errors
 *   format    printf's, with its arguments */
void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func, size_t funclen,
          long line, int level, const char* format, ...) __attribute__((format(printf, 8, 9)));

/* Not zero if lines of this level are written; 0 for a null category. */
int zlog_level_enabled(zlog_category_t* category, const int level);

#ifdef __cplusplus
}
#endif

#endif
