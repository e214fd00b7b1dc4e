// SPDX-License-Identifier: Apache-2.0
// The numbers of the state for monitoring: the text format of Prometheus, version 0.0.4. Each line is one
// number with its labels; counters begin at zero with the manager.

#ifndef MANAGER_STATUS_METRICS_TEXT_H
#define MANAGER_STATUS_METRICS_TEXT_H

#include <string>
#include <string_view>

namespace manager {

class View;

/// The content type of the text.
inline constexpr std::string_view kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

std::string MetricsText(const View& view);

}  // namespace manager

#endif
