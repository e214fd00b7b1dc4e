// SPDX-License-Identifier: Apache-2.0
#include "cli/data/words.h"

#include <algorithm>
#include <cstddef>

#include "cli/data/error.h"
#include "netconf/xml.h"

namespace cli {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

bool IsBlank(char c) { return kBlanks.find(c) != std::string_view::npos; }

/// The position of the quote that closes the one at `open`. Throws Error if there is none.
std::size_t ClosingQuote(std::string_view text, std::size_t open)
{
    for (std::size_t i = open + 1; i < text.size(); ++i) {
        if (text[i] == '\\')
            ++i;
        else if (text[i] == '"')
            return i;
    }
    throw Error("a double quote is not closed: " + std::string(text.substr(open, 40)) +
                "; write \\\" for a quote inside quotes");
}

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

void AppendUnescaped(std::string& out, std::string_view inQuotes)
{
    for (std::size_t i = 0; i < inQuotes.size(); ++i) {
        const bool escape = inQuotes[i] == '\\' && i + 1 < inQuotes.size() &&
                            (inQuotes[i + 1] == '"' || inQuotes[i + 1] == '\\');
        if (escape) ++i;
        out += inQuotes[i];
    }
}

void CheckCharacters(std::string_view command)
{
    const bool plain = std::all_of(command.begin(), command.end(),
                                   [](char c) { return IsBlank(c) || (c >= ' ' && c <= '~'); });
    if (plain) return;
    if (netconf::CheckXml("<text>" + netconf::Escaped(command) + "</text>"))
        throw Error("the command has a control character or is not UTF-8; write it as plain text");
}

}  // namespace

std::vector<std::string> SplitCommands(std::string_view text)
{
    std::vector<std::string> commands;
    std::size_t begin = 0;
    const auto take = [&](std::size_t end) {
        const std::string_view command = Trimmed(text.substr(begin, end - begin));
        if (!command.empty()) commands.emplace_back(command);
        begin = end + 1;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"')
            i = ClosingQuote(text, i);
        else if (text[i] == ';' || text[i] == '\n')
            take(i);
    }
    if (begin < text.size()) take(text.size());
    return commands;
}

std::string_view WithoutComment(std::string_view line)
{
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"')
            i = ClosingQuote(line, i);
        else if (line[i] == '#' && (i == 0 || IsBlank(line[i - 1])))
            return line.substr(0, i);
    }
    return line;
}

std::vector<Word> SplitWords(std::string_view command)
{
    CheckCharacters(command);
    std::vector<Word> words;
    bool inWord = false;
    for (std::size_t i = 0; i < command.size(); ++i) {
        const char c = command[i];
        if (IsBlank(c)) {
            inWord = false;
            continue;
        }
        if (c == '|') {
            words.push_back({"|", false});
            inWord = false;
            continue;
        }
        if (!inWord) words.emplace_back();
        inWord = true;
        if (c == '"') {
            const std::size_t close = ClosingQuote(command, i);
            AppendUnescaped(words.back().text, command.substr(i + 1, close - i - 1));
            words.back().quoted = true;
            i = close;
        } else {
            words.back().text += c;
        }
    }
    return words;
}

std::string Quoted(std::string_view word)
{
    const bool plain = !word.empty() && word.front() != '#' &&
                       word.find_first_of("\";| \t\r\n\v\f") == std::string_view::npos;
    if (plain) return std::string(word);
    std::string out = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out += '"';
}

}  // namespace cli
