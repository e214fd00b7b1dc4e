// SPDX-License-Identifier: Apache-2.0
// How a text becomes commands and a command becomes words. Knows no command.

#ifndef CLI_DATA_WORDS_H
#define CLI_DATA_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace cli {

struct Word {
    std::string text;
    bool quoted = false;  // at least a piece of it stood in double quotes

    /// Whether this is the sign that separates a command from the form of its output.
    [[nodiscard]] bool IsPipe() const { return !quoted && text == "|"; }
    friend bool operator==(const Word&, const Word&) = default;
};

/// The commands of one argument of -c: ended by ';' or a line's end outside double quotes, without
/// blanks around them; empty ones are left out. Throws Error on a quote that is not closed.
std::vector<std::string> SplitCommands(std::string_view text);

/// The line up to a '#' that begins a word outside double quotes. Throws Error on a quote that is not closed.
std::string_view WithoutComment(std::string_view line);

/// Words are separated by blanks; '|' is a word by itself. In double quotes blanks, ';', '|' and '#'
/// stand for themselves, and \" and \\ for a quote and a backslash. Throws Error on a quote that is not
/// closed and on characters that no value can have (control characters, broken UTF-8).
std::vector<Word> SplitWords(std::string_view command);

/// The word as it must be written to be read as one word.
std::string Quoted(std::string_view word);

}  // namespace cli

#endif
