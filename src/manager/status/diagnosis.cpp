// SPDX-License-Identifier: Apache-2.0
#include "manager/status/diagnosis.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <string_view>

#include "manager/status/configured.h"

namespace manager {
namespace {

/// An interface without a packet for this time has no traffic.
constexpr std::chrono::seconds kQuiet{10};

class Diagnosis {
public:
    Diagnosis(const View& view, const Configured* configured) : m_view(view), m_configured(configured) {}

    void Agent();
    void Collector(const std::string& name, const View::Collector* inEffect);
    void Interface(const std::string& name, const View::Interface* inEffect);

    std::vector<Problem> Take();

private:
    void InEffect(const View::Collector& collector);
    void NotInEffect(const std::string& name, const Configured::Interface& wanted);
    void InEffect(const View::Interface& interface);
    /// If no packet can be sampled there, adds why and returns true.
    bool CannotSample(const View::Interface& interface);
    void Samples(const View::Interface& interface);
    void Counters(const View::Interface& interface);
    bool WithoutFlow(const View::Interface& interface);
    /// Where the interface has less than is configured, says so.
    void Attachments(const View::Interface& interface);

    [[nodiscard]] bool IsDisabled(const std::string& collector) const;
    [[nodiscard]] bool AllDisabled(const std::vector<std::string>& collectors) const;
    /// The collectors of that kind that the configuration names; empty if it does not know the interface.
    [[nodiscard]] const std::vector<std::string>& Wanted(const std::string& interface, Kind kind) const;
    void Add(Subject subject, const std::string& name, Reason reason, std::string text)
    {
        m_problems.push_back({subject, name, reason, std::move(text)});
    }
    void OfInterface(const std::string& name, Reason reason, std::string text)
    {
        Add(Subject::kInterface, name, reason, std::move(text));
    }

    const View& m_view;
    const Configured* m_configured;
    std::vector<Problem> m_problems;
};

bool Diagnosis::IsDisabled(const std::string& collector) const
{
    if (m_configured == nullptr) return false;
    const auto found = m_configured->collectors.find(collector);
    return found != m_configured->collectors.end() && !found->second.enabled;
}

bool Diagnosis::AllDisabled(const std::vector<std::string>& collectors) const
{
    return !collectors.empty() && std::all_of(collectors.begin(), collectors.end(),
                                              [this](const std::string& name) { return IsDisabled(name); });
}

const std::vector<std::string>& Diagnosis::Wanted(const std::string& interface, Kind kind) const
{
    static const std::vector<std::string> kNone;
    if (m_configured == nullptr) return kNone;
    const auto found = m_configured->interfaces.find(interface);
    return found == m_configured->interfaces.end() ? kNone : found->second.Of(kind);
}

std::vector<Problem> Diagnosis::Take()
{
    std::ranges::sort(m_problems, {},
                      [](const Problem& problem) { return std::string_view(Name(problem.reason)); });
    return std::move(m_problems);
}

void Diagnosis::Agent()
{
    if (m_view.Manager().session == Service::Session::kNone)
        Add(Subject::kAgent, "agent", Reason::kNoSession, text::NoSession());
    // The configuration daemon sends 0.0.0.0 if it knows no address.
    if (m_view.Table().AgentAddress().value_or(0) != 0 || m_view.Table().AllInterfaces().empty()) return;
    Add(Subject::kAgent, "agent", Reason::kNoAgentAddress, text::NoAgentAddress());
}

void Diagnosis::Collector(const std::string& name, const View::Collector* inEffect)
{
    const bool wanted = m_configured != nullptr && m_configured->collectors.contains(name);
    if (IsDisabled(name))
        Add(Subject::kCollector, name, Reason::kCollectorDisabled, text::Disabled({name}));
    else if (inEffect != nullptr)
        InEffect(*inEffect);
    else if (wanted)
        Add(Subject::kCollector, name, Reason::kNotLoaded, text::NotLoaded(m_view.Manager().session));
    else if (!m_view.Table().UsersOf(name).empty())
        Add(Subject::kCollector, name, Reason::kCollectorUnknown, text::Unknown(name));
    else if (m_configured != nullptr && m_view.Own().AllCollectors().contains(name))
        Add(Subject::kCollector, name, Reason::kCollectorUnknown, text::OnlySettings(name));
}

void Diagnosis::InEffect(const View::Collector& collector)
{
    const std::string& name = collector.name;
    const StreamStatus& stream = collector.stream;
    if (stream.lastErrorTime && !stream.sending) {
        const Reason reason = text::ReasonOf(stream);
        return Add(Subject::kCollector, name, reason, text::OfError(reason, collector));
    }
    if (m_view.Table().UsersOf(name).empty())
        return Add(Subject::kCollector, name, Reason::kNoInterface,
                   text::NoInterface(name, m_view.Manager().hasOperated));
    if (stream.datagrams == 0) Add(Subject::kCollector, name, Reason::kNothingSent, text::NothingSent());
}

void Diagnosis::Interface(const std::string& name, const View::Interface* inEffect)
{
    if (inEffect != nullptr) return InEffect(*inEffect);
    if (m_configured == nullptr) return;
    const auto wanted = m_configured->interfaces.find(name);
    if (wanted != m_configured->interfaces.end()) NotInEffect(name, wanted->second);
}

void Diagnosis::NotInEffect(const std::string& name, const Configured::Interface& wanted)
{
    std::vector<std::string> all = wanted.Of(Kind::kFlow);
    all.insert(all.end(), wanted.Of(Kind::kCounter).begin(), wanted.Of(Kind::kCounter).end());
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    if (all.empty()) return OfInterface(name, Reason::kNoCollector, text::NoCollector(name));
    if (AllDisabled(all)) return OfInterface(name, Reason::kCollectorDisabled, text::Disabled(all));
    OfInterface(name, Reason::kNotLoaded, text::NotLoaded(m_view.Manager().session));
}

void Diagnosis::InEffect(const View::Interface& interface)
{
    if (!interface.status.present && !interface.status.samplingError.empty())
        return OfInterface(interface.name, Reason::kSourceError, interface.status.samplingError);
    if (!interface.status.present)
        return OfInterface(interface.name, Reason::kInterfaceMissing, text::Missing(interface.name));
    Samples(interface);
    Counters(interface);
    Attachments(interface);
}

void Diagnosis::Attachments(const View::Interface& interface)
{
    const auto isOfLoading = [](const Problem& problem) { return problem.reason == Reason::kNotLoaded; };
    if (std::ranges::any_of(m_problems, isOfLoading)) return;  // it says the same
    std::set<std::string> lost;
    for (const Kind kind : {Kind::kFlow, Kind::kCounter})
        for (const std::string& name : Wanted(interface.name, kind))
            if (!IsDisabled(name) && !interface.held.Of(kind).contains(name)) lost.insert(name);
    if (lost.empty()) return;
    OfInterface(interface.name, Reason::kNotLoaded, text::NotAttached({lost.begin(), lost.end()}));
}

bool Diagnosis::WithoutFlow(const View::Interface& interface)
{
    const std::string& name = interface.name;
    std::vector<std::string> attached;
    for (const auto& [collector, mark] : interface.held.Of(Kind::kFlow)) {
        if (m_view.Table().FindCollector(collector) != nullptr) return false;
        attached.push_back(collector);
    }
    const auto& wanted = attached.empty() ? Wanted(name, Kind::kFlow) : attached;
    if (AllDisabled(wanted))
        OfInterface(name, Reason::kCollectorDisabled, text::Disabled(wanted));
    else if (!attached.empty())
        OfInterface(name, Reason::kCollectorUnknown, text::Unknown(attached.front()));
    else if (!wanted.empty())
        OfInterface(name, Reason::kNotLoaded, text::NotLoaded(m_view.Manager().session));
    else if (interface.held.Of(Kind::kCounter).empty())
        OfInterface(name, Reason::kNoCollector, text::NoCollector(name));
    else
        OfInterface(name, Reason::kNoFlowCollector, text::NoFlowCollector(name));
    return true;
}

bool Diagnosis::CannotSample(const View::Interface& interface)
{
    const SourceStatus& source = m_view.Manager().source;
    const InterfaceStatus& status = interface.status;
    if (interface.held.settings.rate == 0)
        OfInterface(interface.name, Reason::kSamplingOff, text::SamplingOff(interface.name));
    else if (!source.permission)
        OfInterface(interface.name, Reason::kNoPermission, text::NoPermission(source.reason));
    else if (source.kind.empty() || source.kind == "none")
        OfInterface(interface.name, Reason::kNoKernelSupport, text::NoKernelSupport(source.reason));
    else if (!status.sampled && !status.samplingError.empty())
        OfInterface(interface.name, Reason::kSourceError, text::SourceError(status));
    else if (!status.adminUp || !status.operUp)
        OfInterface(interface.name, Reason::kInterfaceDown, text::Down(status));
    else if (status.pending)
        OfInterface(interface.name, Reason::kNoSampleYet, text::Pending(status));
    else
        return false;
    return true;
}

void Diagnosis::Samples(const View::Interface& interface)
{
    const InterfaceStatus& status = interface.status;
    if (WithoutFlow(interface) || CannotSample(interface)) return;
    const auto noTraffic = [&] {
        OfInterface(interface.name, Reason::kNoTraffic,
                    text::NoTraffic(interface, m_view.Own().AddedDirection()));
    };
    if (status.packetsSeen == 0)
        noTraffic();
    else if (status.samples == 0 && status.dropsBuffer != 0)
        OfInterface(interface.name, Reason::kBufferFull, text::BufferFull(status));
    else if (status.quiet >= kQuiet)
        noTraffic();
    else if (status.samples == 0)
        OfInterface(interface.name, Reason::kNoSampleYet, text::NoSampleYet(interface));
}

void Diagnosis::Counters(const View::Interface& interface)
{
    if (interface.held.settings.interval != 0) return;
    if (interface.held.Of(Kind::kCounter).empty()) return;
    OfInterface(interface.name, Reason::kPollingOff, text::PollingOff(interface.name));
}

}  // namespace

std::vector<Problem> DiagnoseAgent(const View& view)
{
    Diagnosis diagnosis(view, nullptr);
    diagnosis.Agent();
    return diagnosis.Take();
}

std::vector<Problem> DiagnoseCollector(const std::string& name, const View::Collector* inEffect,
                                       const View& view, const Configured* configured)
{
    Diagnosis diagnosis(view, configured);
    diagnosis.Collector(name, inEffect);
    return diagnosis.Take();
}

std::vector<Problem> DiagnoseInterface(const std::string& name, const View::Interface* inEffect,
                                       const View& view, const Configured* configured)
{
    Diagnosis diagnosis(view, configured);
    diagnosis.Interface(name, inEffect);
    return diagnosis.Take();
}

}  // namespace manager
