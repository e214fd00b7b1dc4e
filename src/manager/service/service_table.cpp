// SPDX-License-Identifier: Apache-2.0
#include "manager/service/state.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "manager/service/observer.h"

namespace manager {
namespace {

/// Whether the YANG model's type for names allows it: the state could not show another one.
bool IsName(std::string_view name)
{
    constexpr std::string_view kExcluded = "\"'{}[];|<>&";
    return !name.empty() && std::all_of(name.begin(), name.end(), [&](char c) {
        return c > ' ' && c < '\x7f' && kExcluded.find(c) == std::string_view::npos;
    });
}

bool IsCollectorName(std::string_view name)
{
    return IsName(name) && name.find('%') == std::string_view::npos;
}

std::string NoCollectorName()
{
    return "a collector's name is empty or has characters that names do not have";
}
std::string NoInterfaceName()
{
    return "an interface's name is empty or has characters that names do not have";
}

std::string TooMany(const char* what, std::size_t limit)
{
    return fmt::format("there are {} {} already, the most that the manager keeps", limit, what);
}

}  // namespace

template <typename Function, typename... Arguments>
void State::Tell(Function function, const Arguments&... arguments) const
{
    for (Observer* observer : m_observers) (observer->*function)(arguments...);
}

std::string State::Apply(const Operation& operation)
{
    return std::visit([this](const auto& one) { return On(one); }, operation);
}

std::string State::On(const SetAgentAddress& operation)
{
    m_agentMark = m_session;
    if (m_agentAddress == operation.address) return {};
    m_agentAddress = operation.address;
    Tell(&Observer::AgentAddressChanged, m_agentAddress);
    return {};
}

std::string State::On(const AddCollector& operation)
{
    if (!IsCollectorName(operation.name)) return NoCollectorName();
    auto at = m_collectors.find(operation.name);
    const bool isNew = at == m_collectors.end();
    if (isNew) {
        if (m_collectors.size() >= m_limits.collectors) return TooMany("collectors", m_limits.collectors);
        at = m_collectors.emplace(operation.name, Collector{}).first;
    }
    Collector& collector = at->second;
    collector.mark = m_session;
    const auto before = std::exchange(collector.settings, operation.settings);
    if (isNew || before != operation.settings)
        Tell(&Observer::CollectorChanged, operation.name, operation.settings);
    return {};
}

std::string State::On(const DeleteCollector& operation)
{
    if (m_collectors.erase(operation.name) > 0) Tell(&Observer::CollectorRemoved, operation.name);
    return {};
}

std::string State::On(const UpdateInterface& operation)
{
    if (!IsName(operation.interface)) return NoInterfaceName();
    const auto at = m_interfaces.find(operation.interface);
    const bool isNew = at == m_interfaces.end();
    if (isNew && m_interfaces.size() >= m_limits.interfaces)
        return TooMany("interfaces", m_limits.interfaces);
    // All that can be refused comes before anything is changed.
    const Attach named[] = {{Kind::kFlow, operation.interface, operation.flowCollector},
                            {Kind::kCounter, operation.interface, operation.counterCollector}};
    std::size_t more = 0;
    for (const Attach& attach : named) {
        if (attach.collector.empty()) continue;
        if (!IsCollectorName(attach.collector)) return NoCollectorName();
        if (isNew || !at->second.Of(attach.kind).contains(attach.collector)) ++more;
    }
    if (more > m_limits.attachments - m_attachments) return TooMany("attachments", m_limits.attachments);

    Interface& interface = isNew ? m_interfaces[operation.interface] : at->second;
    interface.mark = m_session;
    const auto before = std::exchange(interface.settings, operation.settings);
    if (isNew || before != operation.settings)
        Tell(&Observer::InterfaceChanged, operation.interface, operation.settings);
    for (const Attach& attach : named)
        if (!attach.collector.empty()) AttachOne(interface, attach);
    return {};
}

std::string State::On(const Attach& operation)
{
    if (!IsCollectorName(operation.collector)) return NoCollectorName();
    const auto at = m_interfaces.find(operation.interface);
    if (at == m_interfaces.end())
        return fmt::format("interface {} is not known, so nothing can be attached to it",
                           operation.interface);
    if (m_attachments >= m_limits.attachments && !at->second.Of(operation.kind).contains(operation.collector))
        return TooMany("attachments", m_limits.attachments);
    AttachOne(at->second, operation);
    return {};
}

std::string State::On(const Detach& operation)
{
    const auto at = m_interfaces.find(operation.interface);
    if (at == m_interfaces.end() || at->second.Of(operation.kind).erase(operation.collector) == 0) return {};
    DetachOne(operation.collector);
    Tell(&Observer::Detached, operation.interface, operation.kind, operation.collector);
    return {};
}

std::string State::On(const UnsetInterface& operation)
{
    if (const auto at = m_interfaces.find(operation.interface); at != m_interfaces.end()) Remove(at);
    return {};
}

void State::Sweep()
{
    for (auto at = m_interfaces.begin(); at != m_interfaces.end();) {
        const auto next = std::next(at);
        if (at->second.mark != m_session)
            Remove(at);
        else
            SweepAttachments(at->first, at->second);
        at = next;
    }
    // Collectors go after the attachments to them.
    for (auto at = m_collectors.begin(); at != m_collectors.end();) {
        if (at->second.mark == m_session) {
            ++at;
            continue;
        }
        const auto gone = m_collectors.extract(at++);
        Tell(&Observer::CollectorRemoved, gone.key());
    }
    if (m_agentAddress && m_agentMark != m_session) {
        m_agentAddress.reset();
        Tell(&Observer::AgentAddressChanged, m_agentAddress);
    }
}

void State::SweepAttachments(const std::string& name, Interface& interface)
{
    for (const Kind kind : {Kind::kFlow, Kind::kCounter}) {
        Attachments& attachments = interface.Of(kind);
        for (auto at = attachments.begin(); at != attachments.end();) {
            if (at->second == m_session) {
                ++at;
                continue;
            }
            const auto gone = attachments.extract(at++);
            DetachOne(gone.key());
            Tell(&Observer::Detached, name, kind, gone.key());
        }
    }
}

void State::AttachOne(Interface& interface, const Attach& attach)
{
    const bool isNew = interface.Of(attach.kind).insert_or_assign(attach.collector, m_session).second;
    if (!isNew) return;
    ++m_attachments;
    ++m_attached[attach.collector];
    Tell(&Observer::Attached, attach.interface, attach.kind, attach.collector);
}

void State::DetachOne(const std::string& collector)
{
    --m_attachments;
    const auto at = m_attached.find(collector);
    if (at != m_attached.end() && --at->second == 0) m_attached.erase(at);
}

void State::Remove(std::map<std::string, Interface>::iterator interface)
{
    for (const Attachments& attachments : interface->second.attachments)
        for (const auto& [collector, mark] : attachments) DetachOne(collector);
    const auto gone = m_interfaces.extract(interface);
    Tell(&Observer::InterfaceRemoved, gone.key());
}

}  // namespace manager
