// SPDX-License-Identifier: Apache-2.0
#include "manager/status/diagnosis.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include <fmt/format.h>

#include "manager/status/configured.h"
#include "manager/status/diagnosis_text.h"
#include "manager/status/snapshot.h"

namespace manager {
namespace {

/// An interface without a packet for this time has no traffic.
constexpr std::chrono::seconds kQuiet{10};

class Diagnosis {
public:
    Diagnosis(const Snapshot& snapshot, const Configured* configured)
        : m_snapshot(snapshot), m_configured(configured)
    {
    }

    void Agent();
    void Collector(const std::string& name);
    void Interface(const std::string& name);

    std::vector<Problem> Take() { return std::move(m_problems); }

private:
    void InEffect(const std::string& name, const Snapshot::Collector& collector);
    void NotInEffect(const std::string& name, const Configured::Interface& wanted);
    void InEffect(const Snapshot::Interface& interface);
    /// If no packet can be sampled there, adds why and returns true.
    bool CannotSample(const Snapshot::Interface& interface);
    void Samples(const Snapshot::Interface& interface);
    void Counters(const Snapshot::Interface& interface);
    bool WithoutFlow(const Snapshot::Interface& interface);

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

    const Snapshot& m_snapshot;
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

void Diagnosis::Agent()
{
    // The configuration daemon sends 0.0.0.0 if it knows no address.
    if (m_snapshot.agentAddress.value_or(0) != 0 || !m_snapshot.anyInterface) return;
    Add(Subject::kAgent, "agent", Reason::kNoAgentAddress, text::NoAgentAddress());
}

void Diagnosis::Collector(const std::string& name)
{
    const auto* held = m_snapshot.FindCollector(name);
    const bool wanted = m_configured != nullptr && m_configured->collectors.contains(name);
    if (IsDisabled(name))
        Add(Subject::kCollector, name, Reason::kCollectorDisabled, text::Disabled({name}));
    else if (held != nullptr)
        InEffect(name, *held);
    else if (wanted)
        Add(Subject::kCollector, name, Reason::kNotLoaded, text::NotLoaded(m_snapshot.session));
    else if (m_snapshot.attached.contains(name))
        Add(Subject::kCollector, name, Reason::kCollectorUnknown, text::Unknown(name));
}

void Diagnosis::InEffect(const std::string& name, const Snapshot::Collector& collector)
{
    const StreamStatus& stream = collector.stream;
    if (stream.lastErrorTime && !stream.sending) {
        const Reason reason = text::ReasonOf(stream.lastError);
        return Add(Subject::kCollector, name, reason, text::OfError(reason, collector));
    }
    if (!m_snapshot.attached.contains(name))
        return Add(Subject::kCollector, name, Reason::kNoInterface, text::NoInterface(name));
    if (stream.datagrams == 0) Add(Subject::kCollector, name, Reason::kNothingSent, text::NothingSent());
}

void Diagnosis::Interface(const std::string& name)
{
    if (const auto* held = m_snapshot.FindInterface(name)) return InEffect(*held);
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
    OfInterface(name, Reason::kNotLoaded, text::NotLoaded(m_snapshot.session));
}

void Diagnosis::InEffect(const Snapshot::Interface& interface)
{
    if (!interface.status.present && !interface.status.samplingError.empty())
        return OfInterface(interface.name, Reason::kSourceError, interface.status.samplingError);
    if (!interface.status.present)
        return OfInterface(interface.name, Reason::kInterfaceMissing, text::Missing(interface.name));
    Samples(interface);
    Counters(interface);
}

bool Diagnosis::WithoutFlow(const Snapshot::Interface& interface)
{
    const std::string& name = interface.name;
    const auto& attached = interface.Of(Kind::kFlow);
    const auto known = [this](const std::string& each) { return m_snapshot.FindCollector(each) != nullptr; };
    if (std::any_of(attached.begin(), attached.end(), known)) return false;
    const auto& wanted = attached.empty() ? Wanted(name, Kind::kFlow) : attached;
    if (AllDisabled(wanted))
        OfInterface(name, Reason::kCollectorDisabled, text::Disabled(wanted));
    else if (!attached.empty())
        OfInterface(name, Reason::kCollectorUnknown, text::Unknown(attached.front()));
    else if (!wanted.empty())
        OfInterface(name, Reason::kNotLoaded, text::NotLoaded(m_snapshot.session));
    else if (interface.Of(Kind::kCounter).empty())
        OfInterface(name, Reason::kNoCollector, text::NoCollector(name));
    else
        OfInterface(name, Reason::kNoFlowCollector, text::NoFlowCollector(name));
    return true;
}

bool Diagnosis::CannotSample(const Snapshot::Interface& interface)
{
    const SourceStatus& source = m_snapshot.source;
    const InterfaceStatus& status = interface.status;
    if (interface.settings.rate == 0)
        OfInterface(interface.name, Reason::kSamplingOff, text::SamplingOff(interface.name));
    else if (!source.permission)
        OfInterface(interface.name, Reason::kNoPermission, text::NoPermission(source.reason));
    else if (source.kind.empty() || source.kind == "none")
        OfInterface(interface.name, Reason::kNoKernelSupport, text::NoKernelSupport(source.reason));
    else if (!status.sampled && !status.samplingError.empty())
        OfInterface(interface.name, Reason::kSourceError, text::SourceError(status));
    else if (!status.adminUp || !status.operUp)
        OfInterface(interface.name, Reason::kInterfaceDown, text::Down(status));
    else
        return false;
    return true;
}

void Diagnosis::Samples(const Snapshot::Interface& interface)
{
    const InterfaceStatus& status = interface.status;
    if (WithoutFlow(interface) || CannotSample(interface)) return;
    const auto noTraffic = [&] {
        OfInterface(interface.name, Reason::kNoTraffic,
                    text::NoTraffic(interface, m_snapshot.addedDirection));
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

void Diagnosis::Counters(const Snapshot::Interface& interface)
{
    if (interface.settings.interval != 0) return;
    if (interface.Of(Kind::kCounter).empty()) return;
    OfInterface(interface.name, Reason::kPollingOff, text::PollingOff(interface.name));
}

}  // namespace

const char* Name(Reason reason)
{
    static constexpr std::array kNames = {
        "interface-missing", "interface-down",  "no-traffic",        "no-sample-yet",
        "buffer-full",       "no-collector",    "no-flow-collector", "collector-disabled",
        "collector-unknown", "no-permission",   "no-kernel-support", "source-error",
        "sampling-off",      "polling-off",     "not-loaded",        "no-route",
        "unreachable",       "refused",         "send-error",        "nothing-sent",
        "no-interface",      "no-agent-address"};
    static_assert(kNames.size() == static_cast<std::size_t>(Reason::kNoAgentAddress) + 1);
    return kNames.at(static_cast<std::size_t>(reason));
}

const char* Name(Subject subject)
{
    static constexpr std::array kNames = {"agent", "collector", "interface"};
    return kNames.at(static_cast<std::size_t>(subject));
}

std::vector<Problem> Diagnose(const Subjects& subjects, const Snapshot& snapshot,
                              const Configured* configured)
{
    Diagnosis diagnosis(snapshot, configured);
    if (subjects.agent) diagnosis.Agent();
    for (const std::string& name : subjects.collectors) diagnosis.Collector(name);
    for (const std::string& name : subjects.interfaces) diagnosis.Interface(name);
    return diagnosis.Take();
}

}  // namespace manager
