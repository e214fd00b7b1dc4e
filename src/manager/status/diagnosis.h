// SPDX-License-Identifier: Apache-2.0
// Why are there no samples? Compares what is configured, what is in effect and what has happened: each
// interface and collector of which nothing is sent, with the reason and the remedy. A pure function of
// records.

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
    std::string text;  // for operators: what is wrong, and the remedy
    friend bool operator==(const Problem&, const Problem&) = default;
};

/// As the model writes them.
const char* Name(Reason reason);
const char* Name(Subject subject);

/// What to diagnose. Names in ascending order.
struct Subjects {
    bool agent = false;
    std::vector<std::string> collectors;
    std::vector<std::string> interfaces;
};

/// The problems: the agent's, then the collectors', then the interfaces', by ascending name. An interface has
/// at most one that concerns its packet samples, and one of its counters if they are not sent for another
/// reason. The snapshot needs no more than the subjects and what they name, and so does `configured`, which
/// may be null: then the problems that only it shows are missing.
std::vector<Problem> Diagnose(const Subjects& subjects, const Snapshot& snapshot,
                              const Configured* configured);

}  // namespace manager

#endif
