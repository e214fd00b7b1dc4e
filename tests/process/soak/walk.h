// SPDX-License-Identifier: Apache-2.0
// A random walk over one switch: several NETCONF clients edit, commit, lock and leave, processes are killed,
// stopped and made to fail, and after each step the switch must be as the walk's own model says.

#ifndef SOAK_WALK_H
#define SOAK_WALK_H

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "netconf/client.h"
#include "netconf/requests.h"
#include "soak/bounds.h"
#include "soak/configuration.h"
#include "soak/edits.h"
#include "support/world.h"
#include "support/write_faults.h"

namespace soak {

/// The switch is not as the model says.
class Violation : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Tally {
    std::size_t steps = 0;
    std::size_t kills = 0;  // of any process
    std::size_t killsInCommits = 0;
    std::size_t commits = 0;  // accepted
    std::size_t refusals = 0;
    std::size_t stalls = 0;
    std::size_t writeFailures = 0;
    std::size_t looks = 0;    // comparisons of running or the manager with the model
    std::size_t resyncs = 0;  // the daemon's own rules had left the manager apart
};

class Walk {
public:
    explicit Walk(unsigned long seed);

    /// One thing is done, and everything looked at. Throws Violation.
    void Step();

    /// The manager compared with the model, once more from its own mouth.
    void Finish();

    /// A change behind the model's back, which the next step has to find.
    void Lie();

    [[nodiscard]] const Tally& Counts() const { return m_tally; }
    [[nodiscard]] std::string Sizes() const { return m_bounds.Text(); }
    /// What led here, and the logs' ends.
    [[nodiscard]] std::string History() const;

private:
    static constexpr std::size_t kClients = 4;
    using Locks = std::map<std::string, std::size_t>;  // datastore: client
    enum class Answer { kOk, kRefused, kNone };

    // walk_sessions.cpp
    netconf::Client& Client(std::size_t number);
    /// Any client, or the one that may change and commit where there are locks.
    std::size_t Editor();
    void Unlock();
    void LockOrUnlock();
    void EndSession();
    void AwaitUnlocked(std::size_t client, const Locks& held);
    void Reset();
    void ForgetSessions();

    // walk_changes.cpp
    void Edit(bool sensible);
    void Carry(std::size_t client, const soak::Edit& edit);
    void Commit();
    void Discard();
    void Validate();
    void CommitWhatIsInvalid();
    void AgentCommit();
    void PrepareCommit(std::size_t client);
    void Committed();

    // walk_harm.cpp
    void KillAtRest();
    void KillDatabaseInCommit();
    void KillOtherInCommit();
    void FailWritesInCommit();
    void Stall();
    void Restart();
    Answer HarmedCommit(std::size_t client, const support::WriteFault& fault);
    void AfterDatabaseEnded(bool undecided);
    void LookTwice();
    void KillDatabase();

    // walk_look.cpp
    void Look();
    void LookAt(const std::string& datastore, const Configuration& wanted);
    void Decide();
    void Settle();
    void StartAgain(const std::string& process);
    netconf::Reply Call(std::size_t client, const std::string& operation, const std::string& what);
    void Expect(bool ok, const netconf::Reply& reply, const std::string& what);
    void Note(const std::string& what);

    Dice m_dice;
    support::WriteFaults m_faults;  // before the World, which is started with its environment
    support::World m_world;
    Bounds m_bounds;
    std::array<std::optional<netconf::Client>, kClients> m_clients;
    Locks m_locks;
    Configuration m_running;
    Configuration m_candidate;
    bool m_touched = false;         // edits since the candidate was made equal to running
    bool m_changesEnabled = false;  // one of them is such a change
    Tally m_tally;
    std::deque<std::string> m_notes;
};

}  // namespace soak

#endif
