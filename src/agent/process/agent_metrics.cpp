// SPDX-License-Identifier: Apache-2.0
#include "agent/process/agent_metrics.h"

#include <algorithm>
#include <map>

#include "metrics/text.h"

namespace agent {
namespace {

using metrics::kCounter;
using metrics::kGauge;
using metrics::Label;

void PutCommits(const CommitMeter& commits, metrics::Text& text)
{
    text.Times("cdbd_commit_duration_seconds",
               "Time from a commit's request to its answer, for those that have changed something.",
               commits.Times());
    text.One("cdbd_commits_refused_total", kCounter, "Commits that were refused.", commits.Refused());
}

void PutSessions(const NetconfFacts& netconf, const Access::Denials& denials, metrics::Text& text)
{
    text.One("cdbd_sessions", kGauge, "NETCONF sessions that are open.", netconf.sessions.size());
    text.One("cdbd_sessions_total", kCounter, "NETCONF sessions that were begun.", netconf.inSessions);
    text.One("cdbd_sessions_refused_total", kCounter, "Clients that got no NETCONF session.",
             netconf.turnedAway);
    text.One("cdbd_sessions_dropped_total", kCounter, "NETCONF sessions that ended without close-session.",
             netconf.droppedSessions);
    text.One("cdbd_rpcs_total", kCounter, "Requests of NETCONF clients.", netconf.counters.inRpcs);
    text.One("cdbd_bad_rpcs_total", kCounter, "Messages of NETCONF clients that were no request.",
             netconf.counters.inBadRpcs);
    text.One("cdbd_rpc_errors_total", kCounter, "Answers to NETCONF clients that were an error.",
             netconf.counters.outRpcErrors);
    text.Family("cdbd_access_denied_total", kCounter, "What the rules of access have denied.");
    text.Line(Label("what", "operation"), std::uint64_t{denials.operations});
    text.Line(Label("what", "data-write"), std::uint64_t{denials.dataWrites});
}

void PutStore(const cdb::Store& store, metrics::Text& text)
{
    const cdb::StoreSize size = store.Size();
    text.One("cdbd_last_commit", kGauge, "Number of the last commit.", size.commit);
    text.One("cdbd_store_bytes", kGauge, "Size of the store's file.", size.bytes);
    text.One("cdbd_store_limit_bytes", kGauge, "Size that the store may have.", size.limit);
    text.One("cdbd_history_entries", kGauge, "Commits that are remembered.", size.historyEntries);
    text.One("cdbd_history_bytes", kGauge, "Size of what is remembered of them.", size.historyBytes);
}

/// Several connections of one name are one process: each number is the greatest.
void PutProcesses(const Clients& clients, const std::vector<std::string>& expected, metrics::Text& text)
{
    struct Seen {
        std::uint64_t connected = 0;
        std::uint64_t missed = 0;
    };
    std::map<std::string, Seen> processes;
    for (const ClientPtr& client : clients.Ready()) {
        Seen& seen = processes[client->Process()];
        seen.connected = 1;
        seen.missed = std::max(seen.missed, client->Missed().commits);
    }
    for (const MissingSubscriber& missing : clients.Missing()) {
        Seen& seen = processes[missing.process];
        seen.missed = std::max(seen.missed, missing.misses.commits);
    }
    for (const std::string& name : expected) processes.try_emplace(name);
    text.Family("cdbd_process_connected", kGauge, "Whether a process is connected that is or should be.");
    for (const auto& [name, seen] : processes) text.Line(Label("process", name), seen.connected);
    text.Family("cdbd_process_missed_commits", kGauge,
                "Commits in a row that a process has not acknowledged in time.");
    for (const auto& [name, seen] : processes) text.Line(Label("process", name), seen.missed);
}

void PutRole(cdb::Role role, metrics::Text& text)
{
    text.Family("cdbd_node_role", kGauge, "Whether the node has this role in a redundant pair.");
    text.Line(Label("role", "active"), std::uint64_t{role == cdb::Role::kActive});
    text.Line(Label("role", "standby"), std::uint64_t{role == cdb::Role::kStandby});
}

}  // namespace

std::string MetricsText(const AgentFigures& figures)
{
    metrics::Text text;
    text.BuildInfo("cdbd");
    PutCommits(figures.commits, text);
    PutSessions(figures.netconf, figures.denials, text);
    PutStore(figures.store, text);
    PutProcesses(figures.clients, figures.expected, text);
    PutRole(figures.role, text);
    return text.Take();
}

}  // namespace agent
