// SPDX-License-Identifier: Apache-2.0
// Keeps the own settings as they are configured: reads all of them when the database has accepted the
// manager, and what a commit has changed when the database tells of it. Without the database, and while its
// store can't be read, the settings stay as they are. Knows no connection.

#ifndef MANAGER_SETTINGS_SETTINGS_FOLLOWER_H
#define MANAGER_SETTINGS_SETTINGS_FOLLOWER_H

#include <chrono>
#include <memory>
#include <string>

#include "manager/settings/own_reader.h"

namespace base {
class Timers;
}
namespace ipc::cdb {
class ChangeSet;
}

namespace manager {

class ConfiguredStore;

class SettingsFollower {
public:
    /// Between two tries to read a store that can't be read.
    static constexpr std::chrono::seconds kRetry{5};

    /// All must outlive it.
    SettingsFollower(ConfiguredStore& store, base::Timers& timers, OwnSettings& settings)
        : m_store(store), m_timers(timers), m_settings(settings)
    {
    }

    /// The store has been opened, or could not be.
    void Load();
    /// A commit has changed some of the settings.
    void Take(const ipc::cdb::ChangeSet& changes);

    /// Why the settings may be older than the configuration, for operators; empty if they are not, or if the
    /// database has not named its store yet.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

private:
    void Read(const OwnTouched& touched);
    void Failed(const std::string& reason);

    ConfiguredStore& m_store;
    base::Timers& m_timers;
    OwnSettings& m_settings;
    std::string m_problem;
    std::shared_ptr<void> m_retry;  // while the settings have not been read as a whole
};

}  // namespace manager

#endif
