// SPDX-License-Identifier: Apache-2.0
// What may come next in a line that is being typed: from the table of commands, the schema, and what there
// is.

#ifndef CLI_SHELL_COMPLETION_H
#define CLI_SHELL_COMPLETION_H

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands/command.h"
#include "cli/data/schema_choices.h"

namespace cli {

struct Completion {
    std::vector<Choice> choices;  // all begin with what is typed, but for those that are values
    std::size_t typed = 0;        // bytes of the word at the end of the line
    std::string hint = "nothing more is expected here";  // what to say where there is no choice

    /// What to insert behind the line: what all choices have in common, with a blank if there is one choice.
    [[nodiscard]] std::string Insertion() const;

    /// Lines of at most `width` characters: a word and its help. At most `most` choices, then how many more.
    [[nodiscard]] std::string Text(std::size_t width, std::size_t most) const;
};

struct CompletionContext {
    std::span<const Command> commands;
    const ly_ctx* yang;
    const ShellState& state;
    std::function<std::vector<Choice>(const Place& list)> keysOf;
    std::function<std::vector<Choice>(Nameable names)> namesOf;
};

/// Nothing for a line that no command may begin with, or in which a quote is open.
Completion Complete(const CompletionContext& context, std::string_view line);

}  // namespace cli

#endif
