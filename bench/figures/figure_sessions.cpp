// SPDX-License-Identifier: Apache-2.0
// Figure 10: what sessions cost that do nothing, and how many small requests the agent answers.

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/process_usage.h"
#include "figures/switch_data.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace figures {

namespace {

constexpr std::size_t kSessionsAtRest = 200;
/// Until the manager has told the database of the problems that it has found at the start.
constexpr std::chrono::seconds kSettle{15};
constexpr std::chrono::seconds kRest{20};
constexpr std::size_t kBusySessions = 20;
/// Requests that a session has sent before it reads the answers.
constexpr std::size_t kPipelined = 50;
constexpr std::size_t kRounds = 60;

std::vector<netconf::Client> Connect(MeasuredSwitch& target, std::size_t sessions)
{
    std::vector<netconf::Client> clients;
    for (std::size_t i = 0; i < sessions; ++i)
        clients.push_back(netconf::Client::Connect(target.World().NetconfSocket()));
    return clients;
}

/// The share of a core that cdbd takes, in percent.
double Share(MeasuredSwitch& target)
{
    const pid_t cdbd = target.World().Cdbd().Pid();
    const double before = CpuSeconds(cdbd);
    std::this_thread::sleep_for(kRest);
    return (CpuSeconds(cdbd) - before) / std::chrono::duration<double>(kRest).count() * 100;
}

void MeasureIdle(MeasuredSwitch& target, Table& table)
{
    std::this_thread::sleep_for(kSettle);
    table.Plain("10 share of a core, one idle session", Share(target), "%");
    const auto clients = Connect(target, kSessionsAtRest);
    table.AtMost("10 share of a core, " + std::to_string(clients.size()) + " idle sessions", Share(target),
                 0.1, "%");
}

/// Requests that all sessions together have answered in a second of the time given.
void MeasureSmall(MeasuredSwitch& target, const std::string& name, const std::string& request,
                  const std::string& expected, Table& table)
{
    auto clients = Connect(target, kBusySessions);
    const pid_t cdbd = target.World().Cdbd().Pid();
    const double before = CpuSeconds(cdbd);
    const Stopwatch watch;
    for (std::size_t round = 0; round < kRounds; ++round) {
        for (auto& client : clients)
            for (std::size_t i = 0; i < kPipelined; ++i) client.Send(request);
        for (auto& client : clients)
            for (std::size_t i = 0; i < kPipelined; ++i) {
                const std::string reply = client.ReceiveMessage();
                if (reply.find(expected) == std::string::npos)
                    throw std::runtime_error("no such answer: " + reply.substr(0, 500));
            }
    }
    constexpr double kRequests = kRounds * kBusySessions * kPipelined;
    const double seconds = watch.Milliseconds() / 1000;
    table.AtLeast("10 " + name + ", answered in a second of CPU", kRequests / (CpuSeconds(cdbd) - before),
                  20'000, "");
    table.AtLeast("10 " + name + ", answered a second, " + std::to_string(kBusySessions) + " sessions",
                  kRequests / seconds, 20'000, "");
    table.AtLeast("10 " + name + ", answered a second for each of them", kRequests / seconds / kBusySessions,
                  1'000, "");
}

}  // namespace

void MeasureSessions(const Settings& settings, Table& table)
{
    MeasuredSwitch target(settings.many);
    MeasureIdle(target, table);
    const auto name = InterfaceName(settings.many / 2);
    MeasureSmall(target, "one leaf read",
                 netconf::GetConfig(
                     "running", SflowXml("<interface><name>" + name + "</name><sampling-rate/></interface>")),
                 "<sampling-rate>", table);
    MeasureSmall(target, "an unlock that is refused", netconf::Unlock("running"), "rpc-error", table);
}

}  // namespace figures
