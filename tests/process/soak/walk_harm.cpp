// SPDX-License-Identifier: Apache-2.0
// The walk: processes killed, stopped and made to fail.

#include <cerrno>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "soak/walk.h"

namespace soak {

namespace {

using support::WriteOutcome;

constexpr unsigned kCalls = 9;        // of a commit's writing, about
constexpr unsigned kCommitUs = 4000;  // in which a small commit is through, about

void Spin(std::chrono::microseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

// Whether the process has got so far that it ends by SIGTERM in good order: it catches the signal, or keeps
// it for a reader.
bool MindsTheEnd(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    unsigned long minded = 0;
    for (std::string word; status >> word;)
        if (word == "SigCgt:" || word == "SigBlk:") {
            status >> word;
            minded |= std::stoul(word, nullptr, 16);
        }
    return (minded >> (SIGTERM - 1) & 1) != 0;
}

}  // namespace

void Walk::KillDatabase()
{
    ++m_tally.kills;
    m_world.Cdbd().Kill();
}

void Walk::KillAtRest()
{
    const unsigned victim = m_dice.Draw(4);
    if (victim < 2) {
        Note("cdbd is killed");
        KillDatabase();
        AfterDatabaseEnded(false);
        return LookTwice();
    }
    ++m_tally.kills;
    Note(victim == 2 ? "sflow-mgr is killed" : "sflow-app is killed");
    (victim == 2 ? m_world.Manager() : m_world.Daemon()).Kill();
    if (m_dice.OneIn(2)) AgentCommit();  // while it is away
    StartAgain(victim == 2 ? "sflow-mgr" : "sflow-app");
    if (m_dice.OneIn(2)) Settle();
}

Walk::Answer Walk::HarmedCommit(std::size_t client, const support::WriteFault& fault)
{
    m_faults.Arm(fault);
    Answer answer = Answer::kNone;
    try {
        answer = Client(client).Call(netconf::Commit()).ok ? Answer::kOk : Answer::kRefused;
    } catch (const netconf::ConnectionError&) {
        answer = Answer::kNone;
    }
    m_faults.Disarm();
    return answer;
}

// At a call by which it writes, or at any moment.
void Walk::KillDatabaseInCommit()
{
    const auto client = Editor();
    PrepareCommit(client);
    Answer answer = Answer::kNone;
    if (m_dice.OneIn(2)) {
        const auto outcome = m_dice.OneIn(4) ? WriteOutcome::kEndInTheMiddle : WriteOutcome::kEndAfter;
        const unsigned call = m_dice.Draw(kCalls) + 1;
        Note("cdbd ends at writing call " + std::to_string(call) +
             (outcome == WriteOutcome::kEndInTheMiddle ? ", halfway," : "") + " of a commit");
        answer = HarmedCommit(client, {.outcome = outcome, .call = call, .error = 0, .lasting = false});
        if (answer == Answer::kNone) {
            ++m_tally.kills;
            if (m_world.Cdbd().Wait() != 128 + SIGKILL)
                throw Violation("cdbd has ended by itself in a commit");
        }
    } else {
        const std::chrono::microseconds time(m_dice.Draw(kCommitUs));
        Note("cdbd is killed " + std::to_string(time.count()) + " us after a commit was sent");
        Client(client).Send(netconf::Commit());
        Spin(time);
        KillDatabase();
        try {
            answer = Client(client).Receive().ok ? Answer::kOk : Answer::kRefused;
        } catch (const netconf::ConnectionError&) {
            answer = Answer::kNone;
        }
    }
    if (answer == Answer::kRefused) throw Violation("a commit is refused");
    if (answer == Answer::kOk) Committed();
    if (m_world.Cdbd().Running()) return Settle();
    ++m_tally.killsInCommits;
    AfterDatabaseEnded(answer == Answer::kNone);
    LookTwice();
}

void Walk::AfterDatabaseEnded(bool undecided)
{
    ForgetSessions();
    StartAgain("cdbd");
    if (undecided)
        Decide();
    else
        m_candidate = m_running;
}

// What was written aside of what running says would come back with the next commit, or the next start.
void Walk::LookTwice()
{
    Look();
    if (m_dice.OneIn(2)) Settle();
    AgentCommit();
    Look();
    if (m_dice.OneIn(2)) {
        KillDatabase();
    } else if (m_world.Cdbd().Terminate() != 0) {
        throw Violation("cdbd does not end in good order");
    }
    AfterDatabaseEnded(false);
    Look();
    Settle();
}

void Walk::KillOtherInCommit()
{
    const auto client = Editor();
    PrepareCommit(client);
    const bool manager = m_dice.OneIn(2);
    const std::chrono::microseconds time(m_dice.Draw(kCommitUs));
    const std::string name = manager ? "sflow-mgr" : "sflow-app";
    Note(name + " is killed " + std::to_string(time.count()) + " us after a commit was sent");
    Client(client).Send(netconf::Commit());
    Spin(time);
    ++m_tally.kills;
    ++m_tally.killsInCommits;
    (manager ? m_world.Manager() : m_world.Daemon()).Kill();
    Expect(true, Client(client).Receive(), "the commit");
    Committed();
    StartAgain(name);
    Settle();
}

// Answered, and gone where it was refused. A database that can't go on is started again.
void Walk::FailWritesInCommit()
{
    const auto client = Editor();
    PrepareCommit(client);
    static constexpr std::array kErrors{ENOSPC, EIO, EROFS};
    static constexpr std::array kOutcomes{WriteOutcome::kFail, WriteOutcome::kShort,
                                          WriteOutcome::kFailAfterwards};
    const support::WriteFault fault{.outcome = kOutcomes.at(m_dice.Draw(kOutcomes.size())),
                                    .call = m_dice.Draw(kCalls) + 1,
                                    .error = kErrors.at(m_dice.Draw(kErrors.size())),
                                    .lasting = m_dice.OneIn(2)};
    Note("writing call " + std::to_string(fault.call) + (fault.lasting ? " and all later ones" : "") +
         " of a commit fail, kind " + std::to_string(static_cast<int>(fault.outcome)) + ", error " +
         std::to_string(fault.error));
    ++m_tally.writeFailures;
    const auto answer = HarmedCommit(client, fault);
    if (answer == Answer::kNone) throw Violation("a commit whose writing fails is not answered");
    if (answer == Answer::kOk) Committed();
    if (m_world.Cdbd().Running()) (void)m_world.Cdbd().Terminate();
    AfterDatabaseEnded(false);
    LookTwice();
}

void Walk::Stall()
{
    ++m_tally.stalls;
    const auto client = Editor();
    PrepareCommit(client);
    const unsigned victim = m_dice.Draw(3);
    const std::chrono::milliseconds time(m_dice.Draw(150));
    auto& process = victim == 0 ? m_world.Cdbd() : victim == 1 ? m_world.Manager() : m_world.Daemon();
    Note("a process (" + std::to_string(victim) + ") stands still in a commit for " +
         std::to_string(time.count()) + " ms");
    auto& session = Client(client);  // not made while the database can't greet it
    process.Freeze();
    session.Send(netconf::Commit());
    std::this_thread::sleep_for(time);
    process.Thaw();
    Expect(true, session.Receive(), "the commit");
    Committed();
    Settle();
}

void Walk::Restart()
{
    const unsigned which = m_dice.Draw(3);
    const std::string name = which == 0 ? "cdbd" : which == 1 ? "sflow-mgr" : "sflow-app";
    Note(name + " is restarted");
    auto& process = which == 0 ? m_world.Cdbd() : which == 1 ? m_world.Manager() : m_world.Daemon();
    support::Await(name + " to have begun", [&] { return MindsTheEnd(process.Pid()); });
    if (const auto status = process.Terminate(); status != 0)
        throw Violation(name + " does not end in good order, but with " + std::to_string(status));
    if (which == 0) return AfterDatabaseEnded(false);
    StartAgain(name);
    if (m_dice.OneIn(2)) Settle();
}

}  // namespace soak
