// SPDX-License-Identifier: Apache-2.0
#include "manager/process/file_limit.h"

#include <sys/resource.h>

#include <algorithm>

namespace manager {
namespace {

// Two for each of 65,536 interfaces; collectors (4,096) and the rest are far fewer than these leave free.
constexpr rlim_t kFiles = 2 * 65536 + 8192;

}  // namespace

void RaiseFileLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kFiles) return;
    const rlimit wanted{.rlim_cur = kFiles, .rlim_max = std::max(kFiles, limit.rlim_max)};
    if (::setrlimit(RLIMIT_NOFILE, &wanted) == 0) return;
    // Only a privileged process may raise the hard limit.
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace manager
