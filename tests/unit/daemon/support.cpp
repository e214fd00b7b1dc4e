// SPDX-License-Identifier: Apache-2.0
#include "support.h"

#include <qxmw/qxmw.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>

namespace fakes {

void PrintTo(const LogLine& line, std::ostream* out)
{
    *out << "{" << line.level << ", \"" << line.function << "\", \"" << line.text << "\", \"" << line.source
         << "\"}";
}

void PrintTo(const ServiceCall& call, std::ostream* out) { *out << ToText(call); }

void PrintTo(const Fault& fault, std::ostream* out)
{
    *out << "{" << fault.kind << ", \"" << fault.function << "\", \"" << fault.source << "\", \""
         << fault.text << "\"}";
}

void PrintTo(const Write& write, std::ostream* out)
{
    *out << "{" << write.socket << ", " << write.transaction << ", \"" << write.path << "\", value of type "
         << write.value.index() << "}";
}

}  // namespace fakes

void PrintTo(const collector_st& collector, std::ostream* out)
{
    *out << "{enabled " << collector.enabled << ", ip " << collector.ip << ", dgsize " << collector.dgsize
         << ", port " << collector.port << ", send " << collector.send << "}";
}

void PrintTo(const interface_st& interface, std::ostream* out)
{
    *out << "{rate " << interface.rate << ", max_header_size " << interface.max_header_size << ", interval "
         << interface.interval << ", collectors " << testing::PrintToString(interface.collectors[Sample])
         << " " << testing::PrintToString(interface.collectors[Counter]) << ", removed "
         << testing::PrintToString(interface.removedCollectors[Sample]) << " "
         << testing::PrintToString(interface.removedCollectors[Counter]) << ", update " << interface.update
         << "}";
}

namespace daemon_tests {

std::vector<std::string> Journal(const std::vector<std::string>& kinds)
{
    std::vector<std::string> entries;
    for (const std::string& entry : fakes::Platform::Get().recorder.journal) {
        const std::string kind = entry.substr(0, entry.find(' '));
        if (std::find(kinds.begin(), kinds.end(), kind) != kinds.end()) entries.push_back(entry);
    }
    return entries;
}

void DaemonTest::ExpectLogs(const std::vector<LogLine>& lines)
{
    EXPECT_EQ(platform.recorder.logs, lines);
    platform.recorder.logs.clear();
}

void DaemonTest::ExpectCalls(const std::vector<ServiceCall>& calls)
{
    EXPECT_EQ(platform.recorder.calls, calls);
    platform.recorder.calls.clear();
}

HandlerTest::HandlerTest() : category(qxmw_trace_init(nullptr, "test")), handler(category)
{
    handler.SetConfdInterface(&platform.confd);
    ForgetRecords();
}

void HandlerTest::OpenGate()
{
    platform.confd.connected = false;
    platform.ManagerFound();
    platform.confd.connected = true;
    ForgetRecords();
}

void HandlerTest::AddCollector(const std::string& name, const std::string& address, bool enabled,
                               std::uint16_t datagramSize, std::uint16_t port)
{
    const std::string entry = "/config/oam/sflow/collector{" + name + "}";
    cdb.Create(entry);
    cdb.Set(entry + "/enabled", enabled);
    cdb.Set(entry + "/ip", Address(address));
    cdb.Set(entry + "/datagram-size", datagramSize);
    cdb.Set(entry + "/port", port);
}

void HandlerTest::AddInterface(const std::string& name, const std::vector<std::string>& flow,
                               const std::vector<std::string>& counter)
{
    const std::string entry = "/config/oam/sflow/interface{" + name + "}";
    cdb.Create(entry);
    for (const std::string& collector : flow)
        cdb.Create(entry + "/flow-sampling-collector{" + collector + "}");
    for (const std::string& collector : counter)
        cdb.Create(entry + "/counter-sampling-collector{" + collector + "}");
}

confd_iter_ret HandlerTest::Change(const std::string& path, confd_iter_op op)
{
    Keypath keypath(path);
    return Change(keypath, op);
}

confd_iter_ret HandlerTest::Change(Keypath& keypath, confd_iter_op op, confd_value_t* newValue)
{
    return handler.GetSubscriptionPoints().at(1).callback(keypath.Get(), op, nullptr, newValue);
}

confd_iter_ret HandlerTest::ChangeEnabled(const std::string& collector, bool enabled)
{
    Keypath keypath("/config/oam/sflow/collector{" + collector + "}/enabled");
    confd_value_t value{};
    value.type = C_BOOL;
    value.val.boolean = enabled ? 1 : 0;
    return Change(keypath, MOP_VALUE_SET, &value);
}

void DumpJournalAtExit()
{
    std::atexit([] {
        for (const std::string& entry : fakes::Platform::Get().recorder.journal)
            std::fprintf(stderr, "%s\n", entry.c_str());
    });
}

int LineOfReport(const std::string& source, const std::string& function, int nth)
{
    const std::string unit = source.substr(source.rfind('/') + 1);
    for (const auto& file : std::filesystem::directory_iterator(DAEMON_SOURCES)) {
        const std::string name = file.path().filename();
        if (name.rfind(unit, 0) != 0 || file.path().extension() != ".cpp") continue;
        std::ifstream stream(file.path());
        int number = 0;
        int reports = 0;
        bool inside = false;
        for (std::string line; std::getline(stream, line);) {
            ++number;
            if (line.find("::" + function + "(") != std::string::npos && line.front() != ' ') inside = true;
            if (line == "}") inside = false;
            const bool report = line.find("EndWithFault(__func__") != std::string::npos ||
                                line.find("qxmw_gen_fault(") != std::string::npos;
            if (inside && report && ++reports == nth) return number;
        }
    }
    ADD_FAILURE() << function << " of " << source << " has no report number " << nth;
    return -1;
}

std::string Report(const std::string& source, const std::string& function, int nth, const std::string& text)
{
    return "fault kind=1 function=" + function + " source=" + source +
           " line=" + std::to_string(LineOfReport(source, function, nth)) + " text='" + text + "'\n";
}

void DirtyStack()
{
    volatile unsigned char bytes[65536];
    for (volatile unsigned char& byte : bytes) byte = 0xa5;
}

namespace {

/// gcc's spelling of a function in the compiler's: clang has a space before `*` and `&`.
std::string AsCompilerSpells(const std::string& function)
{
#ifdef __clang__
    std::string spelled;
    for (const char each : function) {
        const bool apart = (each == '*' || each == '&') && !spelled.empty() &&
                           std::string_view(" *&").find(spelled.back()) == std::string_view::npos;
        if (apart) spelled += ' ';
        spelled += each;
    }
    return spelled;
#else
    return function;
#endif
}

}  // namespace

testing::Matcher<const std::string&> FaultReport(const std::string& source, const std::string& function,
                                                 int nth, const std::string& text,
                                                 const std::vector<std::string>& before)
{
    std::string all = Report(source, function, nth, text);
    for (const std::string& entry : before) all += entry + "\n";
    return testing::Eq(all + "backtrace\nfault\n");
}

testing::Matcher<const std::string&> FailedAssertion(const std::string& function, const std::string& text)
{
    return testing::HasSubstr(": " + AsCompilerSpells(function) + ": Assertion `" + text + "' failed.\n");
}

}  // namespace daemon_tests
