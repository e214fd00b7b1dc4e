// SPDX-License-Identifier: Apache-2.0
#include "agent/process/store_report.h"

#include <array>
#include <utility>

namespace agent {

std::string StoreReport(const cdb::StoreFigures& figures)
{
    const std::array<std::pair<const char*, std::uint64_t>, 9> lines{{
        {"last commit      ", figures.commit},
        {"rows             ", figures.rows},
        {"history entries  ", figures.historyEntries},
        {"history bytes    ", figures.historyBytes},
        {"faults           ", figures.faults},
        {"bytes in use     ", (figures.pages - figures.freePages) * figures.pageSize},
        {"pages            ", figures.pages},
        {"free pages       ", figures.freePages},
        {"largest size     ", figures.mapSize},
    }};
    std::string text = "The store is sound.\n";
    for (const auto& [name, number] : lines) text.append(name).append(std::to_string(number)).append("\n");
    return text;
}

}  // namespace agent
