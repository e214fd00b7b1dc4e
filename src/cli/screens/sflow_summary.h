// SPDX-License-Identifier: Apache-2.0
// Whether sampling works, on one screen.

#ifndef CLI_SCREENS_SFLOW_SUMMARY_H
#define CLI_SCREENS_SFLOW_SUMMARY_H

#include <cstddef>
#include <string>
#include <string_view>

struct lyd_node;

namespace cli {

/// What the summary needs of sFlow and of the processes, each as the content of a filter's top-level
/// container.
inline constexpr std::string_view kSummaryOfSflow =
    "<oam><sflow><manager/><agent-address/><sub-agent/><collector><name/><sending/></collector>"
    "<interface><name/><packet-source/></interface><problem/></sflow></oam>";
inline constexpr std::string_view kSummaryOfProcesses =
    "<system><process><name/><pid/><health/></process></system>";

/// At most 20 lines. `sflow`, `processes`: the top-level containers, or null.
std::string SflowSummary(const lyd_node* sflow, const lyd_node* processes, std::size_t width);

}  // namespace cli

#endif
