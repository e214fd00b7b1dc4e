// SPDX-License-Identifier: Apache-2.0
#include "cli/data/config_lines.h"

#include <algorithm>
#include <vector>

#include "cli/data/edit_xml.h"
#include "cli/data/error.h"
#include "cli/data/schema_words.h"
#include "cli/data/words.h"

namespace cli {
namespace {

using Texts = std::vector<std::string>;

constexpr std::string_view kBetween = " \t\r\n";
constexpr std::string_view kBefore = " \t\r\n;{}";  // a comment

Texts WordsIn(std::string_view text)
{
    Texts words;
    for (const Word& word : SplitWords(text)) words.push_back(word.text);
    return words;
}

/// The text with blanks in place of its comments, so that lines keep their numbers.
std::string WithoutComments(std::string_view text)
{
    std::string plain(text);
    bool quoted = false;
    for (std::size_t at = 0; at < plain.size(); ++at) {
        if (quoted && plain[at] == '\\')
            ++at;
        else if (plain[at] == '"')
            quoted = !quoted;
        const bool begins = at < plain.size() && plain[at] == '#' && !quoted &&
                            (at == 0 || kBefore.find(plain[at - 1]) != std::string_view::npos);
        for (; begins && at < plain.size() && plain[at] != '\n'; ++at) plain[at] = ' ';
    }
    return plain;
}

std::string_view FirstWord(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kBetween), text.size()));
    return text.substr(0, text.find_first_of(kBetween));
}

class Reader {
public:
    Reader(const ly_ctx* yang, std::string_view text, std::string_view name)
        : m_yang(yang), m_text(text), m_name(name)
    {
    }

    ReadLines Lines()
    {
        for (m_line = 1; !m_text.empty(); ++m_line) {
            const std::string_view line = m_text.substr(0, m_text.find('\n'));
            m_text.remove_prefix(std::min(line.size() + 1, m_text.size()));
            Named([&] { TakeLine(WordsIn(WithoutComment(line))); });
        }
        return Result();
    }

    ReadLines Blocks()
    {
        for (m_line = 1; !m_text.empty();) {
            const std::size_t end = EndOfStatement();
            const std::string_view statement = m_text.substr(0, end);
            const char sign = end < m_text.size() ? m_text[end] : '\0';
            m_line += static_cast<std::size_t>(std::ranges::count(statement, '\n'));
            Named([&] { TakeStatement(WordsIn(statement), sign); });
            m_text.remove_prefix(std::min(end + 1, m_text.size()));
        }
        Named([&] {
            if (!m_around.empty()) throw Error("a { has no counterpart");
        });
        return Result();
    }

private:
    template <typename Work>
    void Named(const Work& work) const
    {
        try {
            work();
        } catch (const Error& error) {
            throw Error(std::string(m_name) + ": line " + std::to_string(m_line) + ": " + error.what());
        }
    }

    ReadLines Result()
    {
        m_result.xml = m_edit.Text();
        return std::move(m_result);
    }

    void Set(const Texts& words)
    {
        for (const Place& place : PlacesToSet(m_yang, words)) {
            m_edit.Set(place);
            ++m_result.values;
        }
    }

    void TakeLine(const Texts& words)
    {
        if (words.empty()) return;
        const Texts path(words.begin() + 1, words.end());
        if (words.front() == "set") return Set(path);
        if (words.front() != "delete") throw Error("\"" + words.front() + "\" is neither set nor delete");
        m_result.deletes = true;
        for (const Place& place : PlacesToDelete(m_yang, path)) {
            m_edit.Delete(place);
            m_result.deletedAt.emplace(WordsOf(place), m_line);
            ++m_result.values;
        }
    }

    /// The next ;, { or } outside quotes.
    [[nodiscard]] std::size_t EndOfStatement() const
    {
        bool quoted = false;
        for (std::size_t at = 0; at < m_text.size(); ++at) {
            const char c = m_text[at];
            if (quoted && c == '\\')
                ++at;
            else if (c == '"')
                quoted = !quoted;
            else if (!quoted && (c == ';' || c == '{' || c == '}'))
                return at;
        }
        return m_text.size();
    }

    void TakeStatement(const Texts& words, char sign)
    {
        switch (sign) {
        case '{':
            if (words.empty()) throw Error("a name is missing before {");
            m_sizes.push_back(m_around.size());
            m_around.insert(m_around.end(), words.begin(), words.end());
            return;
        case '}':
            if (!words.empty()) throw Error("a ; is missing behind " + words.back());
            if (m_sizes.empty()) throw Error("a } has no counterpart");
            m_around.resize(m_sizes.back());
            m_sizes.pop_back();
            return;
        case ';': {
            Texts path = m_around;
            path.insert(path.end(), words.begin(), words.end());
            return Set(path);
        }
        default:
            if (!words.empty()) throw Error("a ; is missing behind " + words.back());
        }
    }

    const ly_ctx* m_yang;
    std::string_view m_text;  // what is left
    std::string_view m_name;
    std::size_t m_line = 1;
    EditXml m_edit;
    ReadLines m_result;
    Texts m_around;                    // the words of the blocks that are open
    std::vector<std::size_t> m_sizes;  // of m_around before each of them
};

}  // namespace

bool IsLines(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kBetween);
    return first != std::string_view::npos && text[first] != '{' && text[first] != '<';
}

ReadLines ReadConfigLines(const ly_ctx* yang, std::string_view text, std::string_view name)
{
    const std::string plain = WithoutComments(text);
    const std::string_view first = FirstWord(plain);
    const bool isLines = first == "set" || first == "delete";
    ReadLines read = isLines ? Reader(yang, text, name).Lines() : Reader(yang, plain, name).Blocks();
    if (read.values == 0) throw Error(std::string(name) + " has no configuration in it");
    return read;
}

}  // namespace cli
