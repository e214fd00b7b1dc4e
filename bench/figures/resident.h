// SPDX-License-Identifier: Apache-2.0
// What a process has in memory.

#ifndef FIGURES_RESIDENT_H
#define FIGURES_RESIDENT_H

#include <sys/types.h>

namespace figures {

/// Resident memory of a process, in MB (10^6 bytes).
double ResidentMegabytes(pid_t process);

}  // namespace figures

#endif
