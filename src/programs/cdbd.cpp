// SPDX-License-Identifier: Apache-2.0
// cdbd: the configuration database and its management agent. Wires its parts and waits.

#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "agent/access/access.h"
#include "agent/files/configuration_file.h"
#include "agent/log/log_store.h"
#include "agent/process/agent.h"
#include "agent/process/program_options.h"
#include "base/directories.h"
#include "base/options/options.h"
#include "base/text.h"
#include "base/timers.h"
#include "base/user.h"
#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "ipc/notify.h"
#include "ipc/peer.h"
#include "ipc/trust.h"
#include "log/log.h"

/// Read by jemalloc, this process's allocator. Memory freed after a large change goes back to the system
/// soon, by a thread of jemalloc's own; two arenas are enough for the loop and the threads beside it.
extern "C" {
extern const char* malloc_conf;
const char* malloc_conf = "narenas:2,background_thread:true,dirty_decay_ms:500,muzzy_decay_ms:0";
}

namespace {

std::int64_t Now()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

/// What --check prints: that the store is sound, then lines of name and number.
std::string StoreReport(const cdb::StoreFigures& figures)
{
    const std::array<std::pair<const char*, std::uint64_t>, 9> lines{{
        {"last commit      ", figures.commit},
        {"rows             ", figures.rows},
        {"history entries  ", figures.historyEntries},
        {"history bytes    ", figures.historyBytes},
        {"faults           ", figures.faults},
        {"bytes in use     ", (figures.pages - figures.freePages) * figures.pageSize},
        {"pages            ", figures.pages},
        {"free pages       ", figures.freePages},
        {"largest size     ", figures.mapSize},
    }};
    std::string text = "The store is sound.\n";
    for (const auto& [name, number] : lines) text.append(name).append(std::to_string(number)).append("\n");
    return text;
}

void Import(const agent::ProgramOptions& options, const cdb::Schema& schema, const cdb::Store& store,
            cdb::Datastore& datastore)
{
    const auto waiting = store.Pending();
    if (agent::ImportFile(schema, datastore, options.importFile, base::UserName(::geteuid()), Now()))
        slog::Notice("loaded {} as commit {}", options.importFile.string(), store.LastCommit());
    else
        slog::Notice("{} is what commit {} has; nothing was written", options.importFile.string(),
                     store.LastCommit());
    if (waiting)
        slog::Notice("commit {} by {} waited for its confirmation; it is not rolled back any more",
                     waiting->last, waiting->user);
}

void Initialize(const agent::ProgramOptions& options, const cdb::Schema& schema, const cdb::Store& store,
                cdb::Datastore& datastore)
{
    const auto warnings = agent::LoadInitialFile(schema, store, datastore, options.initFile,
                                                 base::UserName(::geteuid()), Now());
    for (const std::string& warning : warnings) slog::Notice("{}", warning);
    slog::Notice("loaded {} as commit {}", options.initFile.string(), store.LastCommit());
}

/// Gives the store to the group of the switch's processes, which read it whatever user this process runs as.
void ShareStore(const agent::ProgramOptions& options)
{
    const auto group = base::FindGroup(options.switchGroup);
    if (!group) return;
    for (const char* name : {"", "data.mdb", "lock.mdb", "writer.lock"})
        if (const auto problem = ipc::GiveToGroup(options.stateDirectory / name, *group); !problem.empty())
            return slog::Notice("{}", problem);
}

agent::AgentOptions AgentOptionsOf(const agent::ProgramOptions& options, std::shared_ptr<agent::LogStore> log)
{
    agent::AgentOptions result;
    result.log = std::move(log);
    result.runDirectory = options.runDirectory;
    result.ackTimes = options.ackTimes;
    result.callpointTimeout = options.callpointTimeout;
    result.adminGroup = options.adminGroup;
    result.switchGroup = options.switchGroup;
    result.trust = ipc::Trust("cdbd", options.switchGroup);
    for (const std::string& allowed : options.allow) result.trust.Allow(allowed);
    result.sessions.most = options.maxSessions;
    result.sessions.mostPerUser = options.maxSessionsPerUser;
    result.sessions.maxMessage = options.maxMessage;
    result.sessions.limits.xml.elements = options.maxElements;
    result.sessions.limits.filterElements = options.maxFilter;
    result.answers.bytes = options.maxUnread;
    result.events = {options.replayEvents, options.replayBytes};
    result.sessions.times.hello = options.helloTimeout;
    result.sessions.times.idle = options.idleTimeout;
    result.metrics = options.metrics;
    return result;
}

/// Reads the access rules again on each SIGHUP.
void FollowReloads(boost::asio::signal_set& reloads, agent::Access& access)
{
    reloads.async_wait([&reloads, &access](const boost::system::error_code& error, int) {
        if (error) return;
        if (const std::string problem = access.Reload(); problem.empty())
            slog::Notice("the rules of access have been read again");
        else
            slog::Error("{}; the rules stay as they were", problem);
        FollowReloads(reloads, access);
    });
}

/// Keeps the lines of this process's log from now on.
std::shared_ptr<agent::LogStore> KeepLog()
{
    auto log = std::make_shared<agent::LogStore>();
    slog::Also([log](const slog::Record& record) {
        const auto since = record.time.time_since_epoch();
        log->Take({std::chrono::duration_cast<std::chrono::microseconds>(since).count(),
                   std::string(record.process), record.level, std::string(record.place),
                   base::Presentable(record.text)});
    });
    return log;
}

void Run(const agent::ProgramOptions& options, std::shared_ptr<agent::LogStore> log)
{
    // The order matters: requests that wait in the loop hold trees of the schema, which must be destroyed
    // last.
    std::unique_ptr<cdb::Schema> schema;
    boost::asio::io_context loop(1);
    boost::asio::signal_set signals(loop, SIGTERM, SIGINT);
    signals.async_wait([&loop](const boost::system::error_code& error, int) {
        if (!error) loop.stop();
    });
    if (options.check) {
        std::cout << StoreReport(cdb::Store::Check(options.stateDirectory));
        return;
    }
    boost::asio::signal_set reloads(loop, SIGHUP);
    const auto timers = base::MakeTimers(loop);
    ipc::ServiceNotifier serviceManager(*timers);
    schema = cdb::Schema::Load(options.yangDirectory);
    if (!options.exportFile.empty())
        return agent::ExportFile(*schema, options.stateDirectory, options.exportFile, std::cout);
    cdb::StoreOptions storeOptions;
    storeOptions.mapSize = options.mapSize;
    storeOptions.historyLimit = options.historyLimit;
    storeOptions.historyBytes = options.historyBytes;
    storeOptions.historyDays = options.historyDays;
    storeOptions.remake = !options.initFile.empty() || !options.importFile.empty();
    const auto store = cdb::Store::Open(options.stateDirectory, storeOptions);
    cdb::Datastore datastore(*schema, *store);
    if (!options.initFile.empty()) return Initialize(options, *schema, *store, datastore);
    if (!options.importFile.empty()) return Import(options, *schema, *store, datastore);

    ShareStore(options);
    const auto admins = base::FindGroup(options.adminGroup);
    agent::Access access(schema->Context(), {options.accessFile, options.yangDirectory,
                                             admins ? base::GroupName(*admins) : std::string()});
    FollowReloads(reloads, access);
    agent::Agent management(loop, *schema, *store, datastore, access,
                            AgentOptionsOf(options, std::move(log)));
    management.Listen();
    serviceManager.Ready();
    slog::Notice("serving {} at commit {}", options.runDirectory.string(), store->LastCommit());
    loop.run();
    slog::Notice("ends");
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        const auto options = agent::ParseOptions(argc, argv, base::ProgramPath(), &base::Variable);
        if (options.help || options.version) {
            std::cout << (options.help ? agent::UsageText() : base::VersionText("cdbd"));
            return EXIT_SUCCESS;
        }
        slog::Open("cdbd");
        Run(options, KeepLog());
        return EXIT_SUCCESS;
    } catch (const base::UsageError& error) {
        std::cerr << "cdbd: " << error.what() << "; see cdbd --help\n";
    } catch (const std::exception& error) {
        slog::Error("{}", error.what());
        if (base::LogFile()) std::cerr << "cdbd: " << error.what() << "\n";
    }
    return EXIT_FAILURE;
}
