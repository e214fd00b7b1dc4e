// SPDX-License-Identifier: Apache-2.0
// Makes the zlog category: category_front.cpp with our front, category_installed.cpp with another zlog that
// the build has found. CMake takes one of them.

#ifndef PLATFORM_EMBEDDED_QXMW_CATEGORY_H
#define PLATFORM_EMBEDDED_QXMW_CATEGORY_H

#include <zlog.h>

namespace embedded {

/// The category of the process of this name, never null: if the log can't be opened, the process ends with a
/// message on standard error.
zlog_category_t* MakeCategory(const char* process);

}  // namespace embedded

#endif
