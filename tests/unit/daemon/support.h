// SPDX-License-Identifier: Apache-2.0
// What the daemon's tests share: fixtures on a fresh fake platform, printers, short ways to write
// expected records, and the matching of processes that end.

#ifndef DAEMON_TESTS_SUPPORT_H
#define DAEMON_TESTS_SUPPORT_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <iosfwd>
#include <string>
#include <vector>

#include "daemon/inside.h"
#include "fakes/fake_platform.h"
#include "fakes/keypath.h"

namespace fakes {
void PrintTo(const LogLine& line, std::ostream* out);
void PrintTo(const ServiceCall& call, std::ostream* out);
void PrintTo(const Fault& fault, std::ostream* out);
void PrintTo(const Write& write, std::ostream* out);
}  // namespace fakes
void PrintTo(const collector_st& collector, std::ostream* out);
void PrintTo(const interface_st& interface, std::ostream* out);

namespace daemon_tests {

using fakes::Address;
using fakes::AddressAndLength;
using fakes::Fault;
using fakes::Keypath;
using fakes::LogLine;
using fakes::ServiceCall;
using testing::ElementsAre;
using testing::IsEmpty;

using Collectors = std::map<std::string, collector_st>;
using Interfaces = std::map<std::string, interface_st>;
using Names = std::set<std::string>;

inline constexpr char kHandlerSource[] = "src/daemon/sflow_config_handler";

/// `Call("AddCollector", "c1", "192.0.2.1", 6343, 1400)`.
template <typename... Args>
ServiceCall Call(const std::string& operation, const Args&... args)
{
    ServiceCall call{operation, {}};
    const auto add = [&call](const auto& argument) {
        if constexpr (std::is_integral_v<std::decay_t<decltype(argument)>>) {
            call.arguments.emplace_back(static_cast<std::uint32_t>(argument));
        } else {
            call.arguments.emplace_back(std::string(argument));
        }
    };
    (add(args), ...);
    return call;
}

/// A log line of the configuration handler.
inline LogLine Line(int level, const std::string& function, const std::string& text)
{
    return {level, function, text, kHandlerSource};
}

/// The journal's entries that begin with one of the words.
std::vector<std::string> Journal(const std::vector<std::string>& kinds);

class DaemonTest : public testing::Test {
protected:
    DaemonTest() { platform.Reset(); }
    ~DaemonTest() override { platform.Reset(); }

    /// Exactly these, and then nothing more: what was recorded is forgotten.
    void ExpectLogs(const std::vector<LogLine>& lines);
    void ExpectCalls(const std::vector<ServiceCall>& calls);
    void ForgetRecords() { platform.recorder.Clear(); }

    fakes::Platform& platform = fakes::Platform::Get();
    fakes::Cdb& cdb = platform.cdb;
};

/// A configuration handler with a database connection; the manager has not been found.
class HandlerTest : public DaemonTest {
protected:
    HandlerTest();

    /// Opens the manager gate, without a load: the connection is down at that moment.
    void OpenGate();

    void AddCollector(const std::string& name, const std::string& address, bool enabled = true,
                      std::uint16_t datagramSize = 1400, std::uint16_t port = 6343);
    /// An interface with rate 4096, header 128 and interval 20.
    void AddInterface(const std::string& name, const std::vector<std::string>& flow = {},
                      const std::vector<std::string>& counter = {});

    /// One changed node, through the second subscription point's callback.
    confd_iter_ret Change(const std::string& path, confd_iter_op op);
    confd_iter_ret Change(Keypath& keypath, confd_iter_op op, confd_value_t* newValue = nullptr);
    /// A change of a collector's enabled leaf to this value.
    confd_iter_ret ChangeEnabled(const std::string& collector, bool enabled);

    /// The address word as the database delivers it.
    static std::uint32_t Word(const std::string& address) { return Address(address).word; }

    Collectors& Staged() { return inside::Collectors(handler); }
    Names& StagedDeletions() { return inside::DeletedCollectors(handler); }
    Interfaces& StagedInterfaces() { return inside::Interfaces(handler); }
    /// A session opened by the test, for the readers.
    int Session() { return platform.cdb.OpenSession(); }

    zlog_category_t* category;
    SFlowConfigHandler handler;
};

/// For death tests: writes the journal to standard error when the process exits.
void DumpJournalAtExit();

/// The line of the sources on which this function makes its `nth` report of a fault.
int LineOfReport(const std::string& source, const std::string& function, int nth);

/// The `nth` report of that function, as the fake platform writes it.
std::string Report(const std::string& source, const std::string& function, int nth, const std::string& text);

/// What a process that ended with this fault wrote: the report, then (from DumpJournalAtExit) the
/// journal's entries `before`, and the backtrace before the fault, and nothing after.
testing::Matcher<const std::string&> FaultReport(const std::string& source, const std::string& function,
                                                 int nth, const std::string& text,
                                                 const std::vector<std::string>& before);

/// Leaves no zero byte where the next functions have their variables: what they do not set is seen.
void DirtyStack();

/// What a failed assertion writes.
testing::Matcher<const std::string&> FailedAssertion(const std::string& function, const std::string& text);

}  // namespace daemon_tests

#endif
