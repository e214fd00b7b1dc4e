// SPDX-License-Identifier: Apache-2.0
#include "manager/settings/own_settings.h"

#include <utility>

namespace manager {

const OwnCollector& OwnSettings::Of(const std::string& collector) const
{
    static const OwnCollector kDefaults;
    const auto at = m_collectors.find(collector);
    return at == m_collectors.end() ? kDefaults : at->second;
}

void OwnSettings::Update(const OwnUpdate& update)
{
    OwnChange change;
    if (update.general) SetGeneral(*update.general, change);
    auto collectors = update.collectors;
    if (update.whole)
        for (const auto& [name, collector] : m_collectors) collectors.try_emplace(name, std::nullopt);
    for (const auto& [name, collector] : collectors) SetCollector(name, collector, change);
    if (change.None()) return;
    for (const Observer& observer : m_observers) observer(change);
}

void OwnSettings::SetGeneral(const OwnGeneral& general, OwnChange& change)
{
    const auto direction = AddedDirection();
    const OwnGeneral before = std::exchange(m_general, general);
    change.subAgent = before.subAgent != general.subAgent;
    change.direction = direction != AddedDirection();
    change.discards = before.discardLimit != general.discardLimit ||
                      before.discardsEverywhere != general.discardsEverywhere;
}

void OwnSettings::SetCollector(const std::string& name, const std::optional<OwnCollector>& now,
                               OwnChange& change)
{
    const OwnCollector before = Of(name);
    if (now)
        m_collectors.insert_or_assign(name, *now);
    else
        m_collectors.erase(name);
    const OwnCollector& after = Of(name);
    if (before == after) return;
    change.collectors.push_back(name);
    if (before.discards != after.discards) change.discards = true;
}

}  // namespace manager
