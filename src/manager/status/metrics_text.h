// SPDX-License-Identifier: Apache-2.0
// What the manager tells monitoring: the numbers of the state, and what is wrong.

#ifndef MANAGER_STATUS_METRICS_TEXT_H
#define MANAGER_STATUS_METRICS_TEXT_H

#include <optional>
#include <string>
#include <vector>

#include "manager/status/problem.h"

namespace manager {

class View;

/// In the text format of Prometheus. Counters begin at zero with the manager. `problems`: nullopt if they are
/// not known now.
std::string MetricsText(const View& view, const std::optional<std::vector<Problem>>& problems);

}  // namespace manager

#endif
