// SPDX-License-Identifier: Apache-2.0
#include "metrics/text.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/version.h"

namespace metrics {
namespace {

/// Bytes that are no UTF-8 become U+FFFD: one of them would spoil all metrics for the reader.
std::string Readable(std::string_view value)
{
    using Json = nlohmann::json;
    if (std::all_of(value.begin(), value.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return std::string(value);
    return Json::parse(Json(value).dump(-1, ' ', false, Json::error_handler_t::replace)).get<std::string>();
}

std::string Escaped(std::string_view value)
{
    std::string text;
    for (const char c : Readable(value)) {
        if (c == '\\' || c == '"') text += '\\';
        if (c == '\n')
            text += "\\n";
        else
            text += c;
    }
    return text;
}

}  // namespace

std::string Label(std::string_view name, std::string_view value)
{
    return fmt::format("{}=\"{}\"", name, Escaped(value));
}

void Text::Family(std::string_view name, std::string_view type, std::string_view help)
{
    m_name = name;
    fmt::format_to(std::back_inserter(m_text), "# HELP {0} {2}\n# TYPE {0} {1}\n", name, type, help);
}

void Text::Line(std::string_view labels, std::uint64_t value)
{
    if (labels.empty())
        fmt::format_to(std::back_inserter(m_text), "{} {}\n", m_name, value);
    else
        fmt::format_to(std::back_inserter(m_text), "{}{{{}}} {}\n", m_name, labels, value);
}

void Text::Line(std::string_view labels, const std::optional<std::chrono::system_clock::time_point>& time)
{
    if (!time) return;
    const auto ms = std::chrono::floor<std::chrono::milliseconds>(time->time_since_epoch()).count();
    fmt::format_to(std::back_inserter(m_text), "{}{{{}}} {}.{:03}\n", m_name, labels, ms / 1000, ms % 1000);
}

void Text::One(std::string_view name, std::string_view type, std::string_view help, std::uint64_t value)
{
    Family(name, type, help);
    Line("", value);
}

void Text::Times(std::string_view name, std::string_view help, const Histogram& times)
{
    Family(name, "histogram", help);
    const auto to = std::back_inserter(m_text);
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < times.counts.size(); ++i) {
        count += times.counts[i];
        if (i < times.bounds.size())
            fmt::format_to(to, "{}_bucket{{le=\"{}\"}} {}\n", name, times.bounds[i], count);
    }
    fmt::format_to(to, "{0}_bucket{{le=\"+Inf\"}} {1}\n{0}_sum {2}\n{0}_count {1}\n", name, count, times.sum);
}

void Text::BuildInfo(const std::string& prefix)
{
    const std::string name = prefix + "_build_info";
    Family(name, kGauge, "The version of the program; always 1.");
    Line(Label("version", base::Version()), 1U);
}

}  // namespace metrics
