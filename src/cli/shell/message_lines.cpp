// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/message_lines.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "cli/screens/wrapped_text.h"

namespace cli {
namespace {

/// Characters before which nothing stands in the further lines of a message.
std::size_t LeadOf(std::string_view line)
{
    for (const std::string_view lead : {"error: ", "warning: "})
        if (line.starts_with(lead)) return lead.size();
    return std::min(line.find_first_not_of(' '), line.size());
}

}  // namespace

MessageLines::MessageLines(std::ostream& to, std::function<std::size_t()> width, Style style)
    : m_to(to), m_width(std::move(width)), m_style(style)
{
}

MessageLines::~MessageLines()
{
    if (!m_line.empty()) WriteLine();
}

MessageLines::int_type MessageLines::overflow(int_type c)
{
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    if (c == '\n')
        WriteLine();
    else
        m_line += traits_type::to_char_type(c);
    return c;
}

int MessageLines::sync()
{
    m_to.flush();
    return m_to ? 0 : -1;
}

void MessageLines::WriteLine()
{
    const std::string line = base::Printable(std::exchange(m_line, {}));
    m_to << m_style.Message(Wrapped(line, LeadOf(line), m_width())) << '\n';
}

}  // namespace cli
