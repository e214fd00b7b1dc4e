// SPDX-License-Identifier: Apache-2.0
#include "manager/export/poller_schedule.h"

namespace manager {

void Schedule::Enter(Item& item, Tick due)
{
    auto& items = m_waiting[due];
    item.m_due = due;
    item.m_place = items.size();
    item.m_waiting = true;
    items.push_back(&item);
}

void Schedule::Leave(Item& item)
{
    if (!item.m_waiting) return;
    item.m_waiting = false;
    const auto found = m_waiting.find(item.m_due);
    auto& items = found->second;
    items[item.m_place] = items.back();
    items[item.m_place]->m_place = item.m_place;
    items.pop_back();
    if (items.empty()) m_waiting.erase(found);
}

std::optional<Schedule::Tick> Schedule::Next() const
{
    if (m_waiting.empty()) return std::nullopt;
    return m_waiting.begin()->first;
}

void Schedule::Take(Tick now, std::vector<Item*>& due)
{
    while (!m_waiting.empty() && m_waiting.begin()->first <= now) {
        for (Item* item : m_waiting.begin()->second) {
            item->m_waiting = false;
            due.push_back(item);
        }
        m_waiting.erase(m_waiting.begin());
    }
}

Schedule::Tick Schedule::Following(Tick due, Tick interval, Tick now)
{
    return due > now ? due : due + interval * ((now - due) / interval + 1);
}

}  // namespace manager
