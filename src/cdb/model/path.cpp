// SPDX-License-Identifier: Apache-2.0
#include "cdb/model/path.h"

#include "base/number.h"

namespace cdb {
namespace {

class Parser {
public:
    Parser(const SchemaTable& schema, std::string_view text) : m_schema(schema), m_text(text) {}

    base::expected<Path, std::string> Run()
    {
        if (m_text.empty()) return Complaint("is empty");
        while (m_position < m_text.size() && m_error.empty()) OneStep();
        if (!m_error.empty()) return Complaint(m_error);
        return m_path;
    }

private:
    [[nodiscard]] base::unexpected<std::string> Complaint(const std::string& why) const
    {
        return base::Unexpected("path \"" + std::string(m_text) + "\" " + why);
    }

    [[nodiscard]] char Next() const { return m_position < m_text.size() ? m_text[m_position] : '\0'; }

    void OneStep()
    {
        if (Next() != '/') {
            m_error = m_position == 0 ? "does not begin with a slash"
                                      : "has something other than a slash after " + Before();
            return;
        }
        if (m_last != kNoNode && m_schema[m_last].kind == NodeKind::kList && !m_hasInstance) {
            m_error = "names the list " + Before() + " without a key in braces and goes on below it";
            return;
        }
        const std::size_t slash = m_position++;
        const auto end = std::min(m_text.find_first_of("/{[", m_position), m_text.size());
        const auto name = m_text.substr(m_position, end - m_position);
        const NodeId node = m_schema.Child(m_last, name);
        if (node == kNoNode) {
            const std::string above(m_text.substr(0, slash));
            m_error = "has no element \"" + std::string(name) + "\" " +
                      (slash == 0 ? "at the top" : "below " + above);
            return;
        }
        m_position = end;
        m_last = node;
        m_hasInstance = false;
        m_path.steps.push_back({node, {}, std::nullopt});
        if (Next() == '{' || Next() == '[') Instance();
    }

    void Instance()
    {
        if (m_schema[m_last].kind != NodeKind::kList) {
            m_error = "has an instance after " + m_schema[m_last].name + ", which is no list";
            return;
        }
        const bool keyed = Next() == '{';
        const auto end = m_text.find(keyed ? '}' : ']', m_position);
        if (end == std::string_view::npos) {
            m_error = "does not close the " + std::string(keyed ? "brace" : "bracket") + " after " +
                      m_schema[m_last].name;
            return;
        }
        const auto content = m_text.substr(m_position + 1, end - m_position - 1);
        m_position = end + 1;
        m_hasInstance = true;
        keyed ? Keys(content) : Index(content);
    }

    void Keys(std::string_view content)
    {
        const auto& list = m_schema[m_last];
        auto& keys = m_path.steps.back().keys;
        for (std::size_t left = list.keys.size(); left > 1; --left) {
            const auto blank = std::min(content.find(' '), content.size());
            keys.emplace_back(content.substr(0, blank));
            content.remove_prefix(std::min(blank + 1, content.size()));
        }
        keys.emplace_back(content);
        if (list.keys.size() > 1 && (keys.back().empty() || content.find(' ') != std::string_view::npos))
            m_error = "does not give the " + std::to_string(list.keys.size()) + " keys of " + list.name +
                      " between single blanks";
    }

    void Index(std::string_view content)
    {
        const auto index = base::ToNumber<std::size_t>(content);
        if (!index) {
            m_error = "has the index [" + std::string(content) + "], which is no number from 0 on";
            return;
        }
        m_path.steps.back().index = index;
    }

    /// The parsed part of the text, for messages.
    [[nodiscard]] std::string Before() const { return std::string(m_text.substr(0, m_position)); }

    const SchemaTable& m_schema;
    std::string_view m_text;
    std::size_t m_position = 0;
    NodeId m_last = kNoNode;
    bool m_hasInstance = false;
    Path m_path;
    std::string m_error;
};

}  // namespace

base::expected<Path, std::string> ParsePath(const SchemaTable& schema, std::string_view text)
{
    return Parser(schema, text).Run();
}

std::string ToText(const SchemaTable& schema, const Path& path)
{
    std::string text;
    for (const auto& step : path.steps) {
        text += '/' + schema[step.node].name;
        if (step.index) text += '[' + std::to_string(*step.index) + ']';
        if (step.keys.empty()) continue;
        char separator = '{';
        for (const auto& key : step.keys) {
            text += separator + key;
            separator = ' ';
        }
        text += '}';
    }
    return text;
}

}  // namespace cdb
