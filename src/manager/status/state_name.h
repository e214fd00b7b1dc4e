// SPDX-License-Identifier: Apache-2.0
// The names that the state's nodes have in the model.

#ifndef MANAGER_STATUS_STATE_NAME_H
#define MANAGER_STATUS_STATE_NAME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace manager {

// clang-format off

/// Of a container, a list or a leaf.
enum class StateName : std::uint8_t {
    kManager, kConnected, kPid, kSession, kSince, kJournal, kJournalErrors, kOperations,
    kOperationsRefused, kPacketSource, kPacketSourceReason, kAddedDirection, kLimitation, kAgentAddress,
    kCollector, kAddress, kPort, kDatagramSize, kSending, kPacketsSent, kBytesSent, kFlowSamplesSent,
    kCounterSamplesSent, kPacketsLost, kSamplesLost, kErrors, kLastError, kLastErrorTime, kLastErrorAge,
    kLastPacketTime, kLastPacketAge, kInterface, kSamplingRate, kSamplingRateSource, kMaxHeaderSize,
    kPollingInterval, kDirection, kFlowCollector, kCounterCollector, kKernelInterface, kIfindex,
    kAdminStatus, kOperStatus, kSamplingError, kPacketsSeen, kPacketsSampled, kDropsBuffer,
    kDropsNoCollector, kLastSampleTime, kLastSampleAge, kCountersSent, kLastCountersTime, kLastCountersAge,
    kProblem, kText,
};

inline constexpr std::size_t kStateNames = static_cast<std::size_t>(StateName::kText) + 1;

/// In the order of StateName.
inline constexpr std::array<std::string_view, kStateNames> kStateTexts = {
    "manager", "connected", "pid", "session", "since", "journal", "journal-errors", "operations",
    "operations-refused", "packet-source", "packet-source-reason", "added-direction", "limitation",
    "agent-address", "collector", "address", "port", "datagram-size", "sending", "packets-sent",
    "bytes-sent", "flow-samples-sent", "counter-samples-sent", "packets-lost", "samples-lost", "errors",
    "last-error", "last-error-time", "last-error-age", "last-packet-time", "last-packet-age", "interface",
    "sampling-rate", "sampling-rate-source", "max-header-size", "polling-interval", "direction",
    "flow-collector", "counter-collector", "kernel-interface", "ifindex", "admin-status", "oper-status",
    "sampling-error", "packets-seen", "packets-sampled", "drops-buffer", "drops-no-collector",
    "last-sample-time", "last-sample-age", "counters-sent", "last-counters-time", "last-counters-age",
    "problem", "text",
};

// clang-format on

static_assert(!kStateTexts.back().empty(), "each name has its text");

constexpr std::string_view Text(StateName name) { return kStateTexts[static_cast<std::size_t>(name)]; }

}  // namespace manager

#endif
