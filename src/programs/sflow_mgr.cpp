// sflow-mgr: the sFlow manager's process. Wires its parts and waits.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "ipc/timers.h"
#include "log/log.h"
#include "manager/journal.h"
#include "manager/options.h"
#include "manager/service.h"
#include "manager/session_server.h"
#include "manager/snapshot.h"
#include "manager/state.h"
#include "manager/state_json.h"
#include "manager/state_provider.h"
#include "manager/privileges.h"

namespace {

std::string RunDirectory()
{
    const char* directory = std::getenv("SFLOW_RUN_DIR");
    return directory == nullptr || *directory == '\0' ? "/run/sflow-switch" : directory;
}

/// Whether log lines do not reach who starts the program.
bool LogIsFile()
{
    const char* log = std::getenv("SFLOW_LOG");
    return log != nullptr && *log != '\0' && std::string(log) != "-";
}

void Run(const manager::Options& options)
{
    if (options.requireSampling)
        throw std::runtime_error("--require-sampling: this build does not sample packets; start without it");
    const std::string directory = RunDirectory();
    std::filesystem::create_directories(directory);

    // Destroyed from the last to the first: whoever is called from the loop goes before it.
    boost::asio::io_context loop;
    boost::asio::signal_set signals(loop, SIGTERM, SIGINT);
    signals.async_wait([&loop](const boost::system::error_code& error, int) {
        if (!error) loop.stop();
    });
    std::signal(SIGPIPE, SIG_IGN);  // a journal may be a pipe that nobody reads
    const auto timers = ipc::MakeTimers(loop);
    const auto journal =
        options.journal.empty() ? nullptr : std::make_unique<manager::Journal>(options.journal);
    manager::State state;
    manager::Service service(state, journal.get(), &std::chrono::system_clock::now);
    manager::SessionServer server(loop, *timers, directory + "/manager.sock", service);
    manager::StateProvider provider(
        loop, *timers, directory + "/cdb.sock",
        {[&service,
          sources = manager::StatusSources{.now = &std::chrono::system_clock::now, .pid = ::getpid()}](
             std::string_view configuration) { return manager::StateJson(service, sources, configuration); },
         [&server] {
             return std::string(server.RequestResync() ? "" : "the configuration daemon has no session");
         }});
    if (!options.user.empty()) {
        const manager::User user = manager::FindUser(options.user);
        server.GiveTo(user.uid, user.gid);
        manager::ReducePrivileges(user, {});
    }

    provider.Start();
    slog::Notice("sFlow manager ready on {}/manager.sock", directory);
    loop.run();
    provider.Stop();
    server.Stop();
    slog::Notice("sFlow manager ended");
}

}  // namespace

int main(int argc, char** argv)
{
    slog::Open("sflow-mgr");
    try {
        const manager::Options options = manager::ParseOptions(argc, argv);
        if (options.help) std::cout << manager::UsageText();
        if (options.version) std::cout << manager::VersionText();
        if (!options.help && !options.version) Run(options);
        return EXIT_SUCCESS;
    } catch (const manager::UsageError& error) {
        std::cerr << "sflow-mgr: " << error.what() << "\n\n" << manager::UsageText();
    } catch (const std::exception& error) {
        slog::Error("{}", error.what());
        if (LogIsFile()) std::cerr << "sflow-mgr: " << error.what() << '\n';
    }
    return EXIT_FAILURE;
}
