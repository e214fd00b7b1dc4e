// SPDX-License-Identifier: Apache-2.0
#include "base/version.h"

namespace base {

const char* Version() { return SFLOW_VERSION; }

}  // namespace base
