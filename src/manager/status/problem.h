// SPDX-License-Identifier: Apache-2.0
// What is wrong, as the state's model has it: found by the diagnosis, written by the state writer.

#ifndef MANAGER_STATUS_PROBLEM_H
#define MANAGER_STATUS_PROBLEM_H

#include <cstdint>
#include <string>

namespace manager {

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

}  // namespace manager

#endif
