// SPDX-License-Identifier: Apache-2.0
// Why are there no samples? Compares what is configured, what is in effect and what has happened: each
// interface and collector of which nothing is sent, with the reason and the remedy. Pure functions.

#ifndef MANAGER_STATUS_DIAGNOSIS_H
#define MANAGER_STATUS_DIAGNOSIS_H

#include <cstdint>
#include <string>
#include <vector>

#include "manager/status/view.h"

namespace manager {

struct Configured;

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

/// The problems of the manager as a whole.
std::vector<Problem> DiagnoseAgent(const View& view);

// `inEffect` is null if the table has no such entry. `configured` needs no more than the entry and what it
// names; it may be null: then the problems that only it shows are missing. The problems are in ascending
// order of their reasons' names.

std::vector<Problem> DiagnoseCollector(const std::string& name, const View::Collector* inEffect,
                                       const View& view, const Configured* configured);

/// At most one that concerns packet samples, and one of counters if they are not sent for another reason.
std::vector<Problem> DiagnoseInterface(const std::string& name, const View::Interface* inEffect,
                                       const View& view, const Configured* configured);

}  // namespace manager

#endif
