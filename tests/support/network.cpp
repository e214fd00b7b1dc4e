// SPDX-License-Identifier: Apache-2.0
#include "support/network.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "support/poll.h"

namespace support {
namespace {

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void WriteFile(const std::string& path, const std::string& text)
{
    const int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        const int error = errno;
        if (file >= 0) ::close(file);
        errno = error;
        Fail(path);
    }
    ::close(file);
}

void Unshare()
{
    if (::unshare(CLONE_NEWNET) == 0) return;
    const auto user = ::geteuid();
    const auto group = ::getegid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) Fail("a network namespace can't be made");
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

/// Without addresses of its own, a new interface sends nothing.
void Quieten()
{
    for (const char* scope : {"all", "default"}) {
        const std::string path = std::string("/proc/sys/net/ipv6/conf/") + scope + "/";
        if (::access(path.c_str(), F_OK) != 0) continue;
        WriteFile(path + "addr_gen_mode", "1");
        WriteFile(path + "router_solicitations", "0");
    }
    // Switches turn this off: bridged frames would take a way of their own, and a slow one.
    const std::string toFirewall = "/proc/sys/net/bridge/bridge-nf-call-iptables";
    if (::access(toFirewall.c_str(), W_OK) == 0) WriteFile(toFirewall, "0");
}

std::string ReadAll(int file)
{
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t got; (got = ::read(file, part.data(), part.size())) > 0;)
        text.append(part.data(), static_cast<std::size_t>(got));
    return text;
}

struct Outcome {
    int status;
    std::string output, errors;
};

/// `input` goes to its standard input.
Outcome Execute(const std::vector<std::string>& arguments, const std::string& input)
{
    int out[2], err[2];
    const int in = ::memfd_create("input", MFD_CLOEXEC);
    if (in < 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) Fail("pipe");
    if (::write(in, input.data(), input.size()) != static_cast<ssize_t>(input.size())) Fail("memfd");
    ::lseek(in, 0, SEEK_SET);
    std::vector<char*> argv;
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = ::fork();
    if (child < 0) Fail("fork");
    if (child == 0) {
        ::dup2(in, 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(in);
    ::close(out[1]);
    ::close(err[1]);
    Outcome outcome{};
    outcome.output = ReadAll(out[0]);  // errors are short: they fit the pipe
    outcome.errors = ReadAll(err[0]);
    ::close(out[0]);
    ::close(err[0]);
    ::waitpid(child, &outcome.status, 0);
    return outcome;
}

std::string Checked(const std::vector<std::string>& arguments, const std::string& input)
{
    Outcome outcome = Execute(arguments, input);
    if (outcome.status != 0) {
        std::string line;
        for (const std::string& argument : arguments) line += argument + " ";
        throw std::runtime_error(line + "failed: " + outcome.errors + input);
    }
    return outcome.output;
}

class Writer {
public:
    explicit Writer(std::size_t size) { m_bytes.reserve(size); }
    void U8(unsigned value) { m_bytes.push_back(static_cast<std::byte>(value)); }
    void U16(unsigned value) { U8(value >> 8), U8(value & 0xff); }
    void U32(std::uint32_t value) { U16(value >> 16), U16(value & 0xffff); }
    void U64(std::uint64_t value)
    {
        U32(static_cast<std::uint32_t>(value >> 32)), U32(static_cast<std::uint32_t>(value));
    }
    void Put(std::span<const std::uint8_t> bytes)
    {
        for (const auto byte : bytes) U8(byte);
    }
    void FillTo(std::size_t size)
    {
        while (m_bytes.size() < size) U8(m_bytes.size() & 0xff);
    }
    [[nodiscard]] std::size_t Size() const { return m_bytes.size(); }
    [[nodiscard]] Bytes Take() { return std::move(m_bytes); }
    [[nodiscard]] std::byte& At(std::size_t index) { return m_bytes[index]; }

private:
    Bytes m_bytes;
};

void PutChecksum(Writer& writer, std::size_t begin)
{
    std::uint32_t sum = 0;
    for (std::size_t i = begin; i < begin + 20; i += 2)
        sum += std::to_integer<std::uint32_t>(writer.At(i)) << 8 |
               std::to_integer<std::uint32_t>(writer.At(i + 1));
    while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
    sum = ~sum & 0xffff;
    writer.At(begin + 10) = static_cast<std::byte>(sum >> 8);
    writer.At(begin + 11) = static_cast<std::byte>(sum & 0xff);
}

}  // namespace

Network::Network()
{
    Unshare();
    Quieten();
    Ip("link set lo up");
}

Network::~Network() = default;

std::string Network::WhyNot()
{
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            Unshare();
            ::_exit(0);
        } catch (const std::exception&) {
            ::_exit(1);
        }
    }
    int status = 1;
    ::waitpid(child, &status, 0);
    return status == 0 ? "" : "network namespaces can't be made here: needs root or user namespaces";
}

void Network::Ip(const std::string& lines) { Checked({"ip", "-batch", "-"}, lines + "\n"); }
void Network::Bridge(const std::string& lines) { Checked({"bridge", "-batch", "-"}, lines + "\n"); }
std::string Network::Run(const std::vector<std::string>& arguments) { return Checked(arguments, ""); }

void Network::Veth(const std::string& one, const std::string& other)
{
    Ip("link add " + one + " type veth peer name " + other + "\nlink set " + one + " up\nlink set " + other +
       " up");
    for (const std::string& end : {one, other}) AwaitSending(end);
}

void Network::AwaitSending(const std::string& device)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) Fail("socket");
    ifreq request{};
    device.copy(request.ifr_name, sizeof request.ifr_name - 1);
    const bool isRunning = Becomes([&] {
        return ::ioctl(socket, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0;
    });
    // The kernel gives the interface its queue after that, under the lock that a change of flags waits for.
    const bool isChanged = isRunning && ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
    ::close(socket);
    if (!isChanged) throw std::runtime_error("interface " + device + " does not begin to run");
}

void Network::MakeBridge(const std::string& name, const std::vector<std::string>& ports)
{
    std::string lines =
        "link add " + name + " type bridge stp_state 0 mcast_snooping 0\nlink set " + name + " up\n";
    for (const std::string& port : ports) lines += "link set " + port + " master " + name + "\n";
    Ip(lines);
}

std::uint32_t Network::Index(const std::string& device)
{
    const unsigned index = ::if_nametoindex(device.c_str());
    if (index == 0) Fail("no interface " + device);
    return index;
}

Network::Host::Host()
{
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) Fail("pipe");
    m_pid = ::fork();
    if (m_pid < 0) Fail("fork");
    if (m_pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        char byte = 0;
        try {
            if (::unshare(CLONE_NEWNET) != 0) Fail("unshare");
            Quieten();
            Network::Ip("link set lo up");
            byte = 1;
        } catch (const std::exception&) {
        }
        (void)!::write(ready[1], &byte, 1);
        for (;;) ::pause();
    }
    ::close(ready[1]);
    char byte = 0;
    const bool made = ::read(ready[0], &byte, 1) == 1 && byte == 1;
    ::close(ready[0]);
    if (!made) throw std::runtime_error("a host's namespace can't be made");
}

Network::Host::~Host()
{
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
}

std::string Network::Host::Run(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> all{"nsenter", "--net=/proc/" + std::to_string(m_pid) + "/ns/net"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Checked(all, "");
}

int Network::Host::Enter() const
{
    const int back = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int there = ::open(("/proc/" + std::to_string(m_pid) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
    if (back < 0 || there < 0 || ::setns(there, CLONE_NEWNET) != 0)
        Fail("a host's namespace can't be entered");
    ::close(there);
    return back;
}

void Network::Host::Leave(int back)
{
    if (::setns(back, CLONE_NEWNET) != 0) std::abort();  // everything after it would be elsewhere
    ::close(back);
}

Injector::Injector(const std::string& device)
    : m_socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0))  // protocol 0: receives nothing
{
    if (m_socket < 0) Fail("packet socket");
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(Network::Index(device));
    if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        Fail("bind " + device);
    const int size = 8 << 20;
    ::setsockopt(m_socket, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
}

Injector::~Injector() { ::close(m_socket); }

void Injector::Send(std::span<const std::byte> frame)
{
    if (::send(m_socket, frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size()))
        Fail("send frame");
}

void Injector::Send(const std::vector<Bytes>& frames)
{
    constexpr std::size_t kBatch = 256;
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> parts{};
    for (std::size_t done = 0; done < frames.size();) {
        const std::size_t count = std::min(kBatch, frames.size() - done);
        for (std::size_t i = 0; i < count; ++i) {
            parts[i] = {const_cast<std::byte*>(frames[done + i].data()), frames[done + i].size()};
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int sent = ::sendmmsg(m_socket, messages.data(), static_cast<unsigned>(count), 0);
        if (sent <= 0) Fail("send frames");
        done += static_cast<std::size_t>(sent);
    }
}

std::vector<std::uint8_t> Mac(std::uint8_t number) { return {2, 0, 0, 0, 0, number}; }

Bytes UdpFrame(const FrameOptions& options)
{
    Writer writer(options.size);
    writer.Put(Mac(options.to));
    writer.Put(Mac(options.from));
    for (const std::uint32_t tag : options.tags) writer.U32(tag);
    const bool six = options.source.find(':') != std::string::npos;
    std::array<std::uint8_t, 32> addresses{};
    const std::size_t length = six ? 16 : 4;
    const int family = six ? AF_INET6 : AF_INET;
    if (::inet_pton(family, options.source.c_str(), addresses.data()) != 1 ||
        ::inet_pton(family, options.destination.c_str(), addresses.data() + length) != 1)
        throw std::runtime_error("no addresses: " + options.source + ", " + options.destination);
    writer.U16(six ? ETHERTYPE_IPV6 : ETHERTYPE_IP);
    const std::size_t ip = writer.Size();
    const std::size_t header = six ? 40 : 20;
    const std::size_t size = std::max(options.size, ip + header + 8 + 8);
    const auto udp = static_cast<unsigned>(size - ip - header);
    if (six) {
        writer.U32(0x60000000);
        writer.U16(udp);
        writer.U8(IPPROTO_UDP), writer.U8(64);
        writer.Put({addresses.data(), 32});
    } else {
        writer.U16(0x4500), writer.U16(static_cast<unsigned>(size - ip));
        writer.U32(static_cast<std::uint32_t>(options.number & 0xffff) << 16);  // identification
        writer.U8(64), writer.U8(IPPROTO_UDP), writer.U16(0);
        writer.Put({addresses.data(), 8});
        PutChecksum(writer, ip);
    }
    writer.U16(options.sourcePort), writer.U16(options.destinationPort);
    writer.U16(udp), writer.U16(0);
    writer.U64(options.number);
    writer.FillTo(size);
    return writer.Take();
}

std::uint64_t NumberOf(std::span<const std::byte> frame)
{
    constexpr std::size_t kEthernet = 14, kUdp = 8, kNumber = 8;
    if (frame.size() < kEthernet) return 0;
    const bool six = frame[12] == std::byte{0x86};
    const std::size_t at = kEthernet + (six ? 40 : 20) + kUdp;
    if (frame.size() < at + kNumber || frame[kEthernet + (six ? 6 : 9)] != std::byte{IPPROTO_UDP}) return 0;
    std::uint64_t number = 0;
    for (const std::byte byte : frame.subspan(at, kNumber))
        number = number << 8U | std::to_integer<std::uint64_t>(byte);
    return number;
}

Bytes EthernetFrame(std::uint8_t from, std::uint8_t to, std::uint16_t etherType, std::size_t size)
{
    Writer writer(size);
    writer.Put(Mac(to));
    writer.Put(Mac(from));
    writer.U16(etherType);
    writer.FillTo(size);
    return writer.Take();
}

}  // namespace support
