// SPDX-License-Identifier: Apache-2.0
#include "manager/status/state_writer.h"

#include <algorithm>
#include <chrono>
#include <concepts>
#include <limits>

#include <fmt/format.h>

#include "ipc/cdb.pb.h"
#include "manager/status/configured.h"
#include "net/links/links.h"

namespace manager {
namespace {

const char* Name(Service::Session session)
{
    static constexpr std::array kNames = {"none", "loading", "loaded"};
    return kNames.at(static_cast<std::size_t>(session));
}

const char* Name(Direction direction)
{
    static constexpr std::array kNames = {"egress", "ingress", "both"};
    return kNames.at(static_cast<std::size_t>(direction) - 1);
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

    /// An entry of a list in the node, whole.
    NodeWriter Child(StateName name)
    {
        ipc::cdb::StateNode& child = *m_node.add_children();
        child.set_name(m_writer.Number(name));
        return {m_writer, child, m_wanted};
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
    void Names(StateName name, const ServiceTable::Attachments& attachments)
    {
        for (const auto& [collector, mark] : attachments) Text(name, collector);
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

void Sending(const OwnCollector& own, NodeWriter& node)
{
    const SendSettings& send = own.send;
    if (send.sourceAddress != 0) node.Text(StateName::kSourceAddress, AddressText(send.sourceAddress));
    node.Number(StateName::kDscp, send.dscp);
    if (!send.device.empty()) node.Text(StateName::kDevice, send.device);
    node.Boolean(StateName::kDiscards, own.discards);
}

void Discarding(const DiscardSource& source, const OwnSettings& own, NodeWriter& node)
{
    node.Number(StateName::kDiscardLimit, own.DiscardLimit());
    const char* const wanted = own.DiscardsEverywhere() ? "all" : "configured";
    node.Text(StateName::kDiscardInterfaces, source.running ? wanted : "none");
    if (!source.reason.empty()) node.Text(StateName::kDiscardInterfacesReason, source.reason);
    node.Number(StateName::kDiscardsUncounted, source.uncounted);
}

void Counts(const InterfaceStatus& status, WallTime now, NodeWriter& node)
{
    node.Number(StateName::kPacketsSeen, status.packetsSeen);
    node.Number(StateName::kPacketsSampled, status.samples);
    node.Number(StateName::kSampledBytes, status.sampledBytes);
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

void StateWriter::Manager(const ManagerStatus& status, const OwnSettings& own, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kManager), wanted);
    node.Boolean(StateName::kConnected, status.session != Service::Session::kNone);
    node.Number(StateName::kPid, static_cast<std::uint64_t>(status.pid));
    node.Text(StateName::kSession, Name(status.session));
    node.Time(StateName::kSince, status.since);
    if (status.journal) {
        node.Text(StateName::kJournal, status.journal->path);
        node.Number(StateName::kJournalErrors, status.journal->errors);
    }
    node.Number(StateName::kOperations, status.operations);
    node.Number(StateName::kOperationsRefused, status.refused);
    node.Text(StateName::kPacketSource, SourceKind(status.source));
    if (!status.source.reason.empty()) node.Text(StateName::kPacketSourceReason, status.source.reason);
    if (const auto added = own.AddedDirection()) node.Text(StateName::kAddedDirection, Name(*added));
    node.Number(StateName::kSamplesPerSecond, status.perSecond.samples);
    node.Number(StateName::kDatagramsPerSecond, status.perSecond.datagrams);
    if (status.countsSince) node.Time(StateName::kCountsSince, *status.countsSince);
    Discarding(status.discards, own, node);
    node.Texts(StateName::kLimitation, status.limitations);
}

void StateWriter::AgentAddress(std::uint32_t address)
{
    m_root.add_leaves(Number(StateName::kAgentAddress));
    m_root.add_values(AddressText(address));
}

void StateWriter::SubAgent(std::uint32_t number)
{
    m_root.add_leaves(Number(StateName::kSubAgent));
    m_root.add_values(std::to_string(number));
}

void StateWriter::Collector(const View::Collector& shown, WallTime now,
                            const std::vector<manager::Problem>& problems, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kCollector), wanted);
    node.Key(shown.name);
    node.Text(StateName::kAddress, AddressText(shown.settings.address));
    node.Number(StateName::kPort, shown.settings.port);
    node.Number(StateName::kDatagramSize, shown.settings.datagramSize);
    Sending(shown.own, node);
    node.Boolean(StateName::kSending, shown.stream.sending);
    node.Number(StateName::kPacketsSent, shown.stream.datagrams);
    node.Number(StateName::kBytesSent, shown.stream.bytes);
    node.Number(StateName::kFlowSamplesSent, shown.stream.flowSamples);
    node.Number(StateName::kCounterSamplesSent, shown.stream.counterSamples);
    node.Number(StateName::kDiscardsSent, shown.stream.discards);
    node.Number(StateName::kPacketsLost, shown.stream.lostDatagrams);
    node.Number(StateName::kSamplesLost, shown.stream.lostSamples);
    node.Number(StateName::kErrors, shown.stream.errors);
    if (shown.stream.lastErrorTime) node.Text(StateName::kLastError, shown.stream.lastErrorText);
    node.Last(StateName::kLastErrorTime, StateName::kLastErrorAge, now, shown.stream.lastErrorTime);
    node.Last(StateName::kLastPacketTime, StateName::kLastPacketAge, now, shown.stream.lastDatagram);
    node.Reasons(problems);
}

void StateWriter::Interface(const View::Interface& shown, const View& view, const Configured* configured,
                            const std::vector<manager::Problem>& problems, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kInterface), wanted);
    node.Key(shown.name);
    node.Number(StateName::kSamplingRate, shown.held.settings.rate);
    if (configured != nullptr)
        if (const auto found = configured->interfaces.find(shown.name); found != configured->interfaces.end())
            node.Text(StateName::kSamplingRateSource, found->second.ownRate ? "own-setting" : "speed-class");
    node.Number(StateName::kMaxHeaderSize, shown.held.settings.maxHeaderSize);
    node.Number(StateName::kPollingInterval, shown.held.settings.interval);
    node.Text(StateName::kDirection, Name(shown.held.settings.direction));
    node.Names(StateName::kFlowCollector, shown.held.Of(Kind::kFlow));
    node.Names(StateName::kCounterCollector, shown.held.Of(Kind::kCounter));
    Kernel(shown.status, view.Manager().source, node);
    Counts(shown.status, view.Now(), node);
    node.Reasons(problems);
}

void StateWriter::KernelInterface(const net::Link& shown, const WantedLeaves& wanted)
{
    NodeWriter node(*this, Add(StateName::kKernelInterface), wanted);
    node.Key(shown.name);
    node.Number(StateName::kIfindex, shown.index);
    node.Texts(StateName::kAlternativeName, shown.altNames);
    if (!shown.alias.empty()) node.Text(StateName::kAlias, shown.alias);
    if (!shown.kind.empty()) node.Text(StateName::kKind, shown.kind);
    if (shown.speed != 0) node.Number(StateName::kSpeed, shown.speed);
    node.Text(StateName::kAdminStatus, Status(shown.up));
    node.Text(StateName::kOperStatus, Status(shown.running));
}

void StateWriter::Drops(const DropsAtInterface& shown, WallTime now)
{
    NodeWriter node(*this, Add(StateName::kDrops), kAll);
    node.Key(shown.name);
    node.Number(StateName::kIfindex, shown.ifIndex);
    node.Number(StateName::kPackets, shown.packets);
    node.Number(StateName::kPacketsNotTold, shown.untold);
    for (const DropsByReason& reason : shown.reasons) {
        NodeWriter entry = node.Child(StateName::kReason);
        entry.Key(reason.name);
        entry.Number(StateName::kPackets, reason.packets);
        entry.Number(StateName::kRate, reason.rate);
        entry.Last(StateName::kLastTime, StateName::kLastAge, now, reason.last);
        if (!reason.told) continue;
        entry.Number(StateName::kCode, static_cast<std::uint32_t>(reason.told->code));
        if (!reason.told->function.empty()) entry.Text(StateName::kFunction, reason.told->function);
    }
}

void StateWriter::Problem(const manager::Problem& problem)
{
    NodeWriter node(*this, Add(StateName::kProblem), kAll);
    node.Key(manager::Name(problem.subject));
    node.Key(problem.name);
    node.Key(manager::Name(problem.reason));
    node.Text(StateName::kSeverity, manager::Name(SeverityOf(problem.reason)));
    node.Text(StateName::kText, problem.text);
}

}  // namespace manager
