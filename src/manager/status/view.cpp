// SPDX-License-Identifier: Apache-2.0
#include "manager/status/view.h"

#include <utility>

#include "manager/service/journal.h"

namespace manager {
namespace {

void Move(std::optional<WallTime>& time, WallTime::duration by)
{
    if (time) *time += by;
}

}  // namespace

ManagerStatus StatusOf(const Service& service)
{
    ManagerStatus status;
    status.session = service.CurrentSession();
    status.since = service.Since();
    status.hasOperated = service.HasOperated();
    status.operations = service.Operations();
    status.refused = service.Refused();
    if (const Journal* journal = service.CurrentJournal(); journal != nullptr)
        status.journal = {journal->Path(), journal->Errors()};
    return status;
}

View::View(StatusSources sources) : m_sources(std::move(sources))
{
    if (m_sources.now) m_now = m_sources.now();
    if (m_sources.wall) m_shift = m_sources.wall() - m_now;
    if (m_sources.manager) m_manager = m_sources.manager();
    m_now += m_shift;
    m_manager.since += m_shift;
    Move(m_manager.countsSince, m_shift);
}

View::Collector View::Of(const ServiceTable::Collectors::value_type& entry) const
{
    Collector collector{entry.first, entry.second.settings, m_sources.own.Of(entry.first), {}};
    const StreamStatus* stream = m_sources.collector ? m_sources.collector(entry.first) : nullptr;
    if (stream != nullptr) collector.stream = *stream;
    Move(collector.stream.lastErrorTime, m_shift);
    Move(collector.stream.lastDatagram, m_shift);
    return collector;
}

View::Interface View::Of(const ServiceTable::Interfaces::value_type& entry) const
{
    Interface interface {
        entry.first, entry.second, {}
    };
    if (m_sources.interface) interface.status = m_sources.interface(entry.first);
    Move(interface.status.lastSample, m_shift);
    Move(interface.status.lastCounters, m_shift);
    return interface;
}

std::vector<DropsAtInterface> View::Drops() const
{
    if (!m_sources.drops) return {};
    std::vector<DropsAtInterface> all = m_sources.drops();
    for (DropsAtInterface& at : all)
        for (DropsByReason& reason : at.reasons) reason.last += m_shift;
    return all;
}

}  // namespace manager
