// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/monitor.h"

#include <libyang/libyang.h>

#include <array>
#include <charconv>
#include <chrono>
#include <ctime>
#include <memory>
#include <ostream>
#include <utility>

#include "base/text.h"
#include "cli/commands/interrupt.h"
#include "cli/commands/request.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"
#include "netconf/client.h"
#include "netconf/names.h"
#include "netconf/requests.h"
#include "netconf/xml.h"

namespace cli {
namespace {

/// <notification> stands at depth 1, <eventTime> and the event at 2.
class NotificationVisitor final : public netconf::XmlVisitor {
public:
    std::string time;
    bool isNotification = false;
    bool isBare = false;  // an element has no namespace, which libyang's parser does not survive twice

    bool OnStart(const netconf::XmlElement& element) override
    {
        isBare = isBare || element.ns.empty();
        const bool isOurs = element.ns == netconf::kNotificationNamespace;
        if (element.depth == 1) isNotification = isOurs && element.name == "notification";
        m_inTime = element.depth == 2 && isOurs && element.name == "eventTime";
        return isNotification && !isBare;
    }
    bool OnEnd(std::size_t /*depth*/, std::size_t /*begin*/) override
    {
        m_inTime = false;
        return true;
    }
    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (m_inTime) time.append(text);
        return true;
    }

private:
    bool m_inTime = false;
};

struct ParsedEvent {
    std::string time;
    Tree envelope;
    Tree event;
};

ParsedEvent Parse(const ly_ctx* yang, const std::string& xml)
{
    NotificationVisitor visitor;
    const auto problem = netconf::ReadXml(xml, visitor);
    if (problem || visitor.isBare || !visitor.isNotification)
        throw Error("the database has sent what is no notification");
    ly_in* raw = nullptr;
    if (ly_in_new_memory(xml.c_str(), &raw) != LY_SUCCESS) throw Error("out of memory");
    const cdb::Owned<ly_in> in(raw);
    lyd_node* envelope = nullptr;
    lyd_node* event = nullptr;
    const LY_ERR result =
        lyd_parse_op(yang, nullptr, in.get(), LYD_XML, LYD_TYPE_NOTIF_NETCONF, &envelope, &event);
    ParsedEvent parsed{std::move(visitor.time), Tree(envelope), Tree(event)};
    if (result != LY_SUCCESS || !parsed.event)
        throw Error(
            "an event does not fit the YANG modules here; use the modules of the database: "
            "SFLOW_YANG_DIR names their directory");
    return parsed;
}

const lyd_node* Child(const lyd_node* parent, std::string_view name)
{
    for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next)
        if (child->schema != nullptr && name == child->schema->name) return child;
    return nullptr;
}

std::string Text(const lyd_node* parent, std::string_view name)
{
    const lyd_node* child = Child(parent, name);
    return child == nullptr ? std::string() : lyd_get_value(child);
}

std::string Party(const lyd_node* parent)
{
    return Text(parent, "username") + " (session " + Text(parent, "session-id") + ")";
}

std::string ChangeText(const lyd_node* event)
{
    const lyd_node* by = Child(event, "changed-by");
    std::string text = "commit " + Text(event, "commit") + " by " +
                       (Child(by, "server") != nullptr ? "the database itself" : Party(by));
    if (const std::string comment = Text(event, "comment"); !comment.empty()) text += ", \"" + comment + "\"";
    const char* separator = ": ";
    for (const lyd_node* child = lyd_child(event); child != nullptr; child = child->next) {
        if (child->schema == nullptr || std::string_view(child->schema->name) != "edit") continue;
        text += std::exchange(separator, "; ") + Text(child, "operation") + " " +
                PathAsWords(Text(child, "target"));
    }
    if (const std::string more = Text(event, "edits-left-out"); !more.empty())
        text += std::string(separator) + "and " + more + " more";
    return text;
}

/// Each leaf by its name.
std::string LeavesText(const lyd_node* event)
{
    std::string text;
    for (const lyd_node* child = lyd_child(event); child != nullptr; child = child->next) {
        const char* value = lyd_get_value(child);
        if (child->schema == nullptr || value == nullptr) continue;
        text.append(text.empty() ? "" : ", ").append(child->schema->name).append(" ").append(value);
    }
    return text;
}

std::string WhatText(const lyd_node* event)
{
    const std::string_view name = event->schema->name;
    if (name == "netconf-config-change") return ChangeText(event);
    if (name == "netconf-session-start") return Party(event);
    if (name == "netconf-session-end") {
        const std::string killer = Text(event, "killed-by");
        return Party(event) + ": " + Text(event, "termination-reason") +
               (killer.empty() ? "" : " by session " + killer);
    }
    return LeavesText(event);
}

std::string ToJsonLine(const std::string& time, const lyd_node* event)
{
    char* text = nullptr;
    if (lyd_print_mem(&text, event, LYD_JSON, LYD_PRINT_SHRINK) != LY_SUCCESS) throw Error("out of memory");
    const cdb::Owned<char> owned(text);
    std::string line = text;
    // The time stands beside the event, as in RFC 8040's notifications.
    return line.insert(1, "\"eventTime\":\"" + time + "\",");
}

}  // namespace

std::string ReplayStart(std::string_view text, std::int64_t nowS)
{
    const auto refuse = [&] {
        return Error(
            "\"" + std::string(text) +
            "\" is no time to begin at; give one such as 2026-11-21T03:20:11Z, or how long ago: 30s, 10m, "
            "2h, 1d");
    };
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    const bool isAge = error == std::errc() && end + 1 == text.data() + text.size() && count >= 0;
    if (!isAge) {
        if (text.find('T') == std::string_view::npos) throw refuse();
        return std::string(text);  // the database checks the rest
    }
    constexpr std::array<std::pair<char, std::int64_t>, 4> kUnits{
        {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}}};
    for (const auto& [unit, seconds] : kUnits) {
        if (*end != unit) continue;
        if (count > nowS / seconds) throw refuse();
        const auto start = static_cast<std::time_t>(nowS - count * seconds);
        std::tm parts{};
        ::gmtime_r(&start, &parts);
        std::array<char, 32> date{};
        std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
        return date.data();
    }
    throw refuse();
}

std::string EventLine(const ly_ctx* yang, const std::string& xml, Format format)
{
    if (format == Format::kXml) return xml;
    const ParsedEvent parsed = Parse(yang, xml);
    if (format == Format::kJson) return ToJsonLine(parsed.time, parsed.event.get());
    const std::string_view name = parsed.event->schema->name;
    if (name == "replayComplete") return {};
    const std::string what = WhatText(parsed.event.get());
    return base::Printable(parsed.time + "  " + std::string(name) + (what.empty() ? "" : "  ") + what);
}

/// Each event in a line until the descriptor can be read. Throws netconf::Stopped if that is before the
/// first.
void PrintEvents(Call& call, const std::string& start, int stop)
{
    // Its own session: the subscription ends with it.
    const auto session = call.connect();
    session->StopAt(stop);
    const netconf::Reply reply = session->Call(netconf::CreateSubscription(start));
    if (!reply.ok)
        throw Error(reply.errors.empty() ? "the database refused without a reason"
                                         : ToText(reply.errors.front()));
    while (const auto message = session->ReceiveMessageUnless(stop)) {
        const std::string line = EventLine(call.yang, *message, call.format);
        if (line.empty()) continue;
        call.out << line << std::endl;
        if (!call.out) throw Error("standard output can't be written");
    }
}

void MonitorEvents(Call& call)
{
    std::string start;
    if (call.arguments.named.contains("since"))
        start = ReplayStart(call.arguments.Named("since"),
                            std::chrono::duration_cast<std::chrono::seconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count());
    const Interrupt interrupt;
    try {
        PrintEvents(call, start, interrupt.Descriptor());
    } catch (const netconf::Stopped&) {
        // The person has waited long enough for the first one.
    }
    // Behind the terminal's "^C".
    if (call.shell.talks) call.out << std::endl;
}

}  // namespace cli
