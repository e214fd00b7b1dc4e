// SPDX-License-Identifier: Apache-2.0
// What a process has in memory, and has had of the CPUs.

#ifndef FIGURES_PROCESS_USAGE_H
#define FIGURES_PROCESS_USAGE_H

#include <sys/types.h>

namespace figures {

/// Resident memory of a process, in MB (10^6 bytes).
double ResidentMegabytes(pid_t process);

/// CPU time of a process, its own and the kernel's on its behalf. Throws std::runtime_error if it has ended.
double CpuSeconds(pid_t process);

}  // namespace figures

#endif
