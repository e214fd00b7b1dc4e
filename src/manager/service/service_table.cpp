// SPDX-License-Identifier: Apache-2.0
#include "manager/service/service_table.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "cdb/model/name.h"

namespace manager {
namespace {

using Refusal = base::unexpected<std::string>;

Refusal NoCollectorName()
{
    return Refusal("a collector's name is empty or has characters that names do not have");
}
Refusal NoInterfaceName()
{
    return Refusal("an interface's name is empty or has characters that names do not have");
}

Refusal TooMany(const char* what, std::size_t limit)
{
    return Refusal(fmt::format("there are {} {} already, the most that the manager keeps", limit, what));
}

Touched OfInterface(const std::string& name) { return {.interfaces = {name}}; }
Touched OfCollector(const std::string& name) { return {.collectors = {name}}; }

}  // namespace

ServiceTable::Applied ServiceTable::Apply(const Operation& operation)
{
    return std::visit([this](const auto& one) { return On(one); }, operation);
}

const ServiceTable::Collector* ServiceTable::FindCollector(const std::string& name) const
{
    const auto at = m_collectors.find(name);
    return at == m_collectors.end() ? nullptr : &at->second;
}

const ServiceTable::Interface* ServiceTable::FindInterface(const std::string& name) const
{
    const auto at = m_interfaces.find(name);
    return at == m_interfaces.end() ? nullptr : &at->second;
}

const std::set<std::string_view>& ServiceTable::UsersOf(const std::string& collector) const
{
    static const std::set<std::string_view> kNone;
    const auto at = m_users.find(collector);
    return at == m_users.end() ? kNone : at->second;
}

ServiceTable::Applied ServiceTable::On(const SetAgentAddress& operation)
{
    m_agentMark = m_session;
    if (m_agentAddress == operation.address) return Touched{};
    m_agentAddress = operation.address;
    return Touched{.agentAddress = true};
}

ServiceTable::Applied ServiceTable::On(const AddCollector& operation)
{
    if (!cdb::IsCollectorName(operation.name)) return NoCollectorName();
    auto at = m_collectors.find(operation.name);
    const bool isNew = at == m_collectors.end();
    if (isNew) {
        if (m_collectors.size() >= m_limits.collectors) return TooMany("collectors", m_limits.collectors);
        at = m_collectors.emplace(operation.name, Collector{}).first;
    }
    Collector& collector = at->second;
    collector.mark = m_session;
    const auto before = std::exchange(collector.settings, operation.settings);
    if (!isNew && before == operation.settings) return Touched{};
    return OfCollector(operation.name);
}

ServiceTable::Applied ServiceTable::On(const DeleteCollector& operation)
{
    if (m_collectors.erase(operation.name) == 0) return Touched{};
    return OfCollector(operation.name);
}

ServiceTable::Applied ServiceTable::On(const UpdateInterface& operation)
{
    if (!cdb::IsName(operation.interface)) return NoInterfaceName();
    auto at = m_interfaces.find(operation.interface);
    const bool isNew = at == m_interfaces.end();
    if (isNew && m_interfaces.size() >= m_limits.interfaces)
        return TooMany("interfaces", m_limits.interfaces);
    // All that can be refused comes before anything is changed.
    const std::pair<Kind, const std::string&> named[] = {{Kind::kFlow, operation.flowCollector},
                                                         {Kind::kCounter, operation.counterCollector}};
    std::size_t more = 0;
    for (const auto& [kind, collector] : named) {
        if (collector.empty()) continue;
        if (!cdb::IsCollectorName(collector)) return NoCollectorName();
        if (isNew || !at->second.Of(kind).contains(collector)) ++more;
    }
    if (more > m_limits.attachments - m_attachments) return TooMany("attachments", m_limits.attachments);

    if (isNew) at = m_interfaces.emplace(operation.interface, Interface{}).first;
    at->second.mark = m_session;
    const auto before = std::exchange(at->second.settings, operation.settings);
    bool changed = isNew || before != operation.settings;
    for (const auto& [kind, collector] : named)
        if (!collector.empty() && AttachOne(*at, kind, collector)) changed = true;
    return changed ? OfInterface(operation.interface) : Touched{};
}

ServiceTable::Applied ServiceTable::On(const Attach& operation)
{
    if (!cdb::IsCollectorName(operation.collector)) return NoCollectorName();
    const auto at = m_interfaces.find(operation.interface);
    if (at == m_interfaces.end())
        return Refusal(
            fmt::format("interface {} is not known, so nothing can be attached to it", operation.interface));
    if (m_attachments >= m_limits.attachments && !at->second.Of(operation.kind).contains(operation.collector))
        return TooMany("attachments", m_limits.attachments);
    return AttachOne(*at, operation.kind, operation.collector) ? OfInterface(operation.interface) : Touched{};
}

ServiceTable::Applied ServiceTable::On(const Detach& operation)
{
    const auto at = m_interfaces.find(operation.interface);
    if (at == m_interfaces.end() || !DetachOne(*at, operation.kind, operation.collector)) return Touched{};
    return OfInterface(operation.interface);
}

ServiceTable::Applied ServiceTable::On(const UnsetInterface& operation)
{
    const auto at = m_interfaces.find(operation.interface);
    if (at == m_interfaces.end()) return Touched{};
    Remove(at);
    return OfInterface(operation.interface);
}

Touched ServiceTable::Sweep()
{
    Touched touched;
    for (auto at = m_interfaces.begin(); at != m_interfaces.end();) {
        const auto next = std::next(at);
        const bool goes = at->second.mark != m_session;
        if (goes || SweepAttachments(*at)) touched.interfaces.push_back(at->first);
        if (goes) Remove(at);
        at = next;
    }
    for (auto at = m_collectors.begin(); at != m_collectors.end();) {
        const auto next = std::next(at);
        if (at->second.mark != m_session) {
            touched.collectors.push_back(at->first);
            m_collectors.erase(at);
        }
        at = next;
    }
    if (m_agentAddress && m_agentMark != m_session) {
        m_agentAddress.reset();
        touched.agentAddress = true;
    }
    return touched;
}

bool ServiceTable::SweepAttachments(Interfaces::value_type& interface)
{
    bool changed = false;
    for (const Kind kind : {Kind::kFlow, Kind::kCounter}) {
        const Attachments& attachments = interface.second.Of(kind);
        for (auto at = attachments.begin(); at != attachments.end();) {
            const auto next = std::next(at);
            if (at->second != m_session) changed = DetachOne(interface, kind, std::string(at->first));
            at = next;
        }
    }
    return changed;
}

bool ServiceTable::AttachOne(Interfaces::value_type& interface, Kind kind, const std::string& collector)
{
    const bool isNew = interface.second.Of(kind).insert_or_assign(collector, m_session).second;
    if (!isNew) return false;
    ++m_attachments;
    m_users[collector].insert(interface.first);
    return true;
}

bool ServiceTable::DetachOne(Interfaces::value_type& interface, Kind kind, const std::string& collector)
{
    if (interface.second.Of(kind).erase(collector) == 0) return false;
    --m_attachments;
    const bool left = std::ranges::any_of(interface.second.attachments,
                                          [&](const auto& names) { return names.contains(collector); });
    if (!left) RemoveUser(collector, interface.first);
    return true;
}

void ServiceTable::Remove(Interfaces::iterator interface)
{
    for (const Attachments& attachments : interface->second.attachments) {
        m_attachments -= attachments.size();
        for (const auto& [collector, mark] : attachments) RemoveUser(collector, interface->first);
    }
    m_interfaces.erase(interface);
}

void ServiceTable::RemoveUser(const std::string& collector, const std::string& interface)
{
    const auto users = m_users.find(collector);
    if (users == m_users.end()) return;
    users->second.erase(interface);
    if (users->second.empty()) m_users.erase(users);
}

}  // namespace manager
