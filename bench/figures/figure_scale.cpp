// SPDX-License-Identifier: Apache-2.0
// Figure 7: what must not grow with the configuration, at N = 100 and at --many: one interface read by its
// key, many readers at once, comparing nothing, the restart; and what may grow with the question only.

#include <stdexcept>
#include <vector>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {
namespace {

constexpr std::size_t kFew = 100;
constexpr std::size_t kNamed = 1000;
constexpr std::size_t kSessions = 50;

std::string Named(std::size_t first, std::size_t count)
{
    std::string content;
    for (std::size_t i = first; i < first + count; ++i)
        content += "<interface><name>" + InterfaceName(i) + "</name></interface>";
    return SflowXml(content);
}

double TimedRead(netconf::Client& client, const std::string& request, const std::string& expected)
{
    const Stopwatch watch;
    client.Send(request);
    const auto reply = client.ReceiveMessage();
    const double time = watch.Milliseconds();
    if (reply.find(expected) == std::string::npos)
        throw std::runtime_error("not read: " + reply.substr(0, 500));
    return time;
}

double MedianRead(MeasuredSwitch& target, const std::string& request, const std::string& expected,
                  std::size_t runs)
{
    std::vector<double> times;
    for (std::size_t run = 0; run < runs; ++run)
        times.push_back(TimedRead(target.Client(), request, expected));
    return Median(times);
}

/// Requests a second of so many sessions, each of which asks for one interface over and over.
double Throughput(MeasuredSwitch& target)
{
    constexpr std::size_t kEach = 400;
    std::vector<netconf::Client> clients;
    for (std::size_t i = 0; i < kSessions; ++i)
        clients.push_back(netconf::Client::Connect(target.World().NetconfSocket()));
    const auto request = netconf::GetConfig("running", Named(target.Interfaces() / 2, 1));
    const Stopwatch watch;
    for (auto& client : clients) client.Send(request);
    for (std::size_t round = 0; round < kEach; ++round)
        for (auto& client : clients) {
            client.ReceiveMessage();
            if (round + 1 < kEach) client.Send(request);
        }
    return static_cast<double>(kSessions * kEach) / watch.Milliseconds() * 1000;
}

double TimedCompare(MeasuredSwitch& target)
{
    const Stopwatch watch;
    for (const char* source : {"running", "candidate"}) {
        target.Client().Send(netconf::GetTouched(source));
        target.Client().ReceiveMessage();
    }
    return watch.Milliseconds();
}

/// How long one interface takes.
double Measure(std::size_t interfaces, const Settings& settings, Table& table)
{
    MeasuredSwitch target(interfaces);
    const auto size = ", N = " + std::to_string(interfaces);
    const double one = MedianRead(target, netconf::GetConfig("running", Named(interfaces / 2, 1)),
                                  InterfaceName(interfaces / 2), settings.runs * 10);
    table.AtMost("7 one interface by its key" + size, one, 0.2, "ms");
    std::vector<double> compares;
    for (std::size_t run = 0; run < settings.runs; ++run) compares.push_back(TimedCompare(target));
    table.AtMost("7 comparing without a change" + size, Median(compares), 2, "ms");
    if (interfaces >= kNamed) {
        table.AtMost("7 of all interfaces, 1000 named" + size,
                     MedianRead(target, netconf::GetConfig("running", Named(0, kNamed)),
                                InterfaceName(kNamed - 1), settings.runs),
                     10, "ms");
        table.AtLeast("7 requests of 50 sessions" + size, Throughput(target), 10'000, "/s");
    }
    table.AtMost("7 restart until the first answer" + size, target.MedianRestart(), 150, "ms");
    return one;
}

}  // namespace

void MeasureScale(const Settings& settings, Table& table)
{
    const double few = Measure(kFew, settings, table);
    const double many = Measure(settings.many, settings, table);
    table.AtMost("7 one interface, many to few", many / few, 1.3, "");
}

}  // namespace figures
