// SPDX-License-Identifier: Apache-2.0
// What is in a store, as text for people. Used by cdbd --check.

#ifndef AGENT_PROCESS_STORE_REPORT_H
#define AGENT_PROCESS_STORE_REPORT_H

#include <string>

#include "cdb/store/store.h"

namespace agent {

/// Lines of name and number.
std::string StoreReport(const cdb::StoreFigures& figures);

}  // namespace agent

#endif
