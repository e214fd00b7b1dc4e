// SPDX-License-Identifier: Apache-2.0
// sflow-mgr: the sFlow manager's process. Wires its parts and waits.

#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include <boost/asio/detail/concurrency_hint.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "base/directories.h"
#include "base/options/options.h"
#include "base/timers.h"
#include "ipc/notify.h"
#include "log/forward.h"
#include "log/log.h"
#include "manager/process/assembly.h"
#include "manager/process/options.h"

namespace {

void Run(const manager::Options& options)
{
    const std::string directory = base::RunDirectory();
    // Operators and the switch's processes must be able to pass through it: see docs/architecture.md.
    if (std::filesystem::create_directories(directory))
        std::filesystem::permissions(directory, std::filesystem::perms{0751});

    // Only this thread touches the loop, so it needs no locks.
    boost::asio::io_context loop(BOOST_ASIO_CONCURRENCY_HINT_UNSAFE);
    boost::asio::signal_set signals(loop, SIGTERM, SIGINT);
    signals.async_wait([&loop](const boost::system::error_code& error, int) {
        if (!error) loop.stop();
    });
    std::signal(SIGPIPE, SIG_IGN);  // the log may be a pipe whose reader has gone
    const auto timers = base::MakeTimers(loop);
    ipc::ServiceNotifier serviceManager(*timers);  // connects before system calls are restricted
    const manager::Assembly assembly(loop, options, directory);
    serviceManager.Ready();
    slog::Notice("sFlow manager ready on {}/manager.sock", directory);
    loop.run();
    slog::Notice("sFlow manager ended");
}

}  // namespace

int main(int argc, char** argv)
{
    slog::Open("sflow-mgr");
    slog::ForwardToDatabase();
    try {
        const manager::Options options = manager::ParseOptions(argc, argv);
        if (options.help) std::cout << manager::UsageText();
        if (options.version) std::cout << base::VersionText("sflow-mgr");
        if (!options.help && !options.version) Run(options);
        return EXIT_SUCCESS;
    } catch (const base::UsageError& error) {
        std::cerr << "sflow-mgr: " << error.what() << "\n\n" << manager::UsageText();
    } catch (const std::exception& error) {
        slog::Error("{}", error.what());
        if (base::LogFile()) std::cerr << "sflow-mgr: " << error.what() << '\n';
    }
    return EXIT_FAILURE;
}
