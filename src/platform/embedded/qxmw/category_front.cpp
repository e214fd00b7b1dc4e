// SPDX-License-Identifier: Apache-2.0
// The category from our front over spdlog.

#include <zlog_front.h>

#include "platform/embedded/qxmw/category.h"

namespace embedded {

zlog_category_t* MakeCategory(const char* process) { return zlog_front_open(process); }

}  // namespace embedded
