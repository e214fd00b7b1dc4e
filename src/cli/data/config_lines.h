// SPDX-License-Identifier: Apache-2.0
// Reads a configuration in the forms that people write: blocks in braces, as `show configuration` prints
// them, and lines of `set` and `delete`.

#ifndef CLI_DATA_CONFIG_LINES_H
#define CLI_DATA_CONFIG_LINES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

struct ly_ctx;

namespace cli {

/// What a text says.
struct ReadLines {
    std::string xml;         // inside <config>
    std::size_t values = 0;  // places that are set or deleted
    bool deletes = false;
    std::unordered_map<std::string, std::size_t>
        deletedAt{};  // lines of the places that are deleted, by their words
};

/// Whether the text is in one of the two forms: neither JSON nor XML.
bool IsLines(std::string_view text);

/// Reads the text; `name` is its name in messages. Of what is said twice the later line holds. Throws Error
/// that names the line: a word that is not known, a value that its type refuses, a brace without its
/// counterpart. A text that says nothing is refused, too. A # behind a blank or a sign begins a comment.
ReadLines ReadConfigLines(const ly_ctx* yang, std::string_view text, std::string_view name);

}  // namespace cli

#endif
