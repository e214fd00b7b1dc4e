// SPDX-License-Identifier: Apache-2.0
// A real sflow-mgr (see the header).

#include "sampling/measured_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "figures/process_usage.h"
#include "sampling/forwarding_path.h"
#include "support/frames.h"
#include "support/kernel.h"

namespace sampling {
namespace {

constexpr const char* kCollector = "c1";

}  // namespace

SilentDatabase::SilentDatabase(const std::filesystem::path& socket)
    : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_un address = support::UnixAddress(socket);
    std::filesystem::create_directories(socket.parent_path());
    if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_socket, 1) != 0)
        throw std::system_error(errno, std::generic_category(), socket.string());
}

SilentDatabase::~SilentDatabase() { ::close(m_socket); }

std::string NameOf(Capture capture) { return capture == Capture::kEbpf ? "eBPF" : "packet sockets"; }

MeasuredManager::MeasuredManager(Capture capture, std::uint16_t collectorPort)
    : m_capture(capture),
      m_database(m_dir.Path() / "run" / "cdb.sock"),
      m_manager(
          m_dir.Path(),
          // Thousands of interfaces would be attached for a minute, which is no figure of these.
          {.arguments = {"--source", capture == Capture::kEbpf ? "ebpf" : "packet-socket", "--expedite-rcu"},
           .before = {"taskset", "--cpu-list", std::to_string(kManagerCore)},
           .logLevel = 12}),
      m_service(m_manager.Socket())
{
    m_service.SetAgentAddress("192.0.2.1");
    m_service.AddCollector(kCollector, "127.0.0.1", collectorPort);
    m_service.Loaded();
}

void MeasuredManager::Set(const std::string& device, const Interface& settings)
{
    m_service.UpdateInterface({.name = device,
                               .flowCollector = kCollector,
                               .counterCollector = settings.interval != 0 ? kCollector : "",
                               .rate = settings.rate,
                               .interval = settings.interval});
}

void MeasuredManager::Unset(const std::string& device) { m_service.UnsetInterface(device); }

void MeasuredManager::Sample(const std::string& device, std::uint32_t rate)
{
    Set(device, {.rate = rate});
    AwaitSampled(device);
}

void MeasuredManager::StopSampling(const std::string& device)
{
    Unset(device);
    AwaitSampled(device, false);
}

bool MeasuredManager::Sampled(std::uint32_t device) const
{
    if (m_capture == Capture::kPacketSockets) return !support::PacketSocketsAt(device).empty();
    const int programs = support::ProgramsAtTcx(device);
    if (programs < 0) throw std::system_error(errno, std::generic_category(), "programs at an interface");
    return programs > 0;
}

void MeasuredManager::AwaitSampled(const std::string& device, bool sampled)
{
    const auto index = support::Network::Index(device);
    if (support::Becomes([&] { return Sampled(index) == sampled; }, std::chrono::seconds(10))) return;
    throw support::TimedOut(device + (sampled ? " is not sampled with " : " is still sampled with ") +
                            NameOf(m_capture) + "; sflow-mgr says:\n" + m_manager.Log());
}

double MeasuredManager::CpuSeconds() const { return figures::CpuSeconds(m_manager.Pid()); }

}  // namespace sampling
