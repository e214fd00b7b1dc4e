// SPDX-License-Identifier: Apache-2.0
// What libbpf says goes into the log, as debug lines. Used by what loads a program into the kernel.

#ifndef CAPTURE_EBPF_LIBBPF_LOG_H
#define CAPTURE_EBPF_LIBBPF_LOG_H

namespace capture {

/// For the whole process, from now on; else libbpf writes to standard error.
void LogWhatLibbpfSays();

}  // namespace capture

#endif
