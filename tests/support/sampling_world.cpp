// A small switch with a real sflow-mgr on it (see the header).

#include "support/sampling_world.h"

#include <linux/bpf.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "support/poll.h"
#include "support/world.h"

namespace support {
namespace {

/// All cables and the bridge, with two runs of `ip`.
void MakeSwitch(unsigned ports)
{
    std::string lines;
    std::vector<std::string> names;
    for (unsigned port = 1; port <= ports; ++port) {
        const std::string number = std::to_string(port);
        lines += "link add p" + number + " type veth peer name h" + number + "\n";
        lines += "link set h" + number + " up\nlink set p" + number + " up\n";
        names.push_back("p" + number);
    }
    Network::Ip(lines);
    Network::MakeBridge("br0", names);
    // Not what is tested, and slow.
    const std::string toFirewall = "/proc/sys/net/bridge/bridge-nf-call-iptables";
    if (::access(toFirewall.c_str(), W_OK) == 0) std::ofstream(toFirewall) << "0";
}

/// A cable drops what it is given for a while after it came up. The bridge learns the hosts besides.
void AwaitCables(unsigned ports)
{
    for (unsigned port = 1; port <= ports; ++port) {
        const std::string number = std::to_string(port);
        Injector host("h" + number);
        const auto from = static_cast<std::uint8_t>(port);
        const Bytes frame = SamplingWorld::Frame(from, port == 1 ? 2 : 1);
        Await("the cable of p" + number, [&] {
            host.Send(frame);
            return SamplingWorld::Statistic("p" + number) > 0;
        });
    }
}

/// The smallest program that could be attached: it passes everything on. Negative where none is allowed.
int LoadProgram()
{
    std::array<bpf_insn, 2> program{};
    program[0].code = BPF_ALU64 | BPF_MOV | BPF_K;
    program[1].code = BPF_JMP | BPF_EXIT;
    bpf_attr load{};
    load.prog_type = BPF_PROG_TYPE_SCHED_CLS;
    load.insns = reinterpret_cast<std::uintptr_t>(program.data());
    load.insn_cnt = program.size();
    load.license = reinterpret_cast<std::uintptr_t>("GPL");
    return static_cast<int>(::syscall(SYS_bpf, BPF_PROG_LOAD, &load, sizeof load));
}

}  // namespace

int ProgramsAtTcx(const std::string& device)
{
    constexpr std::uint32_t kTcxIngress = 46;  // not in every linux/bpf.h yet
    bpf_attr query{};
    query.query.target_fd = Network::Index(device);  // the interface's index takes this place
    query.query.attach_type = kTcxIngress;
    if (::syscall(SYS_bpf, BPF_PROG_QUERY, &query, sizeof query) == 0)
        return static_cast<int>(query.query.prog_cnt);
    return errno == ENOENT ? 0 : -1;
}

std::string WhyNotSource(const std::string& source)
{
    if (source == "packet-socket") {
        const int socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        if (socket < 0) return std::string("no packet sockets here: ") + std::strerror(errno);
        ::close(socket);
        return "";
    }
    const int program = LoadProgram();
    if (program < 0) return std::string("no eBPF programs here: ") + std::strerror(errno);
    ::close(program);
    return source == "ebpf-tcx" && ProgramsAtTcx("lo") < 0 ? "the kernel has no tcx" : "";
}

SamplingWorld::SamplingWorld(SamplingOptions options) : m_options(std::move(options))
{
    MakeSwitch(m_options.ports);
    AwaitCables(m_options.ports);
    StartManager();
    OpenSession();
}

SamplingWorld::~SamplingWorld() = default;

void SamplingWorld::StartManager()
{
    m_service.reset();
    m_manager.reset();
    m_before = 0;
    Command command{.argv = m_options.before, .environment = m_options.environment};
    command.argv.insert(command.argv.end(), {World::Program("sflow-mgr"), "--journal", JournalPath(),
                                             "--metrics", "127.0.0.1:" + std::to_string(MetricsPort())});
    command.argv.insert(command.argv.end(), m_options.arguments.begin(), m_options.arguments.end());
    command.environment["SFLOW_RUN_DIR"] = Dir() / "run";
    command.environment["SFLOW_LOG"] = Dir() / "log";
    command.environment["SFLOW_LOG_LEVEL"] = std::to_string(m_options.logLevel);
    command.errors = Dir() / "errors";
    m_manager = std::make_unique<Process>(command);
    Await("sflow-mgr to listen", [&] {
        if (!m_manager->Running())
            throw std::runtime_error("sflow-mgr has ended: " + ReadFile(Dir() / "errors") + Log());
        return Accepts(Socket());
    });
}

void SamplingWorld::OpenSession()
{
    CloseSession();
    // Its end has to be noticed first.
    Await("a session", [&] {
        try {
            m_service = std::make_unique<ServiceClient>(Socket());
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    });
}

void SamplingWorld::CloseSession()
{
    if (m_service) m_before += m_service->Operations();
    m_service.reset();
}

void SamplingWorld::AwaitApplied() const
{
    const std::uint64_t sent = m_before + (m_service ? m_service->Operations() : 0);
    Await("the operations to be in effect",
          [&] { return Numbers().At("sflow_manager_operations_total") == sent; });
}

void SamplingWorld::AddCollector(const std::string& name, const DecodingCollector& at, std::uint16_t size)
{
    m_service->AddCollector(name, at.Address(), at.Port(), size);
}

std::uint64_t SamplingWorld::Statistic(const std::string& device, bool sent)
{
    constexpr int kColumnsBetween = 8;
    std::ifstream devices("/proc/thread-self/net/dev");
    for (std::string line; std::getline(devices, line);) {
        std::istringstream words(line);
        std::string name;
        if (!std::getline(words >> std::ws, name, ':') || name != device) continue;
        std::uint64_t bytes = 0, packets = 0, unused = 0;
        words >> bytes >> packets;
        if (!sent) return packets;
        for (int i = 2; i < kColumnsBetween; ++i) words >> unused;
        words >> bytes >> packets;
        return packets;
    }
    throw std::runtime_error("no counters of " + device);
}

Bytes SamplingWorld::Frame(std::uint8_t from, std::uint8_t to, std::size_t size)
{
    return UdpFrame({.from = from,
                     .to = to,
                     .source = "198.51.100." + std::to_string(from),
                     .destination = "198.51.100." + std::to_string(to),
                     .size = size});
}

}  // namespace support
