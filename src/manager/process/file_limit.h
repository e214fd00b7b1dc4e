// SPDX-License-Identifier: Apache-2.0
// How many files the manager may have open. Every sampled interface takes one for a direction (eBPF) or two
// (packet sockets), every collector one more: far beyond the usual 1,024. Used by assembly.cpp.

#ifndef MANAGER_PROCESS_FILE_LIMIT_H
#define MANAGER_PROCESS_FILE_LIMIT_H

namespace manager {

/// Raises the limit to what all interfaces and collectors need, or as far as it may go. A part that then
/// can't open a file reports that itself.
void RaiseFileLimit();

}  // namespace manager

#endif
