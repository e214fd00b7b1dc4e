#include "manager/state_answer.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "cdb/error.h"
#include "ipc/cdb.pb.h"
#include "manager/state.h"
#include "manager/state_writer.h"

namespace manager {
namespace {

/// How many entries one part has at most, and how many attachments, as far as single entries allow.
constexpr std::size_t kEntries = 100;
constexpr std::size_t kAttachments = 1000;

template <typename Map>
void AddNames(const Map& map, const std::string& after, std::set<std::string>& names)
{
    auto at = map.upper_bound(after);
    for (std::size_t count = 0; at != map.end() && count < kEntries; ++at, ++count) names.insert(at->first);
}

/// The first names behind `after`.
void AddNames(const std::set<std::string>& wanted, const std::string& after, std::set<std::string>& names)
{
    auto at = wanted.upper_bound(after);
    for (std::size_t count = 0; at != wanted.end() && count < kEntries; ++at, ++count) names.insert(*at);
}

/// The problems of one name out of those of many, with ascending reasons as the model has them.
std::vector<Problem> TakeOf(const std::string& name, std::vector<Problem>::const_iterator& at,
                            std::vector<Problem>::const_iterator end)
{
    std::vector<Problem> own;
    while (at != end && at->name < name) ++at;
    for (; at != end && at->name == name; ++at) own.push_back(*at);
    std::sort(own.begin(), own.end(), [](const Problem& a, const Problem& b) {
        return std::string_view(Name(a.reason)) < Name(b.reason);
    });
    return own;
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
    m_configured.interfaces.clear();
    if (!m_reader) return;
    const auto& held = m_sources.service.CurrentState().Interfaces();
    // The configured collectors of an interface tell something where it has none in effect.
    const auto needsCollectors = [&held](const std::string& name) {
        const auto at = held.find(name);
        return at == held.end() || at->second.Of(Kind::kFlow).empty();
    };
    try {
        for (const std::string& name : names)
            if (auto interface = m_reader->Interface(name, needsCollectors(name)))
                m_configured.interfaces.emplace_hint(m_configured.interfaces.end(), name,
                                                     std::move(*interface));
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

bool StateAnswer::Next(ipc::cdb::StateReply& part)
{
    StateWriter writer(part, kStatePath);
    // A small question has one part.
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
        case Stage::kDone:
            break;
        }
    }
    if (!m_warning.empty()) part.add_warnings(std::exchange(m_warning, {}));
    return m_stage != Stage::kDone;
}

void StateAnswer::Manager(StateWriter& writer)
{
    if (!m_wanted.manager && !m_wanted.agentAddress && !m_wanted.problems.agent) return;
    const Snapshot snapshot = TakeSnapshot(m_sources.service, m_sources.status, {}, {});
    if (m_wanted.manager) writer.Manager(snapshot, *m_wanted.manager);
    if (m_wanted.agentAddress && snapshot.agentAddress) writer.AgentAddress(*snapshot.agentAddress);
    if (!m_wanted.problems.agent) return;
    for (const Problem& problem : Diagnose({true, {}, {}}, snapshot, nullptr)) writer.Problem(problem);
}

void StateAnswer::AddConfigured(std::vector<std::string> (ConfiguredReader::*read)(const std::string&,
                                                                                   std::size_t) const,
                                std::set<std::string>& names)
{
    if (!m_reader) return;
    try {
        for (std::string& name : ((*m_reader).*read)(m_last, kEntries)) names.insert(std::move(name));
    } catch (const cdb::FatalError& error) {
        GiveUpConfiguration(error.what());
    }
}

std::vector<std::string> StateAnswer::Take(const std::set<std::string>& names, Stage next)
{
    const auto& interfaces = m_sources.service.CurrentState().Interfaces();
    std::vector<std::string> taken;
    std::size_t attachments = 0;
    for (const std::string& name : names) {
        if (m_stage == Stage::kInterfaces)
            if (const auto at = interfaces.find(name); at != interfaces.end())
                for (const auto& attached : at->second.attachments) attachments += attached.size();
        if (taken.size() == kEntries || (attachments > kAttachments && !taken.empty())) break;
        taken.push_back(name);
    }
    m_work += taken.size() + attachments / (kAttachments / kEntries);
    if (!taken.empty()) m_last = taken.back();
    if (taken.size() == names.size() && names.size() < kEntries) {
        m_stage = next;
        m_last.clear();
    }
    return taken;
}

void StateAnswer::Collectors(StateWriter& writer)
{
    const WantedEntries& wanted = m_wanted.collectors;
    const WantedNames& problematic = m_wanted.problems.collectors;
    if (m_last.empty() && m_sources.refreshCollectors && !(wanted.None() && problematic.None()))
        m_sources.refreshCollectors();
    const State& state = m_sources.service.CurrentState();
    std::set<std::string> next;
    AddNames(wanted.named, m_last, next);
    AddNames(problematic.names, m_last, next);
    if (wanted.every || problematic.all) AddNames(state.Collectors(), m_last, next);
    if (problematic.all) {
        AddNames(state.AttachedCollectors(), m_last, next);
        AddConfigured(&ConfiguredReader::Collectors, next);
    }
    const auto names = Take(next, Stage::kInterfaces);
    ReadCollectors(names);
    const Snapshot snapshot = TakeSnapshot(m_sources.service, m_sources.status, names, {});
    const auto problems = Diagnose({false, names, {}}, snapshot, Known());
    auto at = problems.begin();
    for (const std::string& name : names) {
        const auto own = TakeOf(name, at, problems.end());
        const auto* held = snapshot.FindCollector(name);
        if (const auto* leaves = wanted.Of(name); held != nullptr && leaves != nullptr)
            writer.Collector(*held, snapshot.now, own, *leaves);
        if (!problematic.Has(name)) continue;
        for (const Problem& problem : own) writer.Problem(problem);
    }
}

std::vector<std::string> StateAnswer::NamedBy(const std::vector<std::string>& interfaces) const
{
    std::set<std::string> collectors;
    const auto& held = m_sources.service.CurrentState().Interfaces();
    for (const std::string& name : interfaces) {
        if (const auto at = held.find(name); at != held.end())
            for (const auto& attached : at->second.attachments)
                for (const auto& [collector, mark] : attached) collectors.insert(collector);
        if (const auto at = m_configured.interfaces.find(name); at != m_configured.interfaces.end())
            for (const auto& names : at->second.collectors) collectors.insert(names.begin(), names.end());
    }
    return {collectors.begin(), collectors.end()};
}

void StateAnswer::Interfaces(StateWriter& writer)
{
    const WantedEntries& wanted = m_wanted.interfaces;
    const WantedNames& problematic = m_wanted.problems.interfaces;
    std::set<std::string> next;
    AddNames(wanted.named, m_last, next);
    AddNames(problematic.names, m_last, next);
    if (wanted.every || problematic.all)
        AddNames(m_sources.service.CurrentState().Interfaces(), m_last, next);
    if (problematic.all) AddConfigured(&ConfiguredReader::Interfaces, next);
    const auto names = Take(next, Stage::kDone);
    ReadInterfaces(names);
    std::vector<Problem> problems;
    Snapshot snapshot;
    if (m_diagnoses) {
        const auto collectors = NamedBy(names);
        ReadCollectors(collectors);
        snapshot = TakeSnapshot(m_sources.service, m_sources.status, collectors, names);
        problems = Diagnose({false, {}, names}, snapshot, Known());
    } else {
        snapshot = TakeSnapshot(m_sources.service, m_sources.status, {}, names);
    }
    auto at = problems.cbegin();
    for (const std::string& name : names) {
        const auto own = TakeOf(name, at, problems.end());
        const auto* held = snapshot.FindInterface(name);
        if (const auto* leaves = wanted.Of(name); held != nullptr && leaves != nullptr)
            writer.Interface(*held, snapshot, Known(), own, *leaves);
        if (!problematic.Has(name)) continue;
        for (const Problem& problem : own) writer.Problem(problem);
    }
}

}  // namespace manager
