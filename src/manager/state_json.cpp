#include "manager/state_json.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include <fmt/chrono.h>
#include <nlohmann/json.hpp>

#include "manager/configured.h"
#include "manager/diagnosis.h"
#include "manager/snapshot.h"

namespace manager {
namespace {

using Json = nlohmann::ordered_json;

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
std::string DateAndTime(std::chrono::system_clock::time_point time)
{
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(seconds.count())),
                       (sinceEpoch - seconds).count());
}

/// 64-bit numbers are strings in this encoding.
Json Counter(std::uint64_t value) { return std::to_string(value); }

std::string SourceKind(const SourceStatus& source) { return source.kind.empty() ? "none" : source.kind; }

const char* Status(bool up) { return up ? "up" : "down"; }

/// Seconds; never negative, for the clock may have been set back.
std::uint32_t Age(WallTime now, WallTime then)
{
    const std::int64_t age = std::chrono::floor<std::chrono::seconds>(now - then).count();
    constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(age, 0, kMost));
}

/// Adds "last-THING-time" and "last-THING-age", where there was one.
void PutLast(Json& into, const std::string& thing, WallTime now, const std::optional<WallTime>& then)
{
    if (!then) return;
    into["last-" + thing + "-time"] = DateAndTime(*then);
    into["last-" + thing + "-age"] = Age(now, *then);
}

/// The problems in their order; takes those of one subject after the other.
class ProblemReader {
public:
    ProblemReader(const std::vector<Problem>& problems, Subject subject)
        : m_problems(problems), m_subject(subject)
    {
    }

    /// Adds the reasons of the subject of that name, which is called with ascending names.
    void Put(Json& into, const std::string& name)
    {
        for (; m_next < m_problems.size(); ++m_next) {
            const Problem& problem = m_problems[m_next];
            if (problem.subject > m_subject || (problem.subject == m_subject && problem.name > name)) return;
            if (problem.subject == m_subject && problem.name == name)
                into["problem"].push_back(Name(problem.reason));
        }
    }

private:
    const std::vector<Problem>& m_problems;
    const Subject m_subject;
    std::size_t m_next = 0;
};

Json ManagerJson(const Snapshot& snapshot)
{
    Json manager = Json::object();
    manager["connected"] = snapshot.session != Service::Session::kNone;
    manager["pid"] = snapshot.pid;
    manager["session"] = Name(snapshot.session);
    manager["since"] = DateAndTime(snapshot.since);
    if (snapshot.journal) {
        manager["journal"] = snapshot.journal->path;
        manager["journal-errors"] = Counter(snapshot.journal->errors);
    }
    manager["operations"] = Counter(snapshot.operations);
    manager["operations-refused"] = Counter(snapshot.refused);
    manager["packet-source"] = SourceKind(snapshot.source);
    if (!snapshot.source.reason.empty()) manager["packet-source-reason"] = snapshot.source.reason;
    if (snapshot.addedDirection) manager["added-direction"] = Name(*snapshot.addedDirection);
    for (const std::string& limitation : snapshot.limitations) manager["limitation"].push_back(limitation);
    return manager;
}

Json CollectorJson(const Snapshot::Collector& held, WallTime now)
{
    Json collector = Json::object();
    collector["name"] = held.name;
    collector["address"] = AddressText(held.settings.address);
    collector["port"] = held.settings.port;
    collector["datagram-size"] = held.settings.datagramSize;
    collector["sending"] = held.stream.sending;
    collector["packets-sent"] = Counter(held.stream.datagrams);
    collector["bytes-sent"] = Counter(held.stream.bytes);
    collector["flow-samples-sent"] = Counter(held.stream.flowSamples);
    collector["counter-samples-sent"] = Counter(held.stream.counterSamples);
    collector["packets-lost"] = Counter(held.stream.lostDatagrams);
    collector["samples-lost"] = Counter(held.stream.lostSamples);
    collector["errors"] = Counter(held.stream.errors);
    if (held.stream.lastErrorTime) collector["last-error"] = held.stream.lastErrorText;
    PutLast(collector, "error", now, held.stream.lastErrorTime);
    PutLast(collector, "packet", now, held.stream.lastDatagram);
    return collector;
}

void PutNames(Json& into, const char* member, const std::vector<std::string>& names)
{
    for (const std::string& name : names) into[member].push_back(name);
}

Json InterfaceJson(const Snapshot::Interface& held, const Snapshot& snapshot, const Configured* configured)
{
    const InterfaceStatus& status = held.status;
    Json interface = Json::object();
    interface["name"] = held.name;
    interface["sampling-rate"] = held.settings.rate;
    if (configured != nullptr)
        if (const auto found = configured->interfaces.find(held.name); found != configured->interfaces.end())
            interface["sampling-rate-source"] = found->second.ownRate ? "own-setting" : "speed-class";
    interface["max-header-size"] = held.settings.maxHeaderSize;
    interface["polling-interval"] = held.settings.interval;
    interface["direction"] = Name(held.settings.direction);
    PutNames(interface, "flow-collector", held.Of(Kind::kFlow));
    PutNames(interface, "counter-collector", held.Of(Kind::kCounter));
    if (status.present) {
        interface["kernel-interface"] = status.kernelName;
        interface["ifindex"] = status.ifIndex;
        interface["admin-status"] = Status(status.adminUp);
        interface["oper-status"] = Status(status.operUp);
    }
    interface["packet-source"] = status.sampled ? SourceKind(snapshot.source) : "none";
    if (!status.samplingError.empty()) interface["sampling-error"] = status.samplingError;
    interface["packets-seen"] = Counter(status.packetsSeen);
    interface["packets-sampled"] = Counter(status.samples);
    interface["drops-buffer"] = Counter(status.dropsBuffer);
    interface["drops-no-collector"] = Counter(status.dropsNoCollector);
    PutLast(interface, "sample", snapshot.now, status.lastSample);
    interface["counters-sent"] = Counter(status.countersSent);
    PutLast(interface, "counters", snapshot.now, status.lastCounters);
    return interface;
}

Json ProblemJson(const Problem& problem)
{
    Json json = Json::object();
    json["subject"] = Name(problem.subject);
    json["name"] = problem.name;
    json["reason"] = Name(problem.reason);
    json["text"] = problem.text;
    return json;
}

}  // namespace

std::string StateJson(const Snapshot& snapshot, const Configured* configured)
{
    const std::vector<Problem> problems = Diagnose(snapshot, configured);
    Json sflow = Json::object();
    sflow["manager"] = ManagerJson(snapshot);
    if (snapshot.agentAddress) sflow["agent-address"] = AddressText(*snapshot.agentAddress);
    ProblemReader ofCollectors(problems, Subject::kCollector);
    for (const auto& held : snapshot.collectors) {
        Json collector = CollectorJson(held, snapshot.now);
        ofCollectors.Put(collector, held.name);
        sflow["collector"].push_back(std::move(collector));
    }
    ProblemReader ofInterfaces(problems, Subject::kInterface);
    for (const auto& held : snapshot.interfaces) {
        Json interface = InterfaceJson(held, snapshot, configured);
        ofInterfaces.Put(interface, held.name);
        sflow["interface"].push_back(std::move(interface));
    }
    for (const Problem& problem : problems) sflow["problem"].push_back(ProblemJson(problem));
    Json root = Json::object();
    root["switch-state:state"]["oam"]["sflow"] = std::move(sflow);
    return root.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string StateJson(const Service& service, const StatusSources& sources, std::string_view configuration)
{
    const auto configured = ReadConfigured(configuration);
    return StateJson(TakeSnapshot(service, sources), configured ? &*configured : nullptr);
}

}  // namespace manager
