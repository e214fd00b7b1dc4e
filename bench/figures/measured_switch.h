// SPDX-License-Identifier: Apache-2.0
// A running switch of N interfaces with what the measurements do to it: edits over NETCONF, timed until
// their calls are in the manager's journal.

#ifndef FIGURES_MEASURED_SWITCH_H
#define FIGURES_MEASURED_SWITCH_H

#include <cstddef>
#include <memory>
#include <string>

#include "netconf/client.h"
#include "support/world.h"

namespace figures {

/// Watches a growing journal without sleeping, which would be coarser than what is measured.
class JournalWatch {
public:
    explicit JournalWatch(const std::string& path);
    ~JournalWatch();
    JournalWatch(const JournalWatch&) = delete;
    JournalWatch& operator=(const JournalWatch&) = delete;

    /// Forgets what is there.
    void SkipAll();
    /// Returns when so many further lines are there. Throws support::TimedOut.
    void AwaitLines(std::size_t count);

private:
    std::size_t CountNew();
    int m_descriptor = -1;
    off_t m_offset = 0;
    std::size_t m_ahead = 0;  // lines read beyond those waited for
};

class MeasuredSwitch {
public:
    /// Started and loaded, the journal read up to there.
    explicit MeasuredSwitch(std::size_t interfaces);

    [[nodiscard]] std::size_t Interfaces() const { return m_interfaces; }
    [[nodiscard]] support::World& World() { return m_world; }
    [[nodiscard]] JournalWatch& Journal() { return *m_journal; }
    [[nodiscard]] netconf::Client& Client() { return *m_client; }
    /// Kills the database and starts it again, a few times: milliseconds until it has answered for one
    /// interface.
    double MedianRestart();

    /// Throws std::runtime_error with the reply where it is not ok.
    void Do(const std::string& operation);

    /// Returns when so many further calls are in the journal. Throws support::TimedOut, with the logs.
    void AwaitCalls(std::size_t count);

    /// Milliseconds of edit and commit, until both the reply and the calls are there.
    double TimedCommit(const std::string& config, std::size_t calls);

private:
    void Connect();

    std::size_t m_interfaces;
    support::World m_world;
    std::unique_ptr<JournalWatch> m_journal;
    std::unique_ptr<netconf::Client> m_client;
};

}  // namespace figures

#endif
