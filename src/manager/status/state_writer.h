// SPDX-License-Identifier: Apache-2.0
// What the manager shows of itself, as the state's model has it: records written as nodes of one part of the
// answer to the database. Used by state_answer.

#ifndef MANAGER_STATUS_STATE_WRITER_H
#define MANAGER_STATUS_STATE_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "manager/status/diagnosis.h"
#include "manager/status/state_wanted.h"
#include "manager/status/view.h"

namespace ipc::cdb {
class StateNode;
class StateReply;
}  // namespace ipc::cdb

namespace net {
struct Link;
}

namespace manager {

struct Configured;

// clang-format off

/// The names that the state's nodes have in the model: of a container, a list or a leaf.
enum class StateName : std::uint8_t {
    kManager, kConnected, kPid, kSession, kSince, kJournal, kJournalErrors, kOperations,
    kOperationsRefused, kPacketSource, kPacketSourceReason, kAddedDirection, kDiscardLimit,
    kDiscardInterfaces, kDiscardInterfacesReason, kDiscardsUncounted, kLimitation, kAgentAddress, kSubAgent,
    kCollector, kAddress, kPort, kDatagramSize, kSourceAddress, kDscp, kDevice, kDiscards,
    kSending, kPacketsSent, kBytesSent, kFlowSamplesSent, kCounterSamplesSent, kDiscardsSent, kPacketsLost, kSamplesLost, kErrors, kLastError, kLastErrorTime, kLastErrorAge,
    kLastPacketTime, kLastPacketAge, kInterface, kSamplingRate, kSamplingRateSource, kMaxHeaderSize,
    kPollingInterval, kDirection, kFlowCollector, kCounterCollector, kKernelInterface, kIfindex,
    kAdminStatus, kOperStatus, kSamplingError, kPacketsSeen, kPacketsSampled, kSampledBytes, kDropsBuffer,
    kDropsNoCollector, kLastSampleTime, kLastSampleAge, kCountersSent, kLastCountersTime, kLastCountersAge,
    kProblem, kText, kDrops, kPackets, kPacketsNotTold, kReason, kRate, kLastTime, kLastAge, kCode, kFunction, kSeverity,
    kSamplesPerSecond, kDatagramsPerSecond, kAlternativeName, kAlias, kKind, kSpeed, kCountsSince,
};

inline constexpr std::size_t kStateNames = static_cast<std::size_t>(StateName::kCountsSince) + 1;

/// In the order of StateName.
inline constexpr std::array<std::string_view, kStateNames> kStateTexts = {
    "manager", "connected", "pid", "session", "since", "journal", "journal-errors", "operations",
    "operations-refused", "packet-source", "packet-source-reason", "added-direction", "discard-limit",
    "discard-interfaces", "discard-interfaces-reason", "discards-uncounted", "limitation", "agent-address", "sub-agent", "collector", "address", "port", "datagram-size",
    "source-address", "dscp", "device", "discards", "sending", "packets-sent",
    "bytes-sent", "flow-samples-sent", "counter-samples-sent", "discards-sent", "packets-lost", "samples-lost", "errors",
    "last-error", "last-error-time", "last-error-age", "last-packet-time", "last-packet-age", "interface",
    "sampling-rate", "sampling-rate-source", "max-header-size", "polling-interval", "direction",
    "flow-collector", "counter-collector", "kernel-interface", "ifindex", "admin-status", "oper-status",
    "sampling-error", "packets-seen", "packets-sampled", "sampled-bytes", "drops-buffer", "drops-no-collector",
    "last-sample-time", "last-sample-age", "counters-sent", "last-counters-time", "last-counters-age",
    "problem", "text", "drops", "packets", "packets-not-told", "reason", "rate", "last-time", "last-age",
    "code", "function", "severity", "samples-per-second", "datagrams-per-second",
    "alternative-name", "alias", "kind", "speed", "counts-since",
};

// clang-format on

static_assert(!kStateTexts.back().empty(), "each name has its text");

constexpr std::string_view Text(StateName name) { return kStateTexts[static_cast<std::size_t>(name)]; }

class StateWriter {
public:
    /// `part` must outlive it. All that is written goes below `path`.
    StateWriter(ipc::cdb::StateReply& part, const std::string& path);

    void Manager(const ManagerStatus& status, const OwnSettings& own, const WantedLeaves& wanted);
    /// `address`: network byte order in memory.
    void AgentAddress(std::uint32_t address);
    void SubAgent(std::uint32_t number);
    /// `problems` are the collector's own.
    void Collector(const View::Collector& shown, WallTime now, const std::vector<Problem>& problems,
                   const WantedLeaves& wanted);
    /// `configured` may be null: then what only it shows is left out.
    void Interface(const View::Interface& shown, const View& view, const Configured* configured,
                   const std::vector<Problem>& problems, const WantedLeaves& wanted);
    /// To be called in ascending order of names.
    void KernelInterface(const net::Link& shown, const WantedLeaves& wanted);
    /// To be called in ascending order of names.
    void Drops(const DropsAtInterface& shown, WallTime now);
    /// To be called in ascending order of subject, name and reason.
    void Problem(const manager::Problem& problem);

private:
    friend class NodeWriter;
    /// The name's number in the part.
    std::uint32_t Number(StateName name);
    ipc::cdb::StateNode& Add(StateName name);

    ipc::cdb::StateReply& m_part;
    ipc::cdb::StateNode& m_root;
    std::array<std::optional<std::uint32_t>, kStateNames> m_numbers;  // null: not in the part yet
};

}  // namespace manager

#endif
