// SPDX-License-Identifier: Apache-2.0
// The journal: one JSON object a line for each operation received and each step of a session, written
// before it takes effect. For operators, and for tests that compare what the daemon asked for.
//
//   {"op":"SessionOpened"}
//   {"op":"AddCollector","args":["c1","192.0.2.1",6343,1400]}

#ifndef MANAGER_SERVICE_JOURNAL_H
#define MANAGER_SERVICE_JOURNAL_H

#include <cstdint>
#include <string>
#include <string_view>

#include "base/unique_fd.h"
#include "manager/service/operation.h"

namespace manager {

/// The operation as a line of the journal, without its end: name and arguments as the service has them.
std::string JournalText(const Operation& operation);

class Journal {
public:
    /// Opens the file to append to it. Throws std::system_error, which names the file.
    explicit Journal(std::string path);

    void Note(const Operation& operation) { Write(JournalText(operation)); }

    /// A step of a session: "SessionOpened", "SessionLoaded", "SessionClosed".
    void NoteStep(std::string_view step);

    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Lines that could not be written, because the disk was full or a pipe has no reader, for example. The
    /// manager continues without them; the first of a row is logged.
    [[nodiscard]] std::uint64_t Errors() const { return m_errors; }

private:
    void Write(std::string line);
    void Failed(std::string_view reason);

    const std::string m_path;
    base::UniqueFd m_file;
    std::uint64_t m_errors = 0;
    bool m_failing = false;
};

}  // namespace manager

#endif
