// SPDX-License-Identifier: Apache-2.0
// The platform's middleware: traces and faults.

#ifndef QXMW_QXMW_H
#define QXMW_QXMW_H

#include <zlog.h>

#ifdef __cplusplus
extern "C" {
#endif

// The process's middleware handle; its content is the platform's.
struct qxmw;
typedef struct qxmw qxmw_t;

// Who a process is: its name, zero-padded.
struct qxmw_process_signature {
    char name[64];
};
typedef struct qxmw_process_signature qxmw_process_signature_t;

// Prepares the log under the given name and returns the process's one category, never null; called once,
// before any line is logged. The platform owns the category; it outlives the middleware handle.
zlog_category_t* qxmw_trace_init(qxmw_t* qxmw, const char* name);

// Reports a fault: one line to the log and one entry, kept over restarts, to the system's fault
// table. Returns when both are done or can't be; ends nothing. Any time while a context is installed.
//   kind      0: an exception that ended the run, 1: a failure that ends the process
//   function, file, line   where the report is made
//   text      NUL-terminated; may be empty
void qxmw_gen_fault(int kind, const char* function, const char* file, int line, const char* text);

// Writes the calling thread's stack to the log. Any time; returns normally.
void qxmw_print_backtrace(void);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif
