// SPDX-License-Identifier: Apache-2.0
// The walk: looking, and what every step needs.

#include <sstream>

#include "soak/walk.h"

namespace soak {

namespace {

using support::Becomes;

constexpr std::size_t kNotes = 40;
constexpr std::size_t kLogEnd = 3000;
constexpr std::chrono::seconds kSoon{3};

support::WorldOptions Options(const support::WriteFaults& faults)
{
    support::WorldOptions options;
    options.logLevel = 12;
    options.cdbdEnvironment = faults.Environment();
    return options;
}

}  // namespace

Walk::Walk(unsigned long seed) : m_dice(seed), m_world(Options(m_faults))
{
    m_faults.Watch(m_world.StateDir());
    m_world.Start("{}");
}

void Walk::Step()
{
    ++m_tally.steps;
    static constexpr std::array<std::pair<unsigned, void (Walk::*)()>, 14> kSteps{{
        {4, &Walk::Commit},
        {2, &Walk::Discard},
        {1, &Walk::Validate},
        {1, &Walk::CommitWhatIsInvalid},
        {3, &Walk::LockOrUnlock},
        {2, &Walk::EndSession},
        {3, &Walk::KillAtRest},
        {6, &Walk::KillDatabaseInCommit},
        {2, &Walk::KillOtherInCommit},
        {1, &Walk::FailWritesInCommit},
        {1, &Walk::Stall},
        {1, &Walk::Restart},
        {1, &Walk::Look},
        {1, &Walk::Settle},
    }};
    unsigned sum = 0;
    for (const auto& [weight, step] : kSteps) sum += weight;
    for (unsigned edits = m_dice.Draw(4); edits > 0; --edits) Edit(!m_dice.OneIn(6));
    unsigned drawn = m_dice.Draw(sum);
    for (const auto& [weight, step] : kSteps) {
        if (drawn < weight) {
            (this->*step)();
            break;
        }
        drawn -= weight;
    }
    Look();
}

void Walk::Look()
{
    LookAt("running", m_running);
    LookAt("candidate", m_candidate);
    for (const auto& [name, process] : {std::pair{"cdbd", &m_world.Cdbd()},
                                        {"sflow-mgr", &m_world.Manager()},
                                        {"sflow-app", &m_world.Daemon()}}) {
        if (!process->Running()) throw Violation(std::string(name) + " has ended by itself");
        if (const auto tooMuch = m_bounds.Measure(name, process->Pid())) throw Violation(*tooMuch);
    }
}

void Walk::LookAt(const std::string& datastore, const Configuration& wanted)
{
    ++m_tally.looks;
    const auto client = m_dice.Draw(kClients);
    const auto found = StatementsOf(Client(client).Call(netconf::GetConfig(datastore)).data);
    const auto expected = StatementsOf(wanted);
    if (found != expected)
        throw Violation(datastore + " is not what it must be:" + Difference(expected, found));
}

// A commit that was not answered is there whole or not at all.
void Walk::Decide()
{
    const auto found = StatementsOf(Client(0).Call(netconf::GetConfig("running")).data);
    if (found == StatementsOf(m_candidate)) {
        m_running = m_candidate;
    } else if (found != StatementsOf(m_running)) {
        throw Violation(
            "a commit that was not answered is neither there nor not there; compared with before:" +
            Difference(StatementsOf(m_running), found) +
            "\ncompared with after:" + Difference(StatementsOf(m_candidate), found));
    }
    m_candidate = m_running;
}

void Walk::Settle()
{
    ++m_tally.looks;
    const auto wanted = ManagerOf(m_running);
    support::ManagerState have;
    const auto settled = [&] {
        have = support::Play(m_world.ManagerJournal().All());
        return have == wanted;
    };
    if (Becomes(settled, kSoon)) return;
    // The daemon carries out one of several changes of some kinds in a commit; a new session mends that.
    Note("the manager is asked for a new session");
    ++m_tally.resyncs;
    (void)Becomes([&] { return settled() || Client(0).Call(netconf::SflowResync()).ok; });
    if (Becomes(settled)) return;
    std::ostringstream text;
    text << "the manager does not become what running says:\n" << wanted << "but has:\n" << have;
    throw Violation(text.str());
}

void Walk::Finish()
{
    Look();
    Settle();
    const auto wanted = ManagerOf(m_running);
    support::ManagerState have;
    std::string refusal;  // a manager that was just started may not have found the database yet
    if (Becomes([&] {
            const auto shown = m_world.Cli("show sflow | json");
            refusal = shown.errors;
            if (shown.status != 0) return false;
            have = support::StateShown(shown.output);
            return have == wanted;
        }))
        return;
    std::ostringstream text;
    text << "the manager shows what running does not say:\n" << wanted << "but:\n" << have << refusal;
    throw Violation(text.str());
}

void Walk::Lie()
{
    Note("a commit that the model is not told of");
    Unlock();
    auto& client = Client(0);
    (void)client.Call(netconf::DiscardChanges());
    (void)client.Call(netconf::EditConfig(ChangeAgent(m_dice, m_running).config));
    Expect(true, client.Call(netconf::Commit()), "the commit");
}

void Walk::StartAgain(const std::string& process)
{
    if (process == "cdbd") m_world.StartCdbd();
    if (process == "sflow-mgr") m_world.StartManager();
    if (process == "sflow-app") m_world.StartDaemon();
}

netconf::Reply Walk::Call(std::size_t client, const std::string& operation, const std::string& what)
{
    Note("client " + std::to_string(client) + ": " + what);
    return Client(client).Call(operation);
}

void Walk::Expect(bool ok, const netconf::Reply& reply, const std::string& what)
{
    if (!ok) ++m_tally.refusals;
    if (reply.ok != ok)
        throw Violation(what + (ok ? " is refused: " : " is accepted: ") + reply.xml.substr(0, 2000));
}

void Walk::Note(const std::string& what)
{
    m_notes.push_back("step " + std::to_string(m_tally.steps) + ": " + what);
    if (m_notes.size() > kNotes) m_notes.pop_front();
}

std::string Walk::History() const
{
    std::string text;
    for (const auto& note : m_notes) text += note + "\n";
    for (const auto* process : {"cdbd", "sflow-app", "sflow-mgr"}) {
        const auto log = m_world.Log(process);
        text += std::string("---- end of the log of ") + process + "\n" +
                log.substr(log.size() - std::min(log.size(), kLogEnd));
    }
    return text;
}

}  // namespace soak
