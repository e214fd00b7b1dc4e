// SPDX-License-Identifier: Apache-2.0
// The figures of a store as readable text. Used by cdbd --check.

#ifndef AGENT_PROCESS_STORE_REPORT_H
#define AGENT_PROCESS_STORE_REPORT_H

#include <string>

#include "cdb/store/store.h"

namespace agent {

/// One line that the store is sound, then lines of name and number.
std::string StoreReport(const cdb::StoreFigures& figures);

}  // namespace agent

#endif
