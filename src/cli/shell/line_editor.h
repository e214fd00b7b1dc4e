// SPDX-License-Identifier: Apache-2.0
// Lines that a person edits at a terminal, with libedit: history over sessions, completion, help at '?'.

#ifndef CLI_SHELL_LINE_EDITOR_H
#define CLI_SHELL_LINE_EDITOR_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cli/shell/completion.h"
#include "cli/shell/line_source.h"

namespace cli {

class LineEditor : public LineSource {
public:
    /// What may come behind the line up to the cursor.
    using Completer = std::function<Completion(std::string_view line)>;

    /// On standard input and output, which are a terminal. The lines of `historyFile`, which has mode 0600,
    /// come first; empty: no file. A file that can't be read or written is passed over. Throws
    /// std::runtime_error if there is no memory for it.
    LineEditor(Completer completer, std::function<std::size_t()> width, const std::string& historyFile);
    ~LineEditor() override;

    /// Ctrl-C drops the line: it is then empty. Lines with a word in them go to the history. What is pasted
    /// is taken as it is, a line at a time.
    std::optional<std::string> Read(const std::string& prompt) override;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cli

#endif
