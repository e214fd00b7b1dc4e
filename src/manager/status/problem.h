// SPDX-License-Identifier: Apache-2.0
// What is wrong, as the state's model has it, and the sentences that say it: what is wrong and the remedy, in
// the words of the operator's shell. Found by the diagnosis, written by the state writer. Decides nothing but
// which kind of error a collector has.

#ifndef MANAGER_STATUS_PROBLEM_H
#define MANAGER_STATUS_PROBLEM_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manager/status/view.h"

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
    kSourceAddressMissing,
    kDeviceMissing,
    kNoSession,
};

/// As the state's model has them, in its order.
enum class Severity : std::uint8_t { kBroken, kOff, kIdle };

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
const char* Name(Severity severity);

Severity SeverityOf(Reason reason);

namespace text {

std::string NoSession();
std::string NoAgentAddress();

std::string Disabled(const std::vector<std::string>& collectors);
std::string Unknown(const std::string& collector);
std::string OnlySettings(const std::string& collector);
std::string NotLoaded(Service::Session session);
/// An interface is configured to send to these collectors, and the manager was not told of that.
std::string NotAttached(const std::vector<std::string>& collectors);
/// `mayBeLost`: interfaces may be configured to send to it of which the manager was not told.
std::string NoInterface(const std::string& collector, bool mayBeLost);
std::string NothingSent();

/// Which of a collector's reasons the last error of its stream is.
Reason ReasonOf(const StreamStatus& stream);
std::string OfError(Reason reason, const View::Collector& collector);

std::string Missing(const std::string& interface);
std::string Down(const InterfaceStatus& status);
std::string NoCollector(const std::string& interface);
std::string NoFlowCollector(const std::string& interface);
std::string NoPermission(const std::string& reason);
std::string NoKernelSupport(const std::string& reason);
std::string SourceError(const InterfaceStatus& status);
std::string NoTraffic(const View::Interface& interface, std::optional<Direction> added);
std::string BufferFull(const InterfaceStatus& status);
std::string Pending(const InterfaceStatus& status);
std::string NoSampleYet(const View::Interface& interface);
std::string SamplingOff(const std::string& interface);
std::string PollingOff(const std::string& interface);

}  // namespace text

}  // namespace manager

#endif
