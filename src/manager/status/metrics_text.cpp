// SPDX-License-Identifier: Apache-2.0
#include "manager/status/metrics_text.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "manager/status/view.h"
#include "metrics/text.h"

namespace manager {
namespace {

/// A family that has one line for each thing.
template <typename Thing>
struct Row {
    const char* name;
    const char* type;
    const char* help;
    std::uint64_t (*value)(const Thing&);
};

using Interface = View::Interface;
using Collector = View::Collector;

using metrics::kCounter;
using metrics::kGauge;
using metrics::Label;

const Row<Interface> kInterfaceRows[] = {
    {"sflow_interface_present", kGauge, "Whether a kernel interface has that name.",
     [](const Interface& of) { return std::uint64_t{of.status.present}; }},
    {"sflow_interface_up", kGauge, "Whether the kernel interface can carry packets.",
     [](const Interface& of) { return std::uint64_t{of.status.adminUp && of.status.operUp}; }},
    {"sflow_interface_sampled", kGauge, "Whether packets are sampled there.",
     [](const Interface& of) { return std::uint64_t{of.status.sampled}; }},
    {"sflow_interface_pending", kGauge,
     "Whether packets are about to be sampled there: the kernel is being asked.",
     [](const Interface& of) { return std::uint64_t{of.status.pending}; }},
    {"sflow_interface_sampling_rate", kGauge, "One packet of so many is sampled.",
     [](const Interface& of) { return std::uint64_t{of.held.settings.rate}; }},
    {"sflow_interface_polling_interval_seconds", kGauge,
     "Time between two sendings of its counters; 0 is off.",
     [](const Interface& of) { return std::uint64_t{of.held.settings.interval}; }},
    {"sflow_interface_packets_seen_total", kCounter, "Packets from which samples were taken.",
     [](const Interface& of) { return of.status.packetsSeen; }},
    {"sflow_interface_samples_total", kCounter, "Packets sampled and handed to a collector at least.",
     [](const Interface& of) { return of.status.samples; }},
    {"sflow_interface_sampled_bytes_total", kCounter, "Lengths of these packets' frames on the wire.",
     [](const Interface& of) { return of.status.sampledBytes; }},
    {"sflow_interface_counters_sent_total", kCounter, "How often its counters were sent.",
     [](const Interface& of) { return of.status.countersSent; }},
};

const Row<Collector> kCollectorRows[] = {
    {"sflow_collector_sending", kGauge,
     "Whether the last datagrams were taken and no error of them is known.",
     [](const Collector& of) { return std::uint64_t{of.stream.sending}; }},
    {"sflow_collector_datagrams_total", kCounter, "Datagrams sent.",
     [](const Collector& of) { return of.stream.datagrams; }},
    {"sflow_collector_bytes_total", kCounter, "UDP payload of the datagrams sent.",
     [](const Collector& of) { return of.stream.bytes; }},
    {"sflow_collector_lost_datagrams_total", kCounter, "Datagrams that the kernel did not take.",
     [](const Collector& of) { return of.stream.lostDatagrams; }},
    {"sflow_collector_lost_samples_total", kCounter, "Samples in the datagrams that the kernel did not take.",
     [](const Collector& of) { return of.stream.lostSamples; }},
    {"sflow_collector_errors_total", kCounter, "Errors of sending, those that the network reported included.",
     [](const Collector& of) { return of.stream.errors; }},
};

void PutManager(const ManagerStatus& manager, metrics::Text& text)
{
    text.Family("sflow_manager_session_loaded", kGauge,
                "Whether the configuration daemon is connected and has said all.");
    text.Line("", manager.session == Service::Session::kLoaded ? 1U : 0U);
    text.Family("sflow_manager_operations_total", kCounter, "Operations received.");
    text.Line("", manager.operations);
    text.Family("sflow_manager_operations_refused_total", kCounter, "Operations that could not be applied.");
    text.Line("", manager.refused);
    if (manager.journal) {
        text.Family("sflow_manager_journal_errors_total", kCounter,
                    "Lines that could not be written to the journal.");
        text.Line("", manager.journal->errors);
    }
    text.Family("sflow_manager_source_info", kGauge, "How packets are sampled on this machine; always 1.");
    text.Line(Label("source", manager.source.kind.empty() ? "none" : manager.source.kind), 1U);
}

/// The label by which each one's lines are told apart.
template <typename Thing>
std::vector<std::string> Labels(const char* name, const std::vector<Thing>& things)
{
    std::vector<std::string> labels;
    labels.reserve(things.size());
    for (const Thing& thing : things) labels.push_back(Label(name, thing.name));
    return labels;
}

template <typename Thing, std::size_t count>
void PutRows(const Row<Thing> (&rows)[count], const std::vector<Thing>& things,
             const std::vector<std::string>& labels, metrics::Text& text)
{
    for (const auto& row : rows) {
        text.Family(row.name, row.type, row.help);
        for (std::size_t i = 0; i < things.size(); ++i) text.Line(labels[i], row.value(things[i]));
    }
}

void PutInterfaces(const std::vector<Interface>& interfaces, metrics::Text& text)
{
    if (interfaces.empty()) return;
    const auto labels = Labels("interface", interfaces);
    text.Family("sflow_interface_info", kGauge, "The kernel interface of each interface; always 1.");
    for (std::size_t i = 0; i < interfaces.size(); ++i)
        if (interfaces[i].status.present)
            text.Line(labels[i] + ',' + Label("kernel_interface", interfaces[i].status.kernelName) + ',' +
                          Label("ifindex", std::to_string(interfaces[i].status.ifIndex)),
                      1U);
    PutRows(kInterfaceRows, interfaces, labels, text);
    text.Family("sflow_interface_drops_total", kCounter, "Packets sampled that became no sample, by cause.");
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        text.Line(labels[i] + ",cause=\"buffer\"", interfaces[i].status.dropsBuffer);
        text.Line(labels[i] + ",cause=\"no-collector\"", interfaces[i].status.dropsNoCollector);
    }
    text.Family("sflow_interface_last_sample_timestamp_seconds", kGauge,
                "When the newest packet was sampled.");
    for (std::size_t i = 0; i < interfaces.size(); ++i) text.Line(labels[i], interfaces[i].status.lastSample);
    text.Family("sflow_interface_last_counters_timestamp_seconds", kGauge,
                "When its counters were sent last.");
    for (std::size_t i = 0; i < interfaces.size(); ++i)
        text.Line(labels[i], interfaces[i].status.lastCounters);
}

void PutCollectors(const std::vector<Collector>& collectors, metrics::Text& text)
{
    if (collectors.empty()) return;
    const auto labels = Labels("collector", collectors);
    text.Family("sflow_collector_info", kGauge, "Where each collector is; always 1.");
    for (std::size_t i = 0; i < collectors.size(); ++i)
        text.Line(labels[i] + ',' + Label("address", AddressText(collectors[i].settings.address)) + ',' +
                      Label("port", std::to_string(collectors[i].settings.port)),
                  1U);
    PutRows(kCollectorRows, collectors, labels, text);
    text.Family("sflow_collector_samples_total", kCounter, "Samples in the datagrams sent, by kind.");
    for (std::size_t i = 0; i < collectors.size(); ++i) {
        text.Line(labels[i] + ",kind=\"flow\"", collectors[i].stream.flowSamples);
        text.Line(labels[i] + ",kind=\"counter\"", collectors[i].stream.counterSamples);
        text.Line(labels[i] + ",kind=\"discard\"", collectors[i].stream.discards);
    }
    text.Family("sflow_collector_last_datagram_timestamp_seconds", kGauge,
                "When the newest datagram was sent.");
    for (std::size_t i = 0; i < collectors.size(); ++i)
        text.Line(labels[i], collectors[i].stream.lastDatagram);
    text.Family("sflow_collector_last_error_timestamp_seconds", kGauge, "When the newest error happened.");
    for (std::size_t i = 0; i < collectors.size(); ++i)
        text.Line(labels[i], collectors[i].stream.lastErrorTime);
}

void PutDrops(const DiscardSource& source, const std::vector<DropsAtInterface>& drops, metrics::Text& text)
{
    text.Family("sflow_drops_watched", kGauge, "Whether discarded packets are looked at.");
    text.Line("", std::uint64_t{source.running});
    if (!source.running) return;
    text.Family("sflow_drops_uncounted_total", kCounter,
                "Discarded packets that no interface's counts have.");
    text.Line("", source.uncounted);
    if (drops.empty()) return;
    const auto labels = Labels("interface", drops);
    text.Family("sflow_drops_total", kCounter, "Packets discarded, by interface and the kernel's reason.");
    for (std::size_t i = 0; i < drops.size(); ++i)
        for (const DropsByReason& reason : drops[i].reasons)
            text.Line(labels[i] + ',' + Label("reason", reason.name), reason.packets);
    text.Family("sflow_drops_not_told_total", kCounter, "Of these, those of which collectors were not told.");
    for (std::size_t i = 0; i < drops.size(); ++i) text.Line(labels[i], drops[i].untold);
}

/// Each problem has the labels of all subjects; those that do not apply are empty, which is to have none.
void PutProblems(const std::optional<std::vector<Problem>>& problems, metrics::Text& text)
{
    text.One("sflow_problems_known", kGauge,
             "Whether problems have been looked for; not before the database is connected.",
             std::uint64_t{problems.has_value()});
    if (!problems || problems->empty()) return;
    text.Family("sflow_problem", kGauge, "What is wrong, off or idle; always 1.");
    for (const Problem& problem : *problems)
        text.Line(Label("severity", Name(SeverityOf(problem.reason))) + ',' +
                      Label("reason", Name(problem.reason)) + ',' +
                      Label("interface", problem.subject == Subject::kInterface ? problem.name : "") + ',' +
                      Label("collector", problem.subject == Subject::kCollector ? problem.name : ""),
                  1U);
}

/// Each entry with its numbers, which are read once for all its lines.
template <typename Thing, typename Entries>
std::vector<Thing> Look(const View& view, const Entries& entries)
{
    std::vector<Thing> things;
    things.reserve(entries.size());
    for (const auto& entry : entries) things.push_back(view.Of(entry));
    return things;
}

}  // namespace

std::string MetricsText(const View& view, const std::optional<std::vector<Problem>>& problems)
{
    metrics::Text text;
    text.BuildInfo("sflow_manager");
    PutManager(view.Manager(), text);
    PutCollectors(Look<Collector>(view, view.Table().AllCollectors()), text);
    PutInterfaces(Look<Interface>(view, view.Table().AllInterfaces()), text);
    PutDrops(view.Manager().discards, view.Drops(), text);
    PutProblems(problems, text);
    return text.Take();
}

}  // namespace manager
