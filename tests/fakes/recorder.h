// SPDX-License-Identifier: Apache-2.0
// What the daemon did to the fake platform, as plain records in order.

#ifndef FAKES_RECORDER_H
#define FAKES_RECORDER_H

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace fakes {

/// One line handed to zlog.
struct LogLine {
    int level = 0;
    std::string function;
    std::string text;
    std::string source;
    friend bool operator==(const LogLine&, const LogLine&) = default;
};

/// One operation of sflow::IService. Addresses are in dotted decimal.
struct ServiceCall {
    using Argument = std::variant<std::string, std::uint32_t>;
    std::string operation;
    std::vector<Argument> arguments;
    friend bool operator==(const ServiceCall&, const ServiceCall&) = default;
};

/// One report to qxmw_gen_fault.
struct Fault {
    int kind = 0;
    std::string function;
    std::string source;
    std::string text;
    friend bool operator==(const Fault&, const Fault&) = default;
};

/// Everything that happened, by kind and once more as one journal in order of time. Journal entries
/// begin with a word for the kind: log, service, cdb, session, maapi, fault, backtrace, context,
/// framework, trace, kpath.
struct Recorder {
    std::vector<LogLine> logs;
    std::vector<long> logLineNumbers;  // of the same calls
    std::vector<ServiceCall> calls;
    std::vector<Fault> faults;
    std::vector<int> faultLineNumbers;
    std::vector<std::string> journal;
    int lowestLevel = 0;  // of the lines that zlog writes; others are neither written nor recorded

    void Note(std::string entry) { journal.push_back(std::move(entry)); }
    void Clear() { *this = Recorder{{}, {}, {}, {}, {}, {}, lowestLevel}; }
};

/// The call as text: `AddCollector("c1", "192.0.2.1", 6343, 1400)`.
std::string ToText(const ServiceCall& call);

}  // namespace fakes

#endif
