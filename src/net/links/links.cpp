// SPDX-License-Identifier: Apache-2.0
#include "net/links/links.h"

#include <algorithm>
#include <utility>

namespace net {
namespace {

void Add(std::vector<std::uint32_t>& ascending, std::uint32_t index)
{
    const auto place = std::lower_bound(ascending.begin(), ascending.end(), index);
    if (place == ascending.end() || *place != index) ascending.insert(place, index);
}

template <typename Indexes>
void Drop(Indexes& indexes, const std::string& name, std::uint32_t index)
{
    const auto found = indexes.find(name);
    if (found == indexes.end()) return;
    std::erase(found->second, index);
    if (found->second.empty()) indexes.erase(found);
}

}  // namespace

const Link* Links::Find(std::uint32_t index) const
{
    const auto found = m_links.find(index);
    return found == m_links.end() ? nullptr : &found->second;
}

const Link* Links::Find(std::string_view name) const
{
    if (name.empty()) return nullptr;
    const std::string key(name);
    for (const Indexes* indexes : {&m_names, &m_altNames, &m_aliases}) {
        const auto found = indexes->find(key);
        if (found != indexes->end()) return Find(found->second.front());
    }
    return nullptr;
}

void Links::Put(Link link)
{
    if (link.index == 0) return;
    const auto [place, isNew] = m_links.try_emplace(link.index);
    if (!isNew) {
        if (place->second == link) return;
        Leave(place->second);
    }
    place->second = std::move(link);
    Enter(place->second);
    // A copy: an observer may put or remove links.
    const Link told = place->second;
    for (LinkObserver* observer : m_observers) observer->LinkChanged(told);
}

void Links::Remove(std::uint32_t index)
{
    const auto found = m_links.find(index);
    if (found == m_links.end()) return;
    const Link gone = std::move(found->second);
    m_links.erase(found);
    Leave(gone);
    for (LinkObserver* observer : m_observers) observer->LinkRemoved(gone);
}

void Links::Enter(const Link& link)
{
    if (!link.name.empty()) Add(m_names[link.name], link.index);
    for (const std::string& name : link.altNames) Add(m_altNames[name], link.index);
    if (!link.alias.empty()) Add(m_aliases[link.alias], link.index);
}

void Links::Leave(const Link& link)
{
    Drop(m_names, link.name, link.index);
    for (const std::string& name : link.altNames) Drop(m_altNames, name, link.index);
    Drop(m_aliases, link.alias, link.index);
}

}  // namespace net
