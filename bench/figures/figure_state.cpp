// SPDX-License-Identifier: Apache-2.0
// Figure 6: state of one interface, one leaf, and everything, while a second client asks for a leaf of the
// configuration over and over: the longest that it waits is what others feel of the question.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {
namespace {

constexpr std::chrono::milliseconds kIdle{50};

std::string Filter(const std::string& sflow)
{
    return "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow>" + sflow + "</sflow></oam></state>";
}

/// A client that asks for something small now and then, and keeps the longest that it had to wait.
class Bystander {
public:
    explicit Bystander(MeasuredSwitch& target)
        : m_client(netconf::Client::Connect(target.World().NetconfSocket())), m_thread([this] { Run(); })
    {
    }
    ~Bystander() { Stop(); }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

    /// The longest wait since the last call.
    double TakeLongest() { return m_longest.exchange(0); }
    /// The same once one that may be waiting has its answer.
    double LongestOfNow()
    {
        std::this_thread::sleep_for(2 * kPause);
        return TakeLongest();
    }
    void Stop()
    {
        m_ended = true;
        if (m_thread.joinable()) m_thread.join();
    }

private:
    static constexpr std::chrono::microseconds kPause{500};

    void Run()
    {
        const auto request = netconf::GetConfig(
            "running",
            "<config xmlns=\"urn:switch:yang:switch-config\"><oam "
            "xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow><agent/></sflow></oam></config>");
        while (!m_ended) {
            const Stopwatch watch;
            m_client.Send(request);
            m_client.ReceiveMessage();
            m_longest = std::max(m_longest.load(), watch.Milliseconds());
            std::this_thread::sleep_for(kPause);
        }
    }

    netconf::Client m_client;
    std::atomic<bool> m_ended = false;
    std::atomic<double> m_longest = 0;
    std::thread m_thread;  // last: it uses the others
};

struct Times {
    double median = 0, longestWait = 0;
};

/// The medians over the runs: of the answer, and of the longest wait of the bystander during one.
Times Measure(MeasuredSwitch& target, Bystander* bystander, const std::string& filter,
              const std::string& expected, std::size_t runs)
{
    const auto request = netconf::Get(filter);
    std::vector<double> times, waits;
    for (std::size_t run = 0; run < runs; ++run) {
        if (bystander != nullptr) bystander->TakeLongest();
        const Stopwatch watch;
        target.Client().Send(request);
        const auto reply = target.Client().ReceiveMessage();
        times.push_back(watch.Milliseconds());
        if (bystander != nullptr) waits.push_back(bystander->LongestOfNow());
        if (reply.find(expected) == std::string::npos || reply.find("rpc-error") != std::string::npos)
            throw std::runtime_error("not the state that was asked for: " + reply.substr(0, 500));
    }
    return {Median(times), bystander == nullptr ? 0 : Median(waits)};
}

}  // namespace

void MeasureState(const Settings& settings, Table& table)
{
    MeasuredSwitch target(settings.many);
    const std::string name = InterfaceName(settings.many / 2);
    const auto size = ", N = " + std::to_string(settings.many);
    const struct {
        const char* what;
        std::string filter;
        double bound, loopBound;
    } kRows[] = {
        {"one leaf", Filter("<interface><name>" + name + "</name><ifindex/><direction/></interface>"), 2, 1},
        {"one interface", Filter("<interface><name>" + name + "</name></interface>"), 2, 1},
        {"everything", "<state xmlns=\"urn:switch:yang:switch-state\"/>", 100, 5}};
    for (const auto& row : kRows) {
        const Times alone = Measure(target, nullptr, row.filter, name, settings.runs);
        table.AtMost(std::string("6 state: ") + row.what + size, alone.median, row.bound, "ms");
    }
    Bystander bystander(target);
    bystander.TakeLongest();
    std::this_thread::sleep_for(kIdle);
    table.Plain("6 longest wait of another client, nothing asked", bystander.TakeLongest(), "ms");
    for (const auto& row : kRows) {
        const Times beside = Measure(target, &bystander, row.filter, name, settings.runs);
        table.AtMost(std::string("6 longest wait of another client during that: ") + row.what + size,
                     beside.longestWait, row.loopBound, "ms");
    }
}

}  // namespace figures
