// SPDX-License-Identifier: Apache-2.0
#include "manager/status/state_answer.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <utility>

#include "cdb/model/error.h"
#include "ipc/cdb.pb.h"
#include "manager/status/state_writer.h"
#include "manager/status/statistics.h"
#include "net/links/links.h"

namespace manager {
namespace {

/// How many entries one part has at most, and how many attachments, as far as single entries allow.
constexpr std::size_t kEntries = 100;
constexpr std::size_t kAttachments = 1000;

const std::string& NameOf(const std::string& name) { return name; }
template <typename Value>
const std::string& NameOf(const std::pair<const std::string, Value>& element)
{
    return element.first;
}

/// Look-up in a map of names that come in ascending order. To find the element behind the last one costs no
/// search. The map must outlive it and not change.
template <typename Map>
class InOrder {
public:
    explicit InOrder(const Map& map) : m_map(map), m_next(map.begin()) {}

    /// Null if there is none of that name.
    const typename Map::value_type* Find(const std::string& name)
    {
        if (m_next == m_map.end() || m_next->first != name) m_next = m_map.lower_bound(name);
        if (m_next == m_map.end() || m_next->first != name) return nullptr;
        return &*m_next++;
    }

private:
    const Map& m_map;
    typename Map::const_iterator m_next;
};

/// Joins names in ascending order.
void Join(std::vector<std::string> more, std::vector<std::string>& names)
{
    if (names.empty()) return names.swap(more);
    std::vector<std::string> joined;
    joined.reserve(names.size() + more.size());
    std::set_union(std::make_move_iterator(names.begin()), std::make_move_iterator(names.end()),
                   std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()),
                   std::back_inserter(joined));
    names.swap(joined);
}

/// Adds the first names behind `after` of a set or a map.
template <typename Container>
void AddNames(const Container& container, const std::string& after, std::vector<std::string>& names)
{
    std::vector<std::string> more;
    auto at = container.upper_bound(after);
    for (; at != container.end() && more.size() < kEntries; ++at) more.push_back(NameOf(*at));
    Join(std::move(more), names);
}

}  // namespace

StateAnswer::StateAnswer(Sources sources, WantedState wanted)
    : m_sources(std::move(sources)),
      m_wanted(std::move(wanted)),
      m_diagnoses(m_wanted.interfaces.Has("problem") || !m_wanted.problems.interfaces.None())
{
}

bool StateAnswer::NeedsConfiguration() const
{
    return m_diagnoses || m_wanted.interfaces.Has("sampling-rate-source") ||
           m_wanted.collectors.Has("problem") || !m_wanted.problems.collectors.None();
}

void StateAnswer::OpenConfiguration()
{
    if (!NeedsConfiguration()) return;
    if (m_sources.store == nullptr) return GiveUpConfiguration(m_sources.storeProblem);
    try {
        m_reader.emplace(*m_sources.store);
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

void StateAnswer::GiveUpConfiguration(const std::string& problem)
{
    m_reader.reset();
    m_isIncomplete = true;
    m_warning =
        "the sFlow manager can't read the configuration, so disabled collectors and what is not in "
        "effect are not told: " +
        problem;
}

void StateAnswer::ReadCollectors(const std::vector<std::string>& names)
{
    if (!m_reader) return;
    try {
        for (const std::string& name : names) {
            if (m_configured.collectors.contains(name)) continue;
            if (const auto collector = m_reader->Collector(name))
                m_configured.collectors.emplace(name, *collector);
        }
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

void StateAnswer::ReadInterfaces(const std::vector<std::string>& names)
{
    if (!m_reader) return;
    try {
        // If all problems are wanted, ReadNextInterfaces has read the configured ones already.
        for (const std::string& name : names) {
            if (m_wanted.problems.interfaces.all) break;
            if (const auto interface = m_reader->Interface(name))
                m_configured.interfaces.emplace_hint(m_configured.interfaces.end(), name, *interface);
        }
        ReadAttached();
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

void StateAnswer::ReadAttached()
{
    // What a session loads is what is configured; operations after that may leave something out.
    const bool mayBeShort = View(m_sources.status).Manager().hasOperated;
    InOrder held(m_sources.status.table.AllInterfaces());
    for (auto& [name, interface] : m_configured.interfaces) {
        const auto* inEffect = held.Find(name);
        if (mayBeShort || inEffect == nullptr || inEffect->second.Of(Kind::kFlow).empty())
            m_reader->ReadCollectorsOf(name, interface);
    }
}

void StateAnswer::ReadNextCollectors(std::vector<std::string>& names)
{
    if (!m_reader) return;
    try {
        auto next = m_reader->Collectors(m_last, kEntries);
        AddNames(next, m_last, names);
        m_configured.collectors.merge(next);
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

void StateAnswer::ReadNextInterfaces(std::vector<std::string>& names)
{
    if (!m_reader) return;
    try {
        m_configured.interfaces = m_reader->Interfaces(m_last, kEntries);
        AddNames(m_configured.interfaces, m_last, names);
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

bool StateAnswer::Next(ipc::cdb::StateReply& part)
{
    StateWriter writer(part, kStatePath);
    // A small answer has one part.
    for (m_work = 0; m_stage != Stage::kDone && m_work < kEntries;) {
        switch (m_stage) {
        case Stage::kManager:
            OpenConfiguration();
            Manager(writer);
            m_stage = Stage::kCollectors;
            break;
        case Stage::kCollectors:
            Collectors(writer);
            break;
        case Stage::kInterfaces:
            Interfaces(writer);
            break;
        case Stage::kKernelInterfaces:
            KernelInterfaces(writer);
            break;
        case Stage::kDrops:
            Drops(writer);
            break;
        case Stage::kDone:
            break;
        }
    }
    if (!m_warning.empty()) part.add_warnings(std::exchange(m_warning, {}));
    return m_stage != Stage::kDone;
}

void StateAnswer::Tell(const Problem& problem, StateWriter& writer) const
{
    if (m_sources.problem)
        m_sources.problem(problem);
    else
        writer.Problem(problem);
}

void StateAnswer::Manager(StateWriter& writer)
{
    if (!m_wanted.manager && !m_wanted.agentAddress && !m_wanted.subAgent && !m_wanted.problems.agent) return;
    const View view(m_sources.status);
    const auto address = view.Table().AgentAddress();
    if (m_wanted.manager) writer.Manager(view.Manager(), view.Own(), *m_wanted.manager);
    if (m_wanted.agentAddress && address) writer.AgentAddress(*address);
    if (m_wanted.subAgent) writer.SubAgent(view.Own().SubAgent());
    if (!m_wanted.problems.agent) return;
    for (const Problem& problem : DiagnoseAgent(view)) Tell(problem, writer);
}

std::vector<std::string> StateAnswer::Take(std::vector<std::string> names, Stage next)
{
    InOrder interfaces(m_sources.status.table.AllInterfaces());
    std::size_t taken = 0, attachments = 0;
    for (const std::string& name : names) {
        if (m_stage == Stage::kInterfaces)
            if (const auto* held = interfaces.Find(name))
                for (const auto& attached : held->second.attachments) attachments += attached.size();
        if (taken == kEntries || (attachments > kAttachments && taken != 0)) break;
        ++taken;
    }
    m_work += taken + attachments / (kAttachments / kEntries);
    if (taken == names.size() && taken < kEntries) {
        m_stage = next;
        m_last.clear();
    } else {
        m_last = names[taken - 1];
    }
    names.resize(taken);
    return names;
}

void StateAnswer::Collectors(StateWriter& writer)
{
    const WantedEntries& wanted = m_wanted.collectors;
    const WantedNames& problematic = m_wanted.problems.collectors;
    if (m_last.empty() && m_sources.refreshCollectors && !(wanted.None() && problematic.None()))
        m_sources.refreshCollectors();
    const ServiceTable& table = m_sources.status.table;
    std::vector<std::string> next;
    AddNames(wanted.named, m_last, next);
    AddNames(problematic.names, m_last, next);
    if (wanted.every || problematic.all) AddNames(table.AllCollectors(), m_last, next);
    if (problematic.all) {
        AddNames(table.AllUsers(), m_last, next);
        AddNames(m_sources.status.own.AllCollectors(), m_last, next);
        ReadNextCollectors(next);
    }
    const auto names = Take(std::move(next), Stage::kInterfaces);
    ReadCollectors(names);
    const View view(m_sources.status);
    InOrder held(table.AllCollectors());
    for (const std::string& name : names) {
        const auto* entry = held.Find(name);
        std::optional<View::Collector> shown;
        if (entry != nullptr) shown.emplace(view.Of(*entry));
        const auto problems = DiagnoseCollector(name, shown ? &*shown : nullptr, view, Known());
        if (shown && m_sources.statistics != nullptr) m_sources.statistics->Reduce(name, shown->stream);
        if (const auto* leaves = wanted.Of(name); shown && leaves != nullptr)
            writer.Collector(*shown, view.Now(), problems, *leaves);
        if (!problematic.Has(name)) continue;
        for (const Problem& problem : problems) Tell(problem, writer);
    }
}

std::vector<std::string> StateAnswer::NamedBy(const std::vector<std::string>& interfaces) const
{
    std::set<std::string> collectors;
    InOrder held(m_sources.status.table.AllInterfaces());
    for (const std::string& name : interfaces)
        if (const auto* interface = held.Find(name))
            for (const auto& attached : interface->second.attachments)
                for (const auto& [collector, mark] : attached) collectors.insert(collector);
    for (const auto& [name, interface] : m_configured.interfaces)
        for (const auto& names : interface.collectors) collectors.insert(names.begin(), names.end());
    return {collectors.begin(), collectors.end()};
}

void StateAnswer::Interfaces(StateWriter& writer)
{
    const WantedEntries& wanted = m_wanted.interfaces;
    const WantedNames& problematic = m_wanted.problems.interfaces;
    std::vector<std::string> next;
    AddNames(wanted.named, m_last, next);
    AddNames(problematic.names, m_last, next);
    if (wanted.every || problematic.all) AddNames(m_sources.status.table.AllInterfaces(), m_last, next);
    m_configured.interfaces.clear();
    if (problematic.all) ReadNextInterfaces(next);
    const auto names = Take(std::move(next), Stage::kKernelInterfaces);
    auto& configured = m_configured.interfaces;
    configured.erase(names.empty() ? configured.begin() : configured.upper_bound(names.back()),
                     configured.end());
    ReadInterfaces(names);
    if (m_diagnoses) ReadCollectors(NamedBy(names));
    const View view(m_sources.status);
    InOrder held(m_sources.status.table.AllInterfaces());
    for (const std::string& name : names) {
        const auto* entry = held.Find(name);
        std::optional<View::Interface> shown;
        if (entry != nullptr) shown.emplace(view.Of(*entry));
        std::vector<Problem> problems;
        if (m_diagnoses) problems = DiagnoseInterface(name, shown ? &*shown : nullptr, view, Known());
        if (shown && m_sources.statistics != nullptr) m_sources.statistics->Reduce(name, shown->status);
        if (const auto* leaves = wanted.Of(name); shown && leaves != nullptr)
            writer.Interface(*shown, view, Known(), problems, *leaves);
        if (!problematic.Has(name)) continue;
        for (const Problem& problem : problems) Tell(problem, writer);
    }
}

void StateAnswer::KernelInterfaces(StateWriter& writer)
{
    const WantedEntries& wanted = m_wanted.kernelInterfaces;
    const net::Links* const links = m_sources.status.links;
    if (links == nullptr || wanted.None()) {
        m_stage = Stage::kDrops;
        return;
    }
    if (!m_kernelNames) {
        m_kernelNames.emplace();
        if (wanted.every)
            for (const auto& [index, link] : links->All()) m_kernelNames->push_back(link.name);
        else
            for (const auto& [name, leaves] : wanted.named) m_kernelNames->push_back(name);
        std::ranges::sort(*m_kernelNames, std::greater<>());
    }
    for (; !m_kernelNames->empty() && m_work < kEntries; m_kernelNames->pop_back(), ++m_work) {
        const std::string& name = m_kernelNames->back();
        const net::Link* link = links->Find(name);  // which finds other names, too
        if (link != nullptr && link->name == name) writer.KernelInterface(*link, *wanted.Of(name));
    }
    if (m_kernelNames->empty()) m_stage = Stage::kDrops;
}

void StateAnswer::Drops(StateWriter& writer)
{
    if (!m_wanted.drops) {
        m_stage = Stage::kDone;
        return;
    }
    const View view(m_sources.status);
    if (!m_drops) {
        m_drops = view.Drops();
        if (m_sources.statistics != nullptr) m_sources.statistics->Reduce(*m_drops);
        std::ranges::reverse(*m_drops);  // the next one is the last
    }
    for (; !m_drops->empty() && m_work < kEntries; m_drops->pop_back()) {
        writer.Drops(m_drops->back(), view.Now());
        m_work += 1 + m_drops->back().reasons.size();
    }
    if (m_drops->empty()) m_stage = Stage::kDone;
}

}  // namespace manager
