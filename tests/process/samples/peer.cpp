// SPDX-License-Identifier: Apache-2.0
// Collectors of other people's (see the header).

#include "samples/peer.h"

#include <csignal>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "support/network.h"

namespace samples_tests {
namespace {

/// What waits at the UDP socket of a port in this namespace: bytes, and datagrams lost. Nullopt if
/// no program listens.
struct Waiting {
    std::uint64_t bytes = 0, lost = 0;
};
std::optional<Waiting> WaitingAt(std::uint16_t port)
{
    std::ifstream table("/proc/thread-self/net/udp");
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        std::istringstream words(line);
        std::string slot, local, remote, state, queues, timer, retransmits;
        std::uint64_t user = 0, timeout = 0, inode = 0, references = 0, lost = 0;
        std::string pointer;
        words >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> user >> timeout >>
            inode >> references >> pointer >> lost;
        if (std::stoul(local.substr(local.find(':') + 1), nullptr, 16) != port) continue;
        return Waiting{std::stoull(queues.substr(queues.find(':') + 1), nullptr, 16), lost};
    }
    return std::nullopt;
}

}  // namespace

std::string Peer::WhyNot(const std::string& program)
{
    const support::TempDir directory;
    try {
        support::Run(directory.Path(), {program, "-V"});
        return "";
    } catch (const std::system_error& error) {
        return "no " + program + ": " + error.what();
    }
}

void Peer::Start(const std::vector<std::string>& argv)
{
    m_process = std::make_unique<support::Process>(
        support::Command{.argv = argv, .output = m_dir.Path() / "log", .errors = m_dir.Path() / "log"});
    support::Await(argv[0] + " to listen", [&] {
        if (!m_process->Running()) throw std::runtime_error(argv[0] + " has ended: " + Log());
        return WaitingAt(kPort).has_value();
    });
}

void Peer::AwaitTaken()
{
    support::Await("the peer to take its datagrams", [] {
        const auto waiting = WaitingAt(kPort);
        if (!waiting) throw std::runtime_error("the peer listens no more");
        return waiting->bytes == 0;
    });
}

std::uint64_t Peer::End()
{
    AwaitTaken();
    const std::uint64_t lost = WaitingAt(kPort).value_or(Waiting{}).lost;
    m_process->Signal(m_endBy);
    m_process->Wait();
    return lost;
}

std::string Peer::Log() const { return support::ReadFile(m_dir.Path() / "log"); }

Sfcapd::Sfcapd() : Peer(SIGTERM)
{
    std::filesystem::create_directory(Dir() / "flows");
    Start({kProgram, "-4", "-b", "127.0.0.1", "-p", std::to_string(kPort), "-w", Dir() / "flows", "-t",
           "3600"});
}

std::string Sfcapd::Flows(const std::string& fields) const
{
    return support::Network::Run({"nfdump", "-q", "-N", "-R", Dir() / "flows", "-o", "fmt:" + fields});
}

Sfacctd::Sfacctd(const std::string& aggregate) : Peer(SIGINT)
{
    support::WriteFile(Dir() / "conf",
                       "plugins: print\nsfacctd_ip: 127.0.0.1\nsfacctd_port: " + std::to_string(kPort) +
                           "\nsfacctd_renormalize: true\naggregate: " + aggregate +
                           "\nprint_output: json\nprint_refresh_time: 3600\n"
                           "print_output_file: " +
                           (Dir() / "totals").string() + "\n");
    Start({kProgram, "-f", Dir() / "conf"});
    // A process of its own prints. If it is told to end before it is there, all is lost.
    support::Await("sfacctd's printing process",
                   [this] { return Log().find("JSON: setting object handlers") != std::string::npos; });
}

std::vector<nlohmann::json> Sfacctd::Totals() const
{
    std::vector<nlohmann::json> totals;
    std::istringstream lines(support::ReadFile(Dir() / "totals"));
    for (std::string line; std::getline(lines, line);) totals.push_back(nlohmann::json::parse(line));
    return totals;
}

}  // namespace samples_tests
