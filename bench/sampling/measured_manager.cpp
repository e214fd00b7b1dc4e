// A real sflow-mgr (see the header).

#include "sampling/measured_manager.h"

#include <arpa/inet.h>
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

#include "ipc/frame.h"
#include "ipc/manager.pb.h"
#include "sampling/forwarding_path.h"
#include "support/world.h"

namespace sampling {
namespace {

constexpr const char* kCollector = "c1";
constexpr int kIngress = 2;
constexpr int kHeaderSize = 128;
constexpr int kDatagramSize = 1400;

std::uint32_t AddressOf(const char* text)
{
    in_addr address{};
    ::inet_pton(AF_INET, text, &address);
    return address.s_addr;
}

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
    m_session = std::make_unique<support::FrameClient>(socket);
    ipc::manager::ClientMessage message;
    message.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    message.mutable_hello()->set_process("sampling_figures");
    message.mutable_hello()->set_pid(::getpid());
    m_session->Send(message);
    ipc::manager::ServerMessage answer;
    if (!m_session->Receive(answer) || !answer.has_opened())
        throw std::runtime_error("sflow-mgr gives no session: " + answer.ShortDebugString());
    message.mutable_set_agent_address()->set_address(AddressOf("192.0.2.1"));
    m_session->Send(message);
    auto& collector = *message.mutable_add_collector();
    collector.set_name(kCollector);
    collector.set_address(AddressOf("127.0.0.1"));
    collector.set_port(collectorPort);
    collector.set_datagram_size(kDatagramSize);
    m_session->Send(message);
    message.mutable_loaded();
    m_session->Send(message);
}

void MeasuredManager::Set(const std::string& device, const Interface& settings)
{
    ipc::manager::ClientMessage message;
    auto& update = *message.mutable_update_interface();
    update.set_interface(device);
    update.set_sample_collector(kCollector);
    if (settings.interval != 0) update.set_counter_collector(kCollector);
    update.set_rate(settings.rate);
    update.set_direction(kIngress);
    update.set_max_header_size(kHeaderSize);
    update.set_interval(settings.interval);
    m_session->Send(message);
}

void MeasuredManager::Unset(const std::string& device)
{
    ipc::manager::ClientMessage message;
    message.mutable_unset_interface()->set_interface(device);
    m_session->Send(message);
}

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
