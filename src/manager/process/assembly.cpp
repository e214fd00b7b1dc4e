// SPDX-License-Identifier: Apache-2.0
#include "manager/process/assembly.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "base/user.h"
#include "base/worker.h"
#include "capture/drop_source.h"
#include "capture/packet_source.h"
#include "ipc/cdb.pb.h"
#include "ipc/trust.h"
#include "log/log.h"
#include "manager/discards/discards.h"
#include "manager/export/collector_test.h"
#include "manager/export/exporter.h"
#include "manager/export/poller.h"
#include "manager/process/options.h"
#include "manager/process/privileges.h"
#include "manager/process/source_choice.h"
#include "manager/process/talkers_output.h"
#include "manager/sampling/reconciler.h"
#include "manager/sampling/talkers.h"
#include "manager/service/journal.h"
#include "manager/service/resync_after.h"
#include "manager/service/service.h"
#include "manager/service/service_table.h"
#include "manager/service/session_server.h"
#include "manager/settings/configured_store.h"
#include "manager/settings/own_settings.h"
#include "manager/settings/settings_follower.h"
#include "manager/status/metrics_text.h"
#include "manager/status/problem_watch.h"
#include "manager/status/state_answer.h"
#include "manager/status/state_provider.h"
#include "manager/status/state_wanted.h"
#include "manager/status/statistics.h"
#include "manager/status/traffic_rates.h"
#include "manager/status/view.h"
#include "metrics/server.h"
#include "net/counters/counters.h"
#include "net/monitor/monitor.h"

namespace manager {
namespace {

// How many files the manager may have open, far beyond the usual 1,024. Every sampled interface takes one for
// a direction (eBPF) or two (packet sockets): two for each of 65,536, and collectors (4,096) and the rest are
// far fewer than these leave free.
constexpr rlim_t kFiles = 2 * 65536 + 8192;

/// Raises the limit to what all interfaces and collectors need, or as far as it may go. A part that then
/// can't open a file reports that itself.
void RaiseFileLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kFiles) return;
    const rlimit wanted{.rlim_cur = kFiles, .rlim_max = std::max(kFiles, limit.rlim_max)};
    if (::setrlimit(RLIMIT_NOFILE, &wanted) == 0) return;
    // Only a privileged process may raise the hard limit.
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

using std::chrono::steady_clock;
using std::chrono::system_clock;

std::unique_ptr<Journal> OpenJournal(const std::string& path)
{
    return path.empty() ? nullptr : std::make_unique<Journal>(path);
}

ipc::Trust TrustOf(const Options& options)
{
    ipc::Trust trust("sflow-mgr", options.switchGroup);
    for (const std::string& allowed : options.allow) trust.Allow(allowed);
    return trust;
}

/// The clock of all events: it begins as the wall clock and is never set, so that ages stay true.
std::function<WallTime()> EventClock()
{
    return [wall = system_clock::now(), start = steady_clock::now()] {
        return wall + std::chrono::duration_cast<WallTime::duration>(steady_clock::now() - start);
    };
}

/// A number below `limit`, for the start of the first polling interval.
std::uint32_t RandomBelow(std::uint32_t limit)
{
    static thread_local std::minstd_rand generator{std::random_device{}()};
    return limit == 0 ? 0 : std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(generator);
}

}  // namespace

// Members in the order of dependence: a part is destroyed before the parts that it calls.
class Assembly::Impl {
public:
    Impl(boost::asio::io_context& loop, const Options& options, const std::string& directory);
    ~Impl();

private:
    void RequireSampling() const;
    void Confine(const Options& options);
    [[nodiscard]] StatusSources Sources();
    [[nodiscard]] StatusSources SourcesOfOne();
    [[nodiscard]] StateAnswer::Sources AnswerSources();
    TrafficCounts Sent();
    void TestCollector(const std::string& name, const ActionDone& done);
    [[nodiscard]] ActionResult LookInto(const std::string& interface);
    [[nodiscard]] std::unique_ptr<StateParts> BeginAnswer(const ipc::cdb::StateRequest& request);

    const std::function<WallTime()> m_clock = EventClock();
    const std::unique_ptr<base::Timers> m_timers;
    const std::unique_ptr<Journal> m_journal;
    std::vector<std::string> m_limitations;

    const std::unique_ptr<base::Worker> m_worker;
    net::Monitor m_monitor;
    Exporter m_exporter;
    CollectorTests m_tests;
    Poller m_poller;
    ServiceTable m_table;
    OwnSettings m_own;
    Discards m_discards;
    Reconciler m_reconciler;
    Talkers m_talkers;
    ChosenSource m_source;
    Statistics m_statistics;
    Service m_service;
    ResyncAfter m_resync;
    SessionServer m_server;
    ConfiguredStore m_configuration;
    SettingsFollower m_follower;
    TrafficRates m_rates;
    ProblemWatch m_problems;
    StateProvider m_provider;
    std::unique_ptr<metrics::Server> m_metrics;
};

Assembly::Impl::Impl(boost::asio::io_context& loop, const Options& options, const std::string& directory)
    : m_timers(base::MakeTimers(loop)),
      m_journal(OpenJournal(options.journal)),
      m_worker(base::MakeWorker(loop)),
      m_monitor(loop, *m_timers, *m_worker),
      m_exporter(
          m_clock,
          [start = steady_clock::now()] {
              return std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
          },
          options.mark),
      m_tests(*m_timers, options.mark),
      m_poller(
          *m_timers, *m_worker, net::MakeCounterReader(), m_monitor.CurrentLinks(),
          [this] { m_exporter.Flush(); }, &steady_clock::now, m_clock, &RandomBelow),
      m_own(options.direction),
      m_discards(
          {*m_timers, m_monitor.CurrentLinks(), m_own, m_exporter},
          [this, &loop, mark = options.mark](capture::DropSink& sink) {
              capture::DropOptions drops;
              drops.ownMark = mark;
              return capture::MakeDropSource(loop, *m_timers, sink, drops);
          },
          m_clock),
      m_reconciler({m_table, m_own, *m_timers, m_monitor.CurrentLinks(), m_monitor.CurrentForwarding(),
                    m_exporter, m_poller, m_discards},
                   m_clock),
      m_talkers(m_reconciler.Sampled(), *m_timers),
      m_source(ChooseSource(options.source, loop, *m_timers, m_reconciler.Sink(), SourceOptionsOf(options))),
      m_statistics(m_clock()),
      m_service(
          m_table, m_journal.get(), m_clock,
          [this](const Touched& touched) {
              m_reconciler.Reconcile(touched);
              m_statistics.Forget(touched, m_table);
          },
          [this] { m_resync.Note(); }),
      m_resync(
          *m_timers, options.resyncAfter, [this] { return m_service.HasOperated(); },
          [this, rest = options.resyncAfter] {
              slog::Info("no operation has come for {} s: everything is asked for again", rest.count());
              m_server.RequestResync();
          }),
      m_server(loop, *m_timers, directory + "/manager.sock", m_service, TrustOf(options),
               base::FindGroup(options.switchGroup)),
      m_follower(m_configuration, *m_timers, m_own),
      m_rates(*m_timers, [this] { return Sent(); }),
      m_problems(
          *m_timers, [this] { return WalkOverDiagnosis(AnswerSources()); },
          [this](const std::vector<ProblemChange>& changes) { m_provider.Tell(changes); }),
      m_provider(
          loop, *m_timers, directory + "/cdb.sock",
          {[this](const std::string& store) {
               m_problems.Stop();  // it may be reading the store that is closed now
               m_configuration.Open(store);
               m_follower.Load();
               m_problems.Start();
           },
           [this](const ipc::cdb::StateRequest& request) { return BeginAnswer(request); },
           [this] {
               return std::string(m_server.RequestResync() ? "" : "the configuration daemon has no session");
           },
           [this](const ipc::cdb::ChangeSet& changes) { m_follower.Take(changes); },
           [this] { m_problems.Stop(); },
           [this](const std::string& collector, const ActionDone& done) { TestCollector(collector, done); },
           [this](const std::string& interface) { return LookInto(interface); },
           [this] { m_statistics.Clear(Sources(), m_clock()); }})
{
    const bool packetSockets = m_source.status.kind == "packet-socket";
    m_own.WhenChanged([this](const OwnChange& change) { m_reconciler.Reconcile(change); });
    if (options.requireSampling) RequireSampling();
    if (!m_source.source) slog::Error("no packets are sampled: {}", m_source.status.reason);
    if (packetSockets && !m_source.status.reason.empty())
        slog::Notice(
            "packets are sampled by packet sockets, which count a packet of several segments (GRO, GSO) "
            "once, so estimates of frames and bytes are too low where there are such packets: {}",
            m_source.status.reason);
    if (options.metrics)
        m_metrics = std::make_unique<metrics::Server>(
            loop, *m_timers, options.metrics->address, options.metrics->port,
            [this] { return MetricsText(View(Sources()), m_problems.Known()); });
    m_monitor.Start();
    m_reconciler.SetSource(m_source.source.get(), m_source.status);
    Confine(options);
    m_provider.Start();
}

Assembly::Impl::~Impl()
{
    m_provider.Stop();
    m_problems.Stop();
    m_server.Stop();
    m_reconciler.End();
    m_monitor.Stop();
}

void Assembly::Impl::RequireSampling() const
{
    if (!m_source.source)
        throw std::runtime_error("--require-sampling: packets can't be sampled here: " +
                                 m_source.status.reason);
}

void Assembly::Impl::Confine(const Options& options)
{
    std::optional<base::User> user;
    if (!options.user.empty()) {
        user = base::UserNamed(options.user);
        if (!user)
            throw std::runtime_error("--user: there is no user \"" + options.user + "\" on this machine");
        m_server.GiveTo(user->uid, base::FindGroup(options.switchGroup).value_or(user->gid));
    }
    const bool packetSockets = m_source.status.kind == "packet-socket";
    const auto missing = ReducePrivileges(user, {packetSockets, m_source.source && !packetSockets});
    for (const std::string& name : missing)
        if (auto limitation = WithoutCapability(name, m_source.status.kind, ThisMachine());
            !limitation.empty())
            m_limitations.push_back(std::move(limitation));
    if (!m_exporter.Limitation().empty()) m_limitations.push_back(m_exporter.Limitation());
    if (const std::string reason = RestrictSystemCalls(); !reason.empty()) slog::Notice("{}", reason);
    for (const std::string& limitation : m_limitations) slog::Notice("{}", limitation);
    if (!m_source.source) m_limitations.push_back("no packets are sampled: " + m_source.status.reason);
}

/// For answers about everything: reads all interfaces at once.
StatusSources Assembly::Impl::Sources()
{
    m_exporter.TakeErrors();
    StatusSources sources = SourcesOfOne();
    sources.interface = [all = m_reconciler.Interfaces()](const std::string& name) {
        const auto at = all.find(name);
        return at == all.end() ? InterfaceStatus{} : at->second;
    };
    return sources;
}

/// For answers about one thing after the other.
StatusSources Assembly::Impl::SourcesOfOne()
{
    StatusSources sources{m_table, m_own};
    sources.now = m_clock;
    sources.wall = &system_clock::now;
    sources.manager = [this] {
        ManagerStatus status = StatusOf(m_service);
        status.pid = ::getpid();
        status.source = m_reconciler.Source();
        status.discards = m_discards.Source();
        status.perSecond = m_rates.PerSecond();
        status.countsSince = m_statistics.Since();
        status.limitations = m_limitations;
        if (!m_follower.Problem().empty()) status.limitations.push_back(m_follower.Problem());
        return status;
    };
    sources.interface = [this](const std::string& name) { return m_reconciler.Interface(name); };
    sources.collector = [this](const std::string& name) {
        const Stream* stream = m_exporter.Find(name);
        return stream == nullptr ? nullptr : &stream->Status();
    };
    sources.drops = [this] { return m_discards.Drops(); };
    sources.links = &m_monitor.CurrentLinks();
    return sources;
}

TrafficCounts Assembly::Impl::Sent()
{
    TrafficCounts counts;
    for (const auto& [name, settings] : m_table.AllCollectors()) {
        const Stream* stream = m_exporter.Find(name);
        if (stream == nullptr) continue;
        const StreamStatus& status = stream->Status();
        counts.samples += status.flowSamples + status.counterSamples;
        counts.datagrams += status.datagrams;
    }
    return counts;
}

void Assembly::Impl::TestCollector(const std::string& name, const ActionDone& done)
{
    const auto& collectors = m_table.AllCollectors();
    const auto at = collectors.find(name);
    if (at == collectors.end())
        return done({"there is no collector " + name +
                         " in effect; show sflow problems says whether it is disabled or does not exist",
                     {}});
    const auto tell = [done](const CollectorTested& tested) {
        done({"",
              {{"outcome", Name(tested.outcome)},
               {"sub-agent", std::to_string(tested.datagram.subAgent)},
               {"sequence", std::to_string(tested.datagram.sequence)},
               {"text", tested.Text()},
               {"command", tested.Command()}}});
    };
    if (!m_tests.Start(name, at->second.settings, m_own.Of(name).send, m_exporter.Head(), tell))
        done({"too many collectors are being tested; try again in a second", {}});
}

ActionResult Assembly::Impl::LookInto(const std::string& interface)
{
    if (!m_table.AllInterfaces().contains(interface))
        return {"there is no interface " + interface + " in effect; show sflow interfaces lists them", {}};
    const auto top = m_talkers.Look(interface, m_reconciler.Interface(interface));
    return top ? TalkersOutput(*top) : ActionResult{top.error(), {}};
}

std::unique_ptr<StateParts> Assembly::Impl::BeginAnswer(const ipc::cdb::StateRequest& request)
{
    WantedState wanted;
    for (const auto& part : request.parts())
        if (part.path() == kStatePath) wanted = WantedState::From(part);
    return std::make_unique<StateAnswer>(AnswerSources(), std::move(wanted));
}

StateAnswer::Sources Assembly::Impl::AnswerSources()
{
    return {SourcesOfOne(),
            [this] { m_exporter.TakeErrors(); },
            m_configuration.Reader(),
            m_configuration.Problem(),
            {},
            &m_statistics};
}

Assembly::Assembly(boost::asio::io_context& loop, const Options& options, const std::string& directory)
{
    RaiseFileLimit();
    m_impl = std::make_unique<Impl>(loop, options, directory);
}

Assembly::~Assembly() = default;

}  // namespace manager
