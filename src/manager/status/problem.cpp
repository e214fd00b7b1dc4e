// SPDX-License-Identifier: Apache-2.0
#include "manager/status/problem.h"

#include <array>
#include <cstddef>

namespace manager {

const char* Name(Reason reason)
{
    static constexpr std::array kNames = {
        "interface-missing", "interface-down",  "no-traffic",        "no-sample-yet",
        "buffer-full",       "no-collector",    "no-flow-collector", "collector-disabled",
        "collector-unknown", "no-permission",   "no-kernel-support", "source-error",
        "sampling-off",      "polling-off",     "not-loaded",        "no-route",
        "unreachable",       "refused",         "send-error",        "nothing-sent",
        "no-interface",      "no-agent-address"};
    static_assert(kNames.size() == static_cast<std::size_t>(Reason::kNoAgentAddress) + 1);
    return kNames.at(static_cast<std::size_t>(reason));
}

const char* Name(Subject subject)
{
    static constexpr std::array kNames = {"agent", "collector", "interface"};
    return kNames.at(static_cast<std::size_t>(subject));
}

}  // namespace manager
