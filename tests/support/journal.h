// SPDX-License-Identifier: Apache-2.0
// The manager's journal as tests read it: one call a line, in the order received, compared as text.
// Also the state that a manager has after these calls, worked out here independently of it.

#ifndef SUPPORT_JOURNAL_H
#define SUPPORT_JOURNAL_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace support {

/// One received operation as text: its name and arguments, blank between them, an empty name as "-":
/// "UpdateInterface eth1 c1 - 4096 2 128 20". Session marks are their names alone.
using Calls = std::vector<std::string>;

/// Reads a journal that grows. Only whole lines count.
class Journal {
public:
    explicit Journal(std::filesystem::path path) : m_path(std::move(path)) {}

    /// What has come since the last call of Next or Skip. Throws where a line is not as the format says.
    Calls Next();

    /// Everything from the file's beginning.
    [[nodiscard]] Calls All() const;

    /// Waits for the call `last` and returns all from here on, it and what is already behind it included.
    /// Throws TimedOut, its text showing what came instead.
    Calls Until(const std::string& last);

    /// Forgets what has come so far.
    void Skip() { (void)Next(); }

private:
    std::filesystem::path m_path;
    std::uintmax_t m_offset = 0;
};

/// What the manager keeps, as far as the service's operations decide it.
struct ManagerState {
    struct Interface {
        std::string numbers;  // rate, direction, header size, interval
        std::set<std::string> sample;
        std::set<std::string> counter;
        friend bool operator==(const Interface&, const Interface&) = default;
    };
    std::string agent;
    std::map<std::string, std::string> collectors;  // name: address, port, datagram size
    std::map<std::string, Interface> interfaces;
    friend bool operator==(const ManagerState&, const ManagerState&) = default;
};

std::ostream& operator<<(std::ostream& out, const ManagerState& state);

/// Plays the calls of one life of a manager, sessions with mark and sweep included. With a session
/// under way that is not yet loaded, nothing has been swept.
ManagerState Play(const Calls& calls);

/// What a manager must have after everything has been delivered, worked out from a configuration in
/// RFC 7951 JSON (defaults need not be filled in). Throws where the text is no JSON.
ManagerState StateOf(const std::string& configuration);

/// What a manager says that it has: the operational state in RFC 7951 JSON. Throws where the text is
/// no JSON.
ManagerState StateShown(const std::string& state);

}  // namespace support

#endif
