#include "manager/json_writer.h"

#include <algorithm>
#include <iterator>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace manager {
namespace {

/// Whether the text stands in JSON as it is.
bool IsPlain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= ' ' && c < '\x7f' && c != '"' && c != '\\'; });
}

/// Without what no string of YANG may hold.
std::string Speakable(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code < ' ' && c != '\t' && c != '\n' && c != '\r')
            result += "\uFFFD";
        else
            result += c;
    }
    return result;
}

}  // namespace

void JsonWriter::Key(std::string_view name)
{
    Separate();
    m_text += '"';
    m_text += name;
    m_text += "\":";
    m_first = true;
}

void JsonWriter::Text(std::string_view value)
{
    Separate();
    if (!IsPlain(value)) {
        using Json = nlohmann::json;
        m_text += Json(Speakable(value)).dump(-1, ' ', false, Json::error_handler_t::replace);
        return;
    }
    m_text += '"';
    m_text += value;
    m_text += '"';
}

void JsonWriter::Number(std::int64_t value)
{
    Separate();
    fmt::format_to(std::back_inserter(m_text), "{}", value);
}

void JsonWriter::Counter(std::uint64_t value)
{
    Separate();
    fmt::format_to(std::back_inserter(m_text), "\"{}\"", value);
}

void JsonWriter::Boolean(bool value)
{
    Separate();
    m_text += value ? "true" : "false";
}

void JsonWriter::Open(char bracket)
{
    Separate();
    m_text += bracket;
    m_first = true;
}

void JsonWriter::Close(char bracket)
{
    m_text += bracket;
    m_first = false;
}

void JsonWriter::Separate()
{
    if (!m_first) m_text += ',';
    m_first = false;
}

}  // namespace manager
