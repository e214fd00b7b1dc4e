// SPDX-License-Identifier: Apache-2.0
// One answer to the database's question for state, made in parts: each is bounded work, so that the loop has
// its turn in between and packets do not wait. A part shows the state at its moment; entries that come or go
// between two parts are in the answer or not. Knows no socket and no loop.

#ifndef MANAGER_STATUS_STATE_ANSWER_H
#define MANAGER_STATUS_STATE_ANSWER_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "manager/status/configured.h"
#include "manager/status/diagnosis.h"
#include "manager/status/state_wanted.h"
#include "manager/status/view.h"

namespace ipc::cdb {
class StateReply;
}

namespace manager {

class StateWriter;
class Statistics;

/// Where the state stands in the model.
inline constexpr const char* kStatePath = "/state/oam/sflow";

/// What makes an answer's parts.
class StateParts {
public:
    StateParts() = default;
    StateParts(const StateParts&) = delete;
    StateParts& operator=(const StateParts&) = delete;
    virtual ~StateParts() = default;
    /// Fills in the next part but for the request's number. False if it is the last.
    virtual bool Next(ipc::cdb::StateReply& part) = 0;
};

class StateAnswer final : public StateParts {
public:
    struct Sources {
        StatusSources status;
        /// Updates what is known of the collectors; called before they are read.
        std::function<void()> refreshCollectors = {};
        /// Null if the configuration can't be read; the answer then warns with storeProblem.
        const cdb::StoreReader* store = nullptr;
        std::string storeProblem = {};
        /// Takes the entries of the list of problems, which are then in no part. May be null.
        std::function<void(const Problem&)> problem = {};
        /// What the entries shown count less than the manager does. Null: nothing.
        const Statistics* statistics = nullptr;
    };
    /// The table and the store must outlive it.
    StateAnswer(Sources sources, WantedState wanted);

    bool Next(ipc::cdb::StateReply& part) override;

    /// Whether something could not be looked at; the parts then have a warning.
    [[nodiscard]] bool IsIncomplete() const { return m_isIncomplete; }

private:
    enum class Stage : std::uint8_t { kManager, kCollectors, kInterfaces, kKernelInterfaces, kDrops, kDone };

    void Tell(const Problem& problem, StateWriter& writer) const;
    void Manager(StateWriter& writer);
    /// The next entries, as many as one part may have.
    void Collectors(StateWriter& writer);
    void Interfaces(StateWriter& writer);
    void KernelInterfaces(StateWriter& writer);
    void Drops(StateWriter& writer);
    /// As many of the names, which are in ascending order, as one part may have; with the last of all the
    /// next stage begins.
    std::vector<std::string> Take(std::vector<std::string> names, Stage next);
    /// The collectors that the interfaces name, in the configuration or in effect.
    [[nodiscard]] std::vector<std::string> NamedBy(const std::vector<std::string>& interfaces) const;

    [[nodiscard]] bool NeedsConfiguration() const;
    void OpenConfiguration();
    /// Reads the configured entries behind the last one, and adds their names.
    void ReadNextCollectors(std::vector<std::string>& names);
    void ReadNextInterfaces(std::vector<std::string>& names);
    /// Reads those of the named entries that have not been read.
    void ReadCollectors(const std::vector<std::string>& names);
    void ReadInterfaces(const std::vector<std::string>& names);
    /// Reads the configured collectors of the interfaces that have no flow collector in effect, or may have
    /// fewer than are configured: only there do they matter.
    void ReadAttached();
    void GiveUpConfiguration(const std::string& problem);
    [[nodiscard]] const Configured* Known() const { return m_reader ? &m_configured : nullptr; }

    const Sources m_sources;
    const WantedState m_wanted;
    const bool m_diagnoses;  // whether an interface's problems are wanted
    Stage m_stage = Stage::kManager;
    std::string m_last;      // the last name of the stage
    std::size_t m_work = 0;  // of this part so far, in entries
    std::optional<ConfiguredReader> m_reader;
    Configured m_configured;  // the collectors as they are met; the interfaces of one part
    std::optional<std::vector<std::string>> m_kernelNames;  // those still to come, descending
    std::optional<std::vector<DropsAtInterface>> m_drops;   // as they were when the stage began
    std::string m_warning;                                  // not sent yet
    bool m_isIncomplete = false;
};

}  // namespace manager

#endif
