// A real sflow-mgr (see the header).

#include "samples/agent.h"

#include <arpa/inet.h>
#include <linux/bpf.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "ipc/frame.h"
#include "ipc/manager.pb.h"
#include "support/world.h"

namespace samples_tests {
namespace {

/// In the test's own network, so that it is always free.
constexpr std::uint16_t kMetricsPort = 9100;

std::uint32_t AddressOf(const std::string& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw std::runtime_error("no IPv4 address: " + text);
    return address.s_addr;
}

/// The smallest program that samples packets could be: it passes everything on.
std::string WhyNotEbpf()
{
    std::array<bpf_insn, 2> program{};
    program[0].code = BPF_ALU64 | BPF_MOV | BPF_K;
    program[1].code = BPF_JMP | BPF_EXIT;
    bpf_attr load{};
    load.prog_type = BPF_PROG_TYPE_SCHED_CLS;
    load.insns = reinterpret_cast<std::uintptr_t>(program.data());
    load.insn_cnt = program.size();
    load.license = reinterpret_cast<std::uintptr_t>("GPL");
    const long loaded = ::syscall(SYS_bpf, BPF_PROG_LOAD, &load, sizeof load);
    if (loaded < 0) return std::string("no eBPF programs here: ") + std::strerror(errno);
    ::close(static_cast<int>(loaded));
    return "";
}

void Attach(ipc::manager::Attachment& attachment, const std::string& interface, const std::string& collector)
{
    attachment.set_interface(interface);
    attachment.set_collector(collector);
}

std::string Get(std::uint16_t port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const timeval patience{10, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    constexpr std::string_view kRequest =
        "GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    std::string answer;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(socket, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) > 0) {
        std::array<char, 8192> part{};
        for (ssize_t got; (got = ::recv(socket, part.data(), part.size(), 0)) > 0;)
            answer.append(part.data(), static_cast<std::size_t>(got));
    }
    ::close(socket);
    return answer;
}

}  // namespace

std::string WhyNotSource(std::string_view source)
{
    if (source != "packet-socket") return WhyNotEbpf();
    const int socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (socket < 0) return std::string("no packet sockets here: ") + std::strerror(errno);
    ::close(socket);
    return "";
}

Agent::Agent(const std::string& source, const std::vector<std::string>& arguments)
{
    const auto log = m_dir.Path() / "log";
    support::Command command{
        .argv = {support::World::Program("sflow-mgr"), "--source", source, "--metrics",
                 "127.0.0.1:" + std::to_string(kMetricsPort)},
        .environment = {{"SFLOW_RUN_DIR", m_dir.Path()}, {"SFLOW_LOG", log}, {"SFLOW_LOG_LEVEL", "11"}},
        .errors = m_dir.Path() / "errors"};
    command.argv.insert(command.argv.end(), arguments.begin(), arguments.end());
    m_process = std::make_unique<support::Process>(command);
    const auto socket = m_dir.Path() / "manager.sock";
    support::Await("sflow-mgr to listen", [&] {
        if (!m_process->Running())
            throw std::runtime_error("sflow-mgr has ended: " + support::ReadFile(m_dir.Path() / "errors"));
        return support::Accepts(socket);
    });
    m_session = std::make_unique<support::FrameClient>(socket);
    ipc::manager::ClientMessage message;
    message.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    message.mutable_hello()->set_process("samples_test");
    message.mutable_hello()->set_pid(::getpid());
    m_session->Send(message);
    ipc::manager::ServerMessage answer;
    if (!m_session->Receive(answer) || !answer.has_opened())
        throw std::runtime_error("sflow-mgr gives no session: " + answer.ShortDebugString());
    SetAddress(kAgentAddress);
    message.mutable_loaded();
    m_session->Send(message);
}

void Agent::AddCollector(const std::string& name, std::uint16_t port, std::uint32_t datagramSize,
                         const std::string& address)
{
    ipc::manager::ClientMessage message;
    auto& collector = *message.mutable_add_collector();
    collector.set_name(name);
    collector.set_address(AddressOf(address));
    collector.set_port(port);
    collector.set_datagram_size(datagramSize);
    Do(message);
}

void Agent::DeleteCollector(const std::string& name)
{
    ipc::manager::ClientMessage message;
    message.mutable_delete_collector()->set_name(name);
    Do(message);
}

void Agent::Update(const std::string& interface, const Sampled& settings)
{
    ipc::manager::ClientMessage message;
    auto& update = *message.mutable_update_interface();
    update.set_interface(interface);
    update.set_sample_collector(settings.flows);
    update.set_counter_collector(settings.counters);
    update.set_rate(settings.rate);
    update.set_direction(static_cast<int>(settings.direction));
    update.set_max_header_size(settings.header);
    update.set_interval(settings.interval);
    Do(message);
    if (!settings.flows.empty() && OfInterface(interface, "present") == 1)
        AwaitMetric("sflow_interface_sampled{interface=\"" + interface + "\"}", 1);
}

void Agent::AddFlows(const std::string& interface, const std::string& collector)
{
    ipc::manager::ClientMessage message;
    Attach(*message.mutable_add_sample_collector(), interface, collector);
    Do(message);
}

void Agent::RemoveFlows(const std::string& interface, const std::string& collector)
{
    ipc::manager::ClientMessage message;
    Attach(*message.mutable_remove_sample_collector(), interface, collector);
    Do(message);
}

void Agent::AddCounters(const std::string& interface, const std::string& collector)
{
    ipc::manager::ClientMessage message;
    Attach(*message.mutable_add_counter_collector(), interface, collector);
    Do(message);
}

void Agent::Unset(const std::string& interface)
{
    ipc::manager::ClientMessage message;
    message.mutable_unset_interface()->set_interface(interface);
    Do(message);
}

void Agent::SetAddress(const std::string& address)
{
    ipc::manager::ClientMessage message;
    message.mutable_set_agent_address()->set_address(AddressOf(address));
    Do(message);
}

void Agent::Do(const ipc::manager::ClientMessage& operation)
{
    m_session->Send(operation);
    AwaitMetric("sflow_manager_operations_total", ++m_operations);
    if (Metric("sflow_manager_operations_refused_total") != 0)
        throw std::runtime_error("refused: " + operation.ShortDebugString() + "\n" + Log());
}

std::string Agent::Metrics() const { return Get(kMetricsPort); }

std::uint64_t Agent::Metric(const std::string& name) const
{
    const std::string text = Metrics();
    const auto at = text.find("\n" + name + " ");
    if (at == std::string::npos) throw std::runtime_error("no metric " + name + " in:\n" + text);
    return std::stoull(text.substr(at + name.size() + 2));
}

std::uint64_t Agent::OfInterface(const std::string& interface, const std::string& name) const
{
    return Metric("sflow_interface_" + name + "{interface=\"" + interface + "\"}");
}

void Agent::AwaitMetric(const std::string& name, std::uint64_t value) const
{
    std::uint64_t last = 0;
    const auto has = [&] { return (last = Metric(name)) == value; };
    if (support::Becomes(has)) return;
    throw support::TimedOut(name + " is " + std::to_string(last) + ", not " + std::to_string(value) +
                            "; the log says:\n" + Log());
}

std::string Agent::Log() const { return support::ReadFile(m_dir.Path() / "log"); }

}  // namespace samples_tests
