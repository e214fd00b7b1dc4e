// SPDX-License-Identifier: Apache-2.0
// How the daemon reports: log lines into a zlog category, and faults that end the process.
//
// zlog decides which lines are written. Used by every unit of the daemon.

#ifndef DAEMON_SFLOW_REPORT_H
#define DAEMON_SFLOW_REPORT_H

#include <zlog.h>

// The levels that the daemon uses.
constexpr int kLogStep = 10;    // entry and step messages
constexpr int kLogDetail = 11;  // data detail
constexpr int kLogNotice = 12;  // life cycle and warnings

// Logs one line from the calling function. `source` is the unit's name, a character array; a format and
// its arguments follow. A macro because function and line are the caller's, and so that the
// compiler checks the format against its arguments.
#define SFLOW_LOG(category, source, level, ...)                                                       \
    zlog((category), (source), sizeof(source) - 1, __func__, sizeof(__func__) - 1, __LINE__, (level), \
         __VA_ARGS__)

// The size of a fault's text with its terminator.
constexpr unsigned kFaultTextSize = 350;

// The text of a fault.
enum class EFaultText {
    Empty,
    ConfdError  // the text of confd_lasterr(), cut to fit
};

// Writes the backtrace, reports a fault of kind 1 and ends the process with exit status 1.
[[noreturn]] void EndWithFault(const char* function, const char* source, int line, EFaultText content);

#endif
