// SPDX-License-Identifier: Apache-2.0
#include "manager/status/state_writer.h"

#include <algorithm>
#include <chrono>
#include <concepts>
#include <limits>
#include <optional>

#include <fmt/format.h>

#include "ipc/cdb.pb.h"
#include "manager/status/configured.h"

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
    constexpr std::int64_t kMax = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(age, 0, kMax));
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
    void Text(StateName name, std::string_view value)
    {
        if (Wanted(name)) Put(name, value);
    }
    void Number(StateName name, std::unsigned_integral auto value)
    {
        if (!Wanted(name)) return;
        const fmt::format_int text(value);
        Put(name, {text.data(), text.size()});
    }
    void Boolean(StateName name, bool value) { Text(name, value ? "true" : "false"); }
    void Texts(StateName name, const std::vector<std::string>& values)
    {
        for (const std::string& value : values) Text(name, value);
    }
    void Time(StateName name, WallTime time)
    {
        if (Wanted(name)) Put(name, DateAndTime(time));
    }
    /// When something last was and how long ago; nothing if it never was.
    void Last(StateName time, StateName age, WallTime now, const std::optional<WallTime>& then)
    {
        if (!then) return;
        Time(time, *then);
        Number(age, Age(now, *then));
    }
    void Reasons(const std::vector<Problem>& problems)
    {
        for (const Problem& problem : problems) Text(StateName::kProblem, Name(problem.reason));
    }

private:
    [[nodiscard]] bool Wanted(StateName name) const { return m_wanted.Has(manager::Text(name)); }
    void Put(StateName name, std::string_view value)
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
        node.Text(StateName::kKernelInterface, status.kernelName);
        node.Number(StateName::kIfindex, status.ifIndex);
        node.Text(StateName::kAdminStatus, Status(status.adminUp));
        node.Text(StateName::kOperStatus, Status(status.operUp));
    }
    node.Text(StateName::kPacketSource, status.sampled ? SourceKind(source) : "none");
    if (!status.samplingError.empty()) node.Text(StateName::kSamplingError, status.samplingError);
}

void Counts(const InterfaceStatus& status, WallTime now, NodeWriter& node)
{
    node.Number(StateName::kPacketsSeen, status.packetsSeen);
    node.Number(StateName::kPacketsSampled, status.samples);
    node.Number(StateName::kDropsBuffer, status.dropsBuffer);
    node.Number(StateName::kDropsNoCollector, status.dropsNoCollector);
    node.Last(StateName::kLastSampleTime, StateName::kLastSampleAge, now, status.lastSample);
    node.Number(StateName::kCountersSent, status.countersSent);
    node.Last(StateName::kLastCountersTime, StateName::kLastCountersAge, now, status.lastCounters);
}

const WantedLeaves kAll{true, {}};

}  // namespace

StateWriter::StateWriter(ipc::cdb::StateReply& part, const std::string& path)
    : m_part(part), m_root(*part.add_trees()->mutable_node())
{
    part.mutable_trees(part.trees_size() - 1)->set_path(path);
}

std::uint32_t StateWriter::Number(StateName name)
{
    auto& number = m_numbers[static_cast<std::size_t>(name)];
    if (!number) {
        number = static_cast<std::uint32_t>(m_part.names_size());
        const std::string_view text = Text(name);
        m_part.add_names(text.data(), text.size());
    }
    return *number;
}

ipc::cdb::StateNode& StateWriter::Add(StateName name)
{
    ipc::cdb::StateNode& node = *m_root.add_children();
    node.set_name(Number(name));
    return node;
}

void StateWriter::Manager(const Snapshot& snapshot, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kManager), wanted);
    node.Boolean(StateName::kConnected, snapshot.session != Service::Session::kNone);
    node.Number(StateName::kPid, static_cast<std::uint64_t>(snapshot.pid));
    node.Text(StateName::kSession, Name(snapshot.session));
    node.Time(StateName::kSince, snapshot.since);
    if (snapshot.journal) {
        node.Text(StateName::kJournal, snapshot.journal->path);
        node.Number(StateName::kJournalErrors, snapshot.journal->errors);
    }
    node.Number(StateName::kOperations, snapshot.operations);
    node.Number(StateName::kOperationsRefused, snapshot.refused);
    node.Text(StateName::kPacketSource, SourceKind(snapshot.source));
    if (!snapshot.source.reason.empty()) node.Text(StateName::kPacketSourceReason, snapshot.source.reason);
    if (snapshot.addedDirection) node.Text(StateName::kAddedDirection, Name(*snapshot.addedDirection));
    node.Texts(StateName::kLimitation, snapshot.limitations);
}

void StateWriter::AgentAddress(std::uint32_t address)
{
    m_root.add_leaves(Number(StateName::kAgentAddress));
    m_root.add_values(AddressText(address));
}

void StateWriter::Collector(const Snapshot::Collector& held, WallTime now,
                            const std::vector<manager::Problem>& problems, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kCollector), wanted);
    node.Key(held.name);
    node.Text(StateName::kAddress, AddressText(held.settings.address));
    node.Number(StateName::kPort, held.settings.port);
    node.Number(StateName::kDatagramSize, held.settings.datagramSize);
    node.Boolean(StateName::kSending, held.stream.sending);
    node.Number(StateName::kPacketsSent, held.stream.datagrams);
    node.Number(StateName::kBytesSent, held.stream.bytes);
    node.Number(StateName::kFlowSamplesSent, held.stream.flowSamples);
    node.Number(StateName::kCounterSamplesSent, held.stream.counterSamples);
    node.Number(StateName::kPacketsLost, held.stream.lostDatagrams);
    node.Number(StateName::kSamplesLost, held.stream.lostSamples);
    node.Number(StateName::kErrors, held.stream.errors);
    if (held.stream.lastErrorTime) node.Text(StateName::kLastError, held.stream.lastErrorText);
    node.Last(StateName::kLastErrorTime, StateName::kLastErrorAge, now, held.stream.lastErrorTime);
    node.Last(StateName::kLastPacketTime, StateName::kLastPacketAge, now, held.stream.lastDatagram);
    node.Reasons(problems);
}

void StateWriter::Interface(const Snapshot::Interface& held, const Snapshot& snapshot,
                            const Configured* configured, const std::vector<manager::Problem>& problems,
                            const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kInterface), wanted);
    node.Key(held.name);
    node.Number(StateName::kSamplingRate, held.settings.rate);
    if (configured != nullptr)
        if (const auto found = configured->interfaces.find(held.name); found != configured->interfaces.end())
            node.Text(StateName::kSamplingRateSource, found->second.ownRate ? "own-setting" : "speed-class");
    node.Number(StateName::kMaxHeaderSize, held.settings.maxHeaderSize);
    node.Number(StateName::kPollingInterval, held.settings.interval);
    node.Text(StateName::kDirection, Name(held.settings.direction));
    node.Texts(StateName::kFlowCollector, held.Of(Kind::kFlow));
    node.Texts(StateName::kCounterCollector, held.Of(Kind::kCounter));
    Kernel(held.status, snapshot.source, node);
    Counts(held.status, snapshot.now, node);
    node.Reasons(problems);
}

void StateWriter::Problem(const manager::Problem& problem)
{
    NodeWriter node(*this, Add(StateName::kProblem), kAll);
    node.Key(manager::Name(problem.subject));
    node.Key(problem.name);
    node.Key(manager::Name(problem.reason));
    node.Text(StateName::kText, problem.text);
}

}  // namespace manager
