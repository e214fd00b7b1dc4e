#include "manager/state_json.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

#include <fmt/chrono.h>

#include "manager/configured.h"
#include "manager/diagnosis.h"
#include "manager/json_writer.h"
#include "manager/snapshot.h"

namespace manager {
namespace {

const char* Name(Service::Session session)
{
    switch (session) {
    case Service::Session::kLoading:
        return "loading";
    case Service::Session::kLoaded:
        return "loaded";
    case Service::Session::kNone:
        break;
    }
    return "none";
}

const char* Name(Direction direction)
{
    switch (direction) {
    case Direction::kEgress:
        return "egress";
    case Direction::kBoth:
        return "both";
    case Direction::kIngress:
        break;
    }
    return "ingress";
}

/// yang:date-and-time, in UTC, to the millisecond.
std::string DateAndTime(WallTime time)
{
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(seconds.count())),
                       (sinceEpoch - seconds).count());
}

std::string_view SourceKind(const SourceStatus& source)
{
    return source.kind.empty() ? std::string_view("none") : source.kind;
}

const char* Status(bool up) { return up ? "up" : "down"; }

/// Seconds; never negative, for the clock may have been set back.
std::uint32_t Age(WallTime now, WallTime then)
{
    const std::int64_t age = std::chrono::floor<std::chrono::seconds>(now - then).count();
    constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(age, 0, kMost));
}

class StateWriter {
public:
    StateWriter(const Snapshot& snapshot, const Configured* configured)
        : m_snapshot(snapshot),
          m_configured(configured),
          m_problems(Diagnose(snapshot, configured)),
          m_json(ExpectedBytes(snapshot, m_problems.size()))
    {
    }

    std::string Write();

private:
    /// Generous, so that the text is never moved.
    static std::size_t ExpectedBytes(const Snapshot& snapshot, std::size_t problems)
    {
        return 4096 + (snapshot.interfaces.size() + snapshot.collectors.size()) * 1024 + problems * 512;
    }

    void Manager();
    void Collector(const Snapshot::Collector& held);
    void Interface(const Snapshot::Interface& held);
    void Kernel(const InterfaceStatus& status);
    void Counts(const InterfaceStatus& status);
    void Problems();

    /// The reasons of the subject; it is asked for one subject after the other by ascending name.
    void Reasons(Subject subject, const std::string& name);
    /// "last-THING-time" and "last-THING-age", where there was one.
    void Last(std::string_view timeKey, std::string_view ageKey, const std::optional<WallTime>& then);

    void Text(std::string_view key, std::string_view value)
    {
        m_json.Key(key);
        m_json.Text(value);
    }
    void Number(std::string_view key, std::int64_t value)
    {
        m_json.Key(key);
        m_json.Number(value);
    }
    void Counter(std::string_view key, std::uint64_t value)
    {
        m_json.Key(key);
        m_json.Counter(value);
    }
    void Boolean(std::string_view key, bool value)
    {
        m_json.Key(key);
        m_json.Boolean(value);
    }
    /// Nothing where there are none.
    void Texts(std::string_view key, const std::vector<std::string>& values)
    {
        if (values.empty()) return;
        m_json.Key(key);
        m_json.BeginArray();
        for (const std::string& value : values) m_json.Text(value);
        m_json.EndArray();
    }

    const Snapshot& m_snapshot;
    const Configured* m_configured;
    const std::vector<Problem> m_problems;
    std::size_t m_nextProblem = 0;
    JsonWriter m_json;
};

void StateWriter::Manager()
{
    m_json.Key("manager");
    m_json.BeginObject();
    Boolean("connected", m_snapshot.session != Service::Session::kNone);
    Number("pid", m_snapshot.pid);
    Text("session", Name(m_snapshot.session));
    Text("since", DateAndTime(m_snapshot.since));
    if (m_snapshot.journal) {
        Text("journal", m_snapshot.journal->path);
        Counter("journal-errors", m_snapshot.journal->errors);
    }
    Counter("operations", m_snapshot.operations);
    Counter("operations-refused", m_snapshot.refused);
    Text("packet-source", SourceKind(m_snapshot.source));
    if (!m_snapshot.source.reason.empty()) Text("packet-source-reason", m_snapshot.source.reason);
    if (m_snapshot.addedDirection) Text("added-direction", Name(*m_snapshot.addedDirection));
    Texts("limitation", m_snapshot.limitations);
    m_json.EndObject();
}

void StateWriter::Reasons(Subject subject, const std::string& name)
{
    const auto at = [&] {
        return std::tie(m_problems[m_nextProblem].subject, m_problems[m_nextProblem].name);
    };
    const auto wanted = std::tie(subject, name);
    while (m_nextProblem < m_problems.size() && at() < wanted) ++m_nextProblem;
    if (m_nextProblem == m_problems.size() || at() != wanted) return;
    m_json.Key("problem");
    m_json.BeginArray();
    for (; m_nextProblem < m_problems.size() && at() == wanted; ++m_nextProblem)
        m_json.Text(Name(m_problems[m_nextProblem].reason));
    m_json.EndArray();
}

void StateWriter::Last(std::string_view timeKey, std::string_view ageKey, const std::optional<WallTime>& then)
{
    if (!then) return;
    Text(timeKey, DateAndTime(*then));
    Number(ageKey, Age(m_snapshot.now, *then));
}

void StateWriter::Collector(const Snapshot::Collector& held)
{
    m_json.BeginObject();
    Text("name", held.name);
    Text("address", AddressText(held.settings.address));
    Number("port", held.settings.port);
    Number("datagram-size", held.settings.datagramSize);
    Boolean("sending", held.stream.sending);
    Counter("packets-sent", held.stream.datagrams);
    Counter("bytes-sent", held.stream.bytes);
    Counter("flow-samples-sent", held.stream.flowSamples);
    Counter("counter-samples-sent", held.stream.counterSamples);
    Counter("packets-lost", held.stream.lostDatagrams);
    Counter("samples-lost", held.stream.lostSamples);
    Counter("errors", held.stream.errors);
    if (held.stream.lastErrorTime) Text("last-error", held.stream.lastErrorText);
    Last("last-error-time", "last-error-age", held.stream.lastErrorTime);
    Last("last-packet-time", "last-packet-age", held.stream.lastDatagram);
    Reasons(Subject::kCollector, held.name);
    m_json.EndObject();
}

void StateWriter::Interface(const Snapshot::Interface& held)
{
    m_json.BeginObject();
    Text("name", held.name);
    Number("sampling-rate", held.settings.rate);
    if (m_configured != nullptr)
        if (const auto found = m_configured->interfaces.find(held.name);
            found != m_configured->interfaces.end())
            Text("sampling-rate-source", found->second.ownRate ? "own-setting" : "speed-class");
    Number("max-header-size", held.settings.maxHeaderSize);
    Number("polling-interval", held.settings.interval);
    Text("direction", Name(held.settings.direction));
    Texts("flow-collector", held.Of(Kind::kFlow));
    Texts("counter-collector", held.Of(Kind::kCounter));
    Kernel(held.status);
    Counts(held.status);
    Reasons(Subject::kInterface, held.name);
    m_json.EndObject();
}

void StateWriter::Kernel(const InterfaceStatus& status)
{
    if (status.present) {
        Text("kernel-interface", status.kernelName);
        Number("ifindex", status.ifIndex);
        Text("admin-status", Status(status.adminUp));
        Text("oper-status", Status(status.operUp));
    }
    Text("packet-source", status.sampled ? SourceKind(m_snapshot.source) : "none");
    if (!status.samplingError.empty()) Text("sampling-error", status.samplingError);
}

void StateWriter::Counts(const InterfaceStatus& status)
{
    Counter("packets-seen", status.packetsSeen);
    Counter("packets-sampled", status.samples);
    Counter("drops-buffer", status.dropsBuffer);
    Counter("drops-no-collector", status.dropsNoCollector);
    Last("last-sample-time", "last-sample-age", status.lastSample);
    Counter("counters-sent", status.countersSent);
    Last("last-counters-time", "last-counters-age", status.lastCounters);
}

void StateWriter::Problems()
{
    if (m_problems.empty()) return;
    m_json.Key("problem");
    m_json.BeginArray();
    for (const Problem& problem : m_problems) {
        m_json.BeginObject();
        Text("subject", Name(problem.subject));
        Text("name", problem.name);
        Text("reason", Name(problem.reason));
        Text("text", problem.text);
        m_json.EndObject();
    }
    m_json.EndArray();
}

std::string StateWriter::Write()
{
    constexpr const char* kContainers[] = {"switch-state:state", "oam", "sflow"};
    m_json.BeginObject();
    for (const char* container : kContainers) {
        m_json.Key(container);
        m_json.BeginObject();
    }
    Manager();
    if (m_snapshot.agentAddress) Text("agent-address", AddressText(*m_snapshot.agentAddress));
    const auto list = [this](const char* key, const auto& entries, auto write) {
        if (entries.empty()) return;
        m_json.Key(key);
        m_json.BeginArray();
        for (const auto& entry : entries) (this->*write)(entry);
        m_json.EndArray();
    };
    list("collector", m_snapshot.collectors, &StateWriter::Collector);
    list("interface", m_snapshot.interfaces, &StateWriter::Interface);
    Problems();
    for (std::size_t i = 0; i < std::size(kContainers); ++i) m_json.EndObject();
    m_json.EndObject();
    return m_json.Take();
}

}  // namespace

std::string StateJson(const Snapshot& snapshot, const Configured* configured)
{
    return StateWriter(snapshot, configured).Write();
}

std::string StateJson(const Service& service, const StatusSources& sources, std::string_view configuration)
{
    const auto configured = ReadConfigured(configuration);
    return StateJson(TakeSnapshot(service, sources), configured ? &*configured : nullptr);
}

}  // namespace manager
