// A real sflow-mgr (see the header).

#include "sampling/measured_manager.h"

#include <linux/bpf.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "sampling/forwarding_path.h"
#include "support/world.h"

namespace sampling {
namespace {

constexpr const char* kCollector = "c1";

}  // namespace

std::string NameOf(Capture capture) { return capture == Capture::kEbpf ? "eBPF" : "packet sockets"; }

MeasuredManager::MeasuredManager(Capture capture, std::uint16_t collectorPort) : m_capture(capture)
{
    const auto log = m_dir.Path() / "log";
    support::Command command{
        .argv = {support::World::Program("sflow-mgr"), "--source",
                 capture == Capture::kEbpf ? "ebpf" : "packet-socket"},
        .environment = {{"SFLOW_RUN_DIR", m_dir.Path()}, {"SFLOW_LOG", log}, {"SFLOW_LOG_LEVEL", "12"}},
        .errors = m_dir.Path() / "errors"};
    m_process = std::make_unique<support::Process>(command);
    support::Pin(m_process->Pid(), kManagerCore);
    const auto socket = m_dir.Path() / "manager.sock";
    support::Await("sflow-mgr to listen", [&] {
        if (!m_process->Running())
            throw std::runtime_error("sflow-mgr has ended: " + support::ReadFile(m_dir.Path() / "errors"));
        return support::Accepts(socket);
    });
    m_service = std::make_unique<support::ServiceClient>(socket);
    m_service->SetAgentAddress("192.0.2.1");
    m_service->AddCollector(kCollector, "127.0.0.1", collectorPort);
    m_service->Loaded();
}

void MeasuredManager::Set(const std::string& device, const Interface& settings)
{
    m_service->UpdateInterface({.name = device,
                                .flowCollector = kCollector,
                                .counterCollector = settings.interval != 0 ? kCollector : "",
                                .rate = settings.rate,
                                .interval = settings.interval});
}

void MeasuredManager::Unset(const std::string& device) { m_service->UnsetInterface(device); }

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
    return (m_capture == Capture::kEbpf ? ProgramsAt(device) : PacketSocketsAt(device)) > 0;
}

void MeasuredManager::AwaitSampled(const std::string& device, bool sampled)
{
    const auto index = support::Network::Index(device);
    if (support::Becomes([&] { return Sampled(index) == sampled; }, std::chrono::seconds(10))) return;
    throw support::TimedOut(device + (sampled ? " is not sampled with " : " is still sampled with ") +
                            NameOf(m_capture) + "; sflow-mgr says:\n" +
                            support::ReadFile(m_dir.Path() / "log"));
}

double MeasuredManager::CpuSeconds() const
{
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(m_process->Pid(), &clock) != 0 || ::clock_gettime(clock, &time) != 0)
        throw std::runtime_error("sflow-mgr has no clock: it has ended");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::size_t ProgramsAt(std::uint32_t device)
{
    constexpr std::uint32_t kTcxIngress = 46;  // not in every linux/bpf.h yet
    bpf_attr query{};
    query.query.target_fd = device;  // the interface's index takes this place
    query.query.attach_type = kTcxIngress;
    if (::syscall(SYS_bpf, BPF_PROG_QUERY, &query, sizeof query) != 0) {
        if (errno == ENOENT) return 0;
        throw std::system_error(errno, std::generic_category(), "programs at an interface");
    }
    return query.query.prog_cnt;
}

std::size_t PacketSocketsAt(std::uint32_t device)
{
    // Columns: address, references, type, protocol, interface.
    std::ifstream table("/proc/thread-self/net/packet");
    table.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    std::size_t count = 0;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string address, references, type, protocol;
        std::uint32_t index = 0;
        words >> address >> references >> type >> protocol >> index;
        count += index == device ? 1 : 0;
    }
    return count;
}

}  // namespace sampling
