// SPDX-License-Identifier: Apache-2.0
// Why are there no samples? What is configured, what is in effect and what has happened, looked at
// together: each interface and collector that does not flow, with the reason and the remedy. A pure
// function of records.

#ifndef MANAGER_STATUS_DIAGNOSIS_H
#define MANAGER_STATUS_DIAGNOSIS_H

#include <cstdint>
#include <string>
#include <vector>

namespace manager {

struct Configured;
struct Snapshot;

/// As the state's model has them, in its order.
enum class Reason : std::uint8_t {
    kInterfaceMissing,
    kInterfaceDown,
    kNoTraffic,
    kNoSampleYet,
    kBufferFull,
    kNoCollector,
    kNoFlowCollector,
    kCollectorDisabled,
    kCollectorUnknown,
    kNoPermission,
    kNoKernelSupport,
    kSourceError,
    kSamplingOff,
    kPollingOff,
    kNotLoaded,
    kNoRoute,
    kUnreachable,
    kRefused,
    kSendError,
    kNothingSent,
    kNoInterface,
    kNoAgentAddress,
};

enum class Subject : std::uint8_t { kAgent, kCollector, kInterface };

struct Problem {
    Subject subject = Subject::kInterface;
    std::string name;  // the interface's or collector's; "agent"
    Reason reason = Reason::kInterfaceMissing;
    std::string text;  // for people: what is the matter, and what helps
    friend bool operator==(const Problem&, const Problem&) = default;
};

/// As the model writes them.
const char* Name(Reason reason);
const char* Name(Subject subject);

/// What is looked at. Names in ascending order.
struct Subjects {
    bool agent = false;
    std::vector<std::string> collectors;
    std::vector<std::string> interfaces;
};

/// What does not flow: the agent's problem, then the collectors', then the interfaces', by ascending name.
/// An interface has one that concerns its packet samples at most, and one of its counters where they are
/// not sent for another reason. The snapshot needs to have no more than the subjects and what they name.
/// `configured` likewise; it may be null: then what it alone can tell is missing.
std::vector<Problem> Diagnose(const Subjects& subjects, const Snapshot& snapshot,
                              const Configured* configured);

}  // namespace manager

#endif
