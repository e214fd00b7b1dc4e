// SPDX-License-Identifier: Apache-2.0
// The walk: sessions and locks.

#include "soak/walk.h"

namespace soak {

netconf::Client& Walk::Client(std::size_t number)
{
    auto& client = m_clients.at(number);
    if (!client) client.emplace(netconf::Client::Connect(m_world.NetconfSocket()));
    return *client;
}

// Where two hold one lock each, neither can commit.
std::size_t Walk::Editor()
{
    if (m_locks.size() == 2 && m_locks.begin()->second != m_locks.rbegin()->second) Unlock();
    return m_locks.empty() ? m_dice.Draw(kClients) : m_locks.begin()->second;
}

void Walk::Unlock()
{
    while (!m_locks.empty()) {
        const auto [datastore, client] = *m_locks.begin();
        m_locks.erase(m_locks.begin());
        Expect(true, Call(client, netconf::Unlock(datastore), "unlock " + datastore), "unlocking");
        if (datastore == "candidate") Reset();
    }
}

void Walk::LockOrUnlock()
{
    const auto client = m_dice.Draw(kClients);
    const std::string datastore = m_dice.OneIn(2) ? "candidate" : "running";
    const auto held = m_locks.find(datastore);
    if (m_dice.OneIn(3)) {
        const bool own = held != m_locks.end() && held->second == client;
        Expect(own, Call(client, netconf::Unlock(datastore), "unlock " + datastore),
               "unlocking " + datastore);
        if (!own) return;
        m_locks.erase(held);
        if (datastore == "candidate") Reset();  // what was not committed goes with the lock
        return;
    }
    const bool changed = datastore == "candidate" && !(m_candidate == m_running);
    // Edits that together change nothing may count as changes.
    if (datastore == "candidate" && m_touched && !changed) return;
    const bool free = held == m_locks.end() && !changed;
    Expect(free, Call(client, netconf::Lock(datastore), "lock " + datastore), "locking " + datastore);
    if (free) m_locks[datastore] = client;
}

// It closes, its connection ends, or another session kills it.
void Walk::EndSession()
{
    const auto client = m_locks.empty() || m_dice.OneIn(3) ? m_dice.Draw(kClients) : m_locks.begin()->second;
    const auto other = (client + 1) % kClients;
    switch (m_dice.Draw(3)) {
    case 0:
        Expect(true, Call(client, netconf::CloseSession(), "close-session"), "closing the session");
        break;
    case 1:
        (void)Client(client);
        Note("client " + std::to_string(client) + " leaves");
        break;
    default: {
        const auto id = Client(client).SessionId();
        Expect(true,
               Call(other, netconf::KillSession(id), "kill-session of client " + std::to_string(client)),
               "killing a session");
    }
    }
    m_clients.at(client).reset();
    Locks held;
    for (const auto& [datastore, holder] : m_locks)
        if (holder == client) held.emplace(datastore, holder);
    for (const auto& [datastore, holder] : held) m_locks.erase(datastore);
    if (held.contains("candidate")) Reset();
    AwaitUnlocked(other, held);
}

// The database learns of the end at its own time.
void Walk::AwaitUnlocked(std::size_t client, const Locks& held)
{
    for (const auto& [datastore, holder] : held) {
        // A candidate with changes can't be locked; those of the session that ended go with its lock.
        const auto freed = [&, name = datastore] { return Client(client).Call(netconf::Lock(name)).ok; };
        if (!support::Becomes(freed)) throw Violation("the lock of " + datastore + " outlives its session");
        Expect(true, Client(client).Call(netconf::Unlock(datastore)), "unlocking");
    }
}

// The candidate is as running again.
void Walk::Reset()
{
    m_candidate = m_running;
    m_touched = m_changesEnabled = false;
}

void Walk::ForgetSessions()
{
    for (auto& client : m_clients) client.reset();
    m_locks.clear();
    m_touched = m_changesEnabled = false;
}

}  // namespace soak
