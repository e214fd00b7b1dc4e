// SPDX-License-Identifier: Apache-2.0
// The lines that a user typed, kept over sessions in a file, one a line. Several sessions may add to it at a
// time. What fails is left: a shell works without a history.

#ifndef CLI_SHELL_HISTORY_FILE_H
#define CLI_SHELL_HISTORY_FILE_H

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

class HistoryFile {
public:
    static constexpr std::size_t kMostLines = 1'000;

    /// An empty path: nothing is kept.
    explicit HistoryFile(std::string path) : m_path(std::move(path)) {}

    /// The newest lines, the oldest first; at most kMostLines. Cuts the file to them if it has become much
    /// longer.
    [[nodiscard]] std::vector<std::string> Read() const;

    /// Adds a line; the file is made for its user alone (mode 0600).
    void Add(const std::string& line) const;

private:
    void Replace(const std::vector<std::string>& lines) const;

    std::string m_path;
};

}  // namespace cli

#endif
