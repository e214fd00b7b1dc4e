// SPDX-License-Identifier: Apache-2.0
// The operation get-log of the module switch-system.

#include <libyang/libyang.h>

#include <charconv>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "agent/log/log_store.h"
#include "agent/netconf/operations.h"
#include "agent/state/system_state.h"
#include "log/log.h"
#include "netconf/xml.h"

namespace agent {
namespace {

/// The module's enumeration of slog::Level; the daemon's own levels may be others.
std::string_view SeverityOf(int level)
{
    if (level >= static_cast<int>(slog::Level::kError)) return "error";
    if (level == static_cast<int>(slog::Level::kNotice)) return "notice";
    if (level == static_cast<int>(slog::Level::kInfo)) return "info";
    return "debug";
}

void AppendLeaf(std::string& out, std::string_view name, std::string_view value)
{
    out.append("<").append(name).append(">");
    netconf::AppendEscaped(out, value);
    out.append("</").append(name).append(">");
}

void AppendLine(std::string& out, std::string_view xmlNamespace, const LogLine& line)
{
    out.append("<entry xmlns=\"").append(xmlNamespace).append("\">");
    AppendLeaf(out, "time", DateAndTime(line.timeUs));
    AppendLeaf(out, "process", line.process);
    AppendLeaf(out, "severity", SeverityOf(line.level));
    AppendLeaf(out, "place", line.place);
    AppendLeaf(out, "text", line.text);
    out.append("</entry>");
}

}  // namespace

void Operations::GetLog(const RequestPtr& request)
{
    constexpr std::size_t kUsual = 50;
    const std::string_view text = ChildText(request->Operation(), "lines");
    std::size_t lines = kUsual;
    std::from_chars(text.data(), text.data() + text.size(), lines);  // libyang has checked the number
    const std::string process(ChildText(request->Operation(), "process"));
    const std::string_view xmlNamespace = request->Operation()->schema->module->ns;
    const auto begin = [this, request, lines, process, xmlNamespace] {
        const auto answer = std::make_shared<std::string>();
        m_services.reads.Do(
            [this, request, lines, process, xmlNamespace, answer] {
                const auto entries = m_services.log.Last(lines, process);
                *answer = request->OutputText([&](std::string& out) {
                    for (const LogLine& line : entries) AppendLine(out, xmlNamespace, line);
                    if (entries.empty()) out.append("<ok/>");  // RFC 7950, section 7.14.4
                });
            },
            [request, answer] { request->Reply(std::move(*answer)); });
    };
    m_services.room.Enter(request, begin);
}

}  // namespace agent
