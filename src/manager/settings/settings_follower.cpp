// SPDX-License-Identifier: Apache-2.0
#include "manager/settings/settings_follower.h"

#include <utility>

#include "base/timers.h"
#include "cdb/model/error.h"
#include "ipc/cdb.pb.h"
#include "log/log.h"
#include "manager/settings/configured_store.h"

namespace manager {

void SettingsFollower::Load() { Read(OwnTouched{.whole = true}); }

void SettingsFollower::Take(const ipc::cdb::ChangeSet& changes)
{
    // After a failure anything may have changed meanwhile.
    if (m_store.Reader() == nullptr || m_retry != nullptr) return Load();
    Read(TouchedBy(m_store.Reader()->Schema(), changes.root()));
}

void SettingsFollower::Read(const OwnTouched& touched)
{
    if (m_store.Reader() == nullptr) return Failed(m_store.Problem());
    OwnUpdate update;
    try {
        update = ReadOwn(*m_store.Reader(), touched);
    } catch (const cdb::FatalError& error) {
        return Failed(error.what());
    }
    m_retry.reset();
    if (!std::exchange(m_problem, {}).empty()) slog::Notice("the manager's own settings can be read again");
    m_settings.Update(update);
}

void SettingsFollower::Failed(const std::string& reason)
{
    std::string problem =
        "what is configured below oam sflow-manager can't be read, so the manager goes on with the settings "
        "that it has: " +
        reason;
    if (problem != m_problem) slog::Error("{}", problem);
    m_problem = std::move(problem);
    m_retry = m_timers.After(kRetry, [this] {
        m_store.TryAgain();
        Load();
    });
}

}  // namespace manager
