// SPDX-License-Identifier: Apache-2.0
#include "shapes/target.h"

#include <ctime>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "netconf/client.h"
#include "netconf/framing.h"
#include "netconf/requests.h"

namespace shapes {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLogEnd = 2000;

double Milliseconds(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

// User's and system's, all threads.
double CpuMs(pid_t process)
{
    clockid_t clock = 0;
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// Asks for nothing, one question after the other, on a thread of its own.
class Onlooker {
public:
    Onlooker(const std::string& socket, std::chrono::milliseconds patience)
        : m_client(netconf::Client::Connect(socket, {.connectTimeout = patience, .callTimeout = patience})),
          m_thread([this] { Ask(); })
    {
    }
    ~Onlooker() { (void)End(); }

    /// The longest answer.
    double End()
    {
        m_ended = true;
        if (m_thread.joinable()) m_thread.join();
        return m_longest;
    }

private:
    void Ask()
    {
        try {
            while (!m_ended) {
                const auto begin = Clock::now();
                (void)m_client.Call(netconf::GetConfig("running", ""));
                m_longest = std::max(m_longest, Milliseconds(Clock::now() - begin));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        } catch (const netconf::ConnectionError&) {
            m_ended = true;  // what the database has come to is the other session's to say
        }
    }

    netconf::Client m_client;
    std::atomic<bool> m_ended = false;
    double m_longest = 0;
    std::thread m_thread;
};

std::string Framed(const netconf::Client& client, const std::string& message)
{
    const auto framing = client.UsedFraming();
    return netconf::FrameHeader(framing, message.size()) + message + netconf::FrameTrailer(framing).data();
}

std::string Brief(const std::string& reply)
{
    const std::string tag = "<error-tag>";
    if (const auto at = reply.find(tag); at != std::string::npos)
        return reply.substr(at + tag.size(), reply.find('<', at + tag.size()) - at - tag.size());
    return reply.find("<ok/>") != std::string::npos ? "ok" : "data";
}

}  // namespace

Target::Target(std::chrono::milliseconds patience) : m_patience(patience) { Start(); }

void Target::Start()
{
    m_world.reset();
    support::WorldOptions options;
    options.logLevel = 12;
    m_world = std::make_unique<support::World>(options);
    m_world->Start("{}");
}

Outcome Target::Send(const std::string& message)
{
    Outcome outcome;
    Onlooker onlooker(m_world->NetconfSocket(), m_patience);
    const pid_t process = m_world->Cdbd().Pid();
    double before = 0;
    try {
        auto client = netconf::Client::Connect(m_world->NetconfSocket(),
                                               {.connectTimeout = m_patience, .callTimeout = m_patience});
        const auto framed = Framed(client, message);
        before = CpuMs(process);
        const auto begin = Clock::now();
        try {
            client.SendRaw(framed);
            outcome.answer = Brief(client.ReceiveMessage());
            outcome.kind = Outcome::Kind::kAnswer;
        } catch (const netconf::ConnectionError&) {
            outcome.kind =
                Clock::now() - begin < m_patience ? Outcome::Kind::kClosed : Outcome::Kind::kSilence;
        }
    } catch (const netconf::ConnectionError&) {
        outcome.kind = Outcome::Kind::kSilence;
    }
    outcome.cpuMs = CpuMs(process) - before;
    if (outcome.kind != Outcome::Kind::kSilence) outcome.longestMs = onlooker.End();
    if (outcome.kind != Outcome::Kind::kSilence && !TakesBack()) outcome.kind = Outcome::Kind::kEnded;
    if (!m_world->Cdbd().Running() || !m_world->Daemon().Running() || !m_world->Manager().Running())
        outcome.kind = Outcome::Kind::kEnded;
    return outcome;
}

// The session of the message has ended; what it has locked is free in a moment.
bool Target::TakesBack()
{
    try {
        auto client = netconf::Client::Connect(m_world->NetconfSocket(),
                                               {.connectTimeout = m_patience, .callTimeout = m_patience});
        support::Await("the candidate to be taken back",
                       [&] { return client.Call(netconf::DiscardChanges()).ok; });
        // A message may have committed something.
        (void)client.Call(netconf::EditConfig(
            R"(<config xmlns="urn:switch:yang:switch-config" xmlns:nc="urn:ietf:params:xml:ns:netconf:base:1.0")"
            R"( nc:operation="remove"/>)"));
        (void)client.Call(netconf::Commit());
        return true;
    } catch (const netconf::ConnectionError&) {
        // It takes a process a moment to be gone.
        return !support::Becomes([&] { return !m_world->Cdbd().Running(); });
    }
}

void Target::Recover() { Start(); }

std::string Target::Log() const
{
    const auto log = m_world->Log("cdbd");
    return log.substr(log.size() - std::min(log.size(), kLogEnd));
}

}  // namespace shapes
