#include "manager/state_writer.h"

#include <algorithm>
#include <chrono>
#include <concepts>
#include <limits>
#include <optional>

#include <fmt/format.h>

#include "ipc/cdb.pb.h"
#include "manager/configured.h"

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
    const auto moment = std::chrono::floor<std::chrono::milliseconds>(time);
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(moment - day);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                       clock.subseconds().count());
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

}  // namespace

/// The leaves of one node, those that are wanted.
class NodeWriter {
public:
    NodeWriter(StateWriter& writer, ipc::cdb::StateNode& node, const WantedLeaves& wanted)
        : m_writer(writer), m_node(node), m_wanted(wanted)
    {
    }

    void Key(std::string_view value) { m_node.add_keys(value.data(), value.size()); }
    void Text(std::string_view name, std::string_view value)
    {
        if (m_wanted.Has(name)) Put(name, value);
    }
    void Number(std::string_view name, std::unsigned_integral auto value)
    {
        if (!m_wanted.Has(name)) return;
        const fmt::format_int text(value);
        Put(name, {text.data(), text.size()});
    }
    void Boolean(std::string_view name, bool value) { Text(name, value ? "true" : "false"); }
    void Texts(std::string_view name, const std::vector<std::string>& values)
    {
        for (const std::string& value : values) Text(name, value);
    }
    /// "last-THING-time" and "last-THING-age", where there was one.
    void Last(std::string_view timeName, std::string_view ageName, WallTime now,
              const std::optional<WallTime>& then)
    {
        if (!then) return;
        if (m_wanted.Has(timeName)) Put(timeName, DateAndTime(*then));
        Number(ageName, Age(now, *then));
    }
    void Reasons(const std::vector<Problem>& problems)
    {
        for (const Problem& problem : problems) Text("problem", Name(problem.reason));
    }

private:
    void Put(std::string_view name, std::string_view value)
    {
        m_node.add_leaves(m_writer.Number(name));
        m_node.add_values(value.data(), value.size());
    }

    StateWriter& m_writer;
    ipc::cdb::StateNode& m_node;
    const WantedLeaves& m_wanted;
};

namespace {

void Kernel(const InterfaceStatus& status, const SourceStatus& source, NodeWriter& node)
{
    if (status.present) {
        node.Text("kernel-interface", status.kernelName);
        node.Number("ifindex", status.ifIndex);
        node.Text("admin-status", Status(status.adminUp));
        node.Text("oper-status", Status(status.operUp));
    }
    node.Text("packet-source", status.sampled ? SourceKind(source) : "none");
    if (!status.samplingError.empty()) node.Text("sampling-error", status.samplingError);
}

void Counts(const InterfaceStatus& status, WallTime now, NodeWriter& node)
{
    node.Number("packets-seen", status.packetsSeen);
    node.Number("packets-sampled", status.samples);
    node.Number("drops-buffer", status.dropsBuffer);
    node.Number("drops-no-collector", status.dropsNoCollector);
    node.Last("last-sample-time", "last-sample-age", now, status.lastSample);
    node.Number("counters-sent", status.countersSent);
    node.Last("last-counters-time", "last-counters-age", now, status.lastCounters);
}

const WantedLeaves kAll{true, {}};

}  // namespace

StateWriter::StateWriter(ipc::cdb::StateReply& part, const std::string& path)
    : m_part(part), m_root(*part.add_trees()->mutable_node())
{
    part.mutable_trees(part.trees_size() - 1)->set_path(path);
}

std::uint32_t StateWriter::Number(std::string_view name)
{
    const auto [at, isNew] = m_names.try_emplace(name, static_cast<std::uint32_t>(m_names.size()));
    if (isNew) m_part.add_names(name.data(), name.size());
    return at->second;
}

ipc::cdb::StateNode& StateWriter::Add(std::string_view name)
{
    ipc::cdb::StateNode& node = *m_root.add_children();
    node.set_name(Number(name));
    return node;
}

void StateWriter::Manager(const Snapshot& snapshot, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add("manager"), wanted);
    node.Boolean("connected", snapshot.session != Service::Session::kNone);
    node.Number("pid", static_cast<std::uint64_t>(snapshot.pid));
    node.Text("session", Name(snapshot.session));
    if (wanted.Has("since")) node.Text("since", DateAndTime(snapshot.since));
    if (snapshot.journal) {
        node.Text("journal", snapshot.journal->path);
        node.Number("journal-errors", snapshot.journal->errors);
    }
    node.Number("operations", snapshot.operations);
    node.Number("operations-refused", snapshot.refused);
    node.Text("packet-source", SourceKind(snapshot.source));
    if (!snapshot.source.reason.empty()) node.Text("packet-source-reason", snapshot.source.reason);
    if (snapshot.addedDirection) node.Text("added-direction", Name(*snapshot.addedDirection));
    node.Texts("limitation", snapshot.limitations);
}

void StateWriter::AgentAddress(std::uint32_t address)
{
    m_root.add_leaves(Number("agent-address"));
    m_root.add_values(AddressText(address));
}

void StateWriter::Collector(const Snapshot::Collector& held, WallTime now,
                            const std::vector<manager::Problem>& problems, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add("collector"), wanted);
    node.Key(held.name);
    node.Text("address", AddressText(held.settings.address));
    node.Number("port", held.settings.port);
    node.Number("datagram-size", held.settings.datagramSize);
    node.Boolean("sending", held.stream.sending);
    node.Number("packets-sent", held.stream.datagrams);
    node.Number("bytes-sent", held.stream.bytes);
    node.Number("flow-samples-sent", held.stream.flowSamples);
    node.Number("counter-samples-sent", held.stream.counterSamples);
    node.Number("packets-lost", held.stream.lostDatagrams);
    node.Number("samples-lost", held.stream.lostSamples);
    node.Number("errors", held.stream.errors);
    if (held.stream.lastErrorTime) node.Text("last-error", held.stream.lastErrorText);
    node.Last("last-error-time", "last-error-age", now, held.stream.lastErrorTime);
    node.Last("last-packet-time", "last-packet-age", now, held.stream.lastDatagram);
    node.Reasons(problems);
}

void StateWriter::Interface(const Snapshot::Interface& held, const Snapshot& snapshot,
                            const Configured* configured, const std::vector<manager::Problem>& problems,
                            const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add("interface"), wanted);
    node.Key(held.name);
    node.Number("sampling-rate", held.settings.rate);
    if (configured != nullptr)
        if (const auto found = configured->interfaces.find(held.name); found != configured->interfaces.end())
            node.Text("sampling-rate-source", found->second.ownRate ? "own-setting" : "speed-class");
    node.Number("max-header-size", held.settings.maxHeaderSize);
    node.Number("polling-interval", held.settings.interval);
    node.Text("direction", Name(held.settings.direction));
    node.Texts("flow-collector", held.Of(Kind::kFlow));
    node.Texts("counter-collector", held.Of(Kind::kCounter));
    Kernel(held.status, snapshot.source, node);
    Counts(held.status, snapshot.now, node);
    node.Reasons(problems);
}

void StateWriter::Problem(const manager::Problem& problem)
{
    NodeWriter node(*this, Add("problem"), kAll);
    node.Key(manager::Name(problem.subject));
    node.Key(problem.name);
    node.Key(manager::Name(problem.reason));
    node.Text("text", problem.text);
}

}  // namespace manager
