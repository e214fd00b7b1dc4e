// SPDX-License-Identifier: Apache-2.0
#include "agent/events/event.h"

#include <time.h>

#include <array>
#include <chrono>
#include <cstdio>

#include "netconf/names.h"
#include "netconf/xml.h"

namespace agent {
namespace {

/// What an element's own fields take, beside its text.
constexpr std::size_t kElementBytes = sizeof(EventElement);

void Write(const EventElement& element, std::string_view nsAround, std::string& out)
{
    out.append("<").append(element.name);
    if (element.ns != nsAround) out.append(" xmlns=\"").append(element.ns).append("\"");
    for (const auto& [prefix, ns] : element.prefixes)
        out.append(" xmlns:").append(prefix).append("=\"").append(ns).append("\"");
    out.append(">");
    netconf::AppendEscaped(out, element.text);
    for (const EventElement& child : element.children) Write(child, element.ns, out);
    out.append("</").append(element.name).append(">");
}

std::size_t BytesOf(const EventElement& element)
{
    std::size_t bytes = kElementBytes + element.text.size();
    for (const auto& [prefix, ns] : element.prefixes) bytes += prefix.size() + ns.size() + 2 * sizeof(ns);
    if (element.about) {
        bytes += sizeof(ConfigPlace);
        for (const std::string& key : element.about->keys) bytes += sizeof(key) + key.size();
    }
    for (const EventElement& child : element.children) bytes += BytesOf(child);
    return bytes;
}

bool HasPlaces(const EventElement& element)
{
    if (element.about) return true;
    for (const EventElement& child : element.children)
        if (HasPlaces(child)) return true;
    return false;
}

}  // namespace

std::string EventTime(std::int64_t timeUs)
{
    using std::chrono::microseconds;
    const auto seconds =
        static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(microseconds(timeUs)).count());
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s.%06ldZ", date.data(),
                  static_cast<long>(timeUs - static_cast<std::int64_t>(seconds) * 1'000'000));
    return text.data();
}

std::string NotificationText(std::int64_t timeUs, const EventElement& content)
{
    std::string text = "<notification xmlns=\"";
    text.append(netconf::kNotificationNamespace)
        .append("\"><eventTime>")
        .append(EventTime(timeUs))
        .append("</eventTime>");
    Write(content, netconf::kNotificationNamespace, text);
    return text.append("</notification>");
}

EventPtr MakeEvent(std::int64_t timeUs, const lysc_node* kind, EventElement content)
{
    const auto event = std::make_shared<Event>();
    event->timeUs = timeUs;
    event->kind = kind;
    event->text = NotificationText(timeUs, content);
    event->hasPlaces = HasPlaces(content);
    event->bytes = sizeof(Event) + event->text.size() + BytesOf(content);
    event->content = std::move(content);
    return event;
}

EventElement VisiblePart(const EventElement& content,
                         const std::function<bool(const ConfigPlace& place)>& visible)
{
    EventElement part{content.ns, content.name, content.text, {}, content.prefixes, content.about};
    for (const EventElement& child : content.children)
        if (!child.about || visible(*child.about)) part.children.push_back(VisiblePart(child, visible));
    return part;
}

}  // namespace agent
