// SPDX-License-Identifier: Apache-2.0
// A running switch of N interfaces (see the header).

#include "figures/measured_switch.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

#include "figures/measure.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {

JournalWatch::JournalWatch(const std::string& path) : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    if (m_descriptor < 0) throw std::runtime_error("can't open " + path);
}

JournalWatch::~JournalWatch() { close(m_descriptor); }

std::size_t JournalWatch::CountNew()
{
    std::array<char, 65536> buffer{};
    const ssize_t got = pread(m_descriptor, buffer.data(), buffer.size(), m_offset);
    if (got <= 0) return 0;
    m_offset += got;
    return static_cast<std::size_t>(std::count(buffer.data(), buffer.data() + got, '\n'));
}

void JournalWatch::SkipAll()
{
    m_offset = lseek(m_descriptor, 0, SEEK_END);
    m_ahead = 0;
}

void JournalWatch::AwaitLines(std::size_t count)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::size_t have = m_ahead;
    while (have < count) {
        const auto fresh = CountNew();
        have += fresh;
        if (fresh == 0 && std::chrono::steady_clock::now() > deadline)
            throw support::TimedOut("the journal got " + std::to_string(have) + " of " +
                                    std::to_string(count) + " lines");
    }
    m_ahead = have - count;
}

MeasuredSwitch::MeasuredSwitch(std::size_t interfaces)
    : m_interfaces(interfaces),
      m_world({.cdbdArguments = {"--max-sessions", "256"}, .logLevel = 12, .stateDir = {}})
{
    m_world.Start(SwitchJson(interfaces));
    m_journal = std::make_unique<JournalWatch>(m_world.Dir() / "journal-1");
    m_journal->SkipAll();
    Connect();
}

void MeasuredSwitch::Connect()
{
    m_client = std::make_unique<netconf::Client>(netconf::Client::Connect(m_world.NetconfSocket()));
}

double MeasuredSwitch::MedianRestart()
{
    constexpr int kRestarts = 3;
    const auto request = netconf::GetConfig(
        "running", SflowXml("<interface><name>" + InterfaceName(1) + "</name></interface>"));
    std::vector<double> times;
    for (int run = 0; run < kRestarts; ++run) {
        m_world.Cdbd().Kill();
        const Stopwatch watch;
        m_world.StartCdbd();
        Connect();
        m_client->Send(request);
        if (m_client->ReceiveMessage().find(InterfaceName(1)) == std::string::npos)
            throw std::runtime_error("the restarted database does not have the configuration");
        times.push_back(watch.Milliseconds());
    }
    return Median(times);
}

void MeasuredSwitch::Do(const std::string& operation)
{
    const auto reply = m_client->Call(operation);
    if (!reply.ok || !reply.errors.empty()) throw std::runtime_error("refused: " + reply.xml.substr(0, 2000));
}

void MeasuredSwitch::AwaitCalls(std::size_t count)
{
    try {
        m_journal->AwaitLines(count);
    } catch (const support::TimedOut& late) {
        throw support::TimedOut(std::string(late.what()) + "\n" + m_world.Log("cdbd") +
                                m_world.Log("sflow-mgr") + m_world.Log("sflow-app"));
    }
}

double MeasuredSwitch::TimedCommit(const std::string& config, std::size_t calls)
{
    const auto edit = netconf::EditConfig(config);
    const auto commit = netconf::Commit();
    const Stopwatch watch;
    Do(edit);
    Do(commit);
    AwaitCalls(calls);
    return watch.Milliseconds();
}

}  // namespace figures
