// SPDX-License-Identifier: Apache-2.0
// A network of a test's own: a fresh network namespace that the test's process moves into, with veth
// pairs, and frames put on them byte by byte. It goes with the process. Needs root, or a kernel that
// gives user namespaces to all users.

#ifndef TESTS_SUPPORT_NETWORK_H
#define TESTS_SUPPORT_NETWORK_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace support {

using Bytes = std::vector<std::byte>;

class Network {
public:
    /// Moves the process (which has one thread yet) into a new namespace with loopback up, without IPv6
    /// autoconfiguration, so that nothing sends but the test, and with bridged frames kept from the firewall.
    /// Throws std::runtime_error with the reason if that is not allowed.
    Network();
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
    ~Network();

    /// Empty if Network can be made, else why not: for GTEST_SKIP.
    static std::string WhyNot();

    /// Lines for `ip -batch`, such as "link add br0 type bridge". Throws with its message.
    static void Ip(const std::string& lines);
    /// Likewise for `bridge -batch`.
    static void Bridge(const std::string& lines);
    /// Runs a program and returns its standard output; throws with its standard error if it fails.
    static std::string Run(const std::vector<std::string>& arguments);

    /// A pair of virtual Ethernet interfaces, both up: what is sent on one enters by the other.
    static void Veth(const std::string& one, const std::string& other);
    /// Waits until what is sent on the interface leaves it: the kernel sees to that some time after both ends
    /// of a cable are up, and drops until then without a word.
    static void AwaitSending(const std::string& device);
    /// A bridge, up, with the ports given; without spanning tree.
    static void MakeBridge(const std::string& name, const std::vector<std::string>& ports);

    static std::uint32_t Index(const std::string& device);

    /// Another namespace, alive while the result is, for hosts: its process id can be given to
    /// `ip link set DEVICE netns PID`, and RunIn runs a program in it.
    class Host {
    public:
        Host();
        Host(const Host&) = delete;
        Host& operator=(const Host&) = delete;
        ~Host();
        [[nodiscard]] int Pid() const { return m_pid; }
        [[nodiscard]] std::string Run(const std::vector<std::string>& arguments) const;
        /// Calls the function with the calling thread in the host's namespace.
        template <typename Function>
        void Within(Function function) const
        {
            const int back = Enter();
            try {
                function();
            } catch (...) {
                Leave(back);
                throw;
            }
            Leave(back);
        }

    private:
        [[nodiscard]] int Enter() const;
        static void Leave(int back);
        int m_pid = -1;
    };
};

/// Puts frames on an interface as they are. A large buffer; sends block.
class Injector {
public:
    explicit Injector(const std::string& device);
    Injector(const Injector&) = delete;
    Injector& operator=(const Injector&) = delete;
    ~Injector();
    void Send(std::span<const std::byte> frame);
    /// All of them, with as few system calls as may be.
    void Send(const std::vector<Bytes>& frames);

private:
    int m_socket = -1;
};

// ---- frames ----

/// Locally administered: 02:00:00:00:00:NN.
std::vector<std::uint8_t> Mac(std::uint8_t number);

struct FrameOptions {
    std::uint8_t from = 1, to = 2;      // numbers for Mac()
    std::vector<std::uint32_t> tags{};  // TPID << 16 | control, outermost first
    std::string source = "198.51.100.1", destination = "198.51.100.2";  // IPv4 or IPv6 text
    std::uint16_t sourcePort = 1000, destinationPort = 2000;
    std::size_t size = 200;    // of the whole frame; at least what the headers and `number` need
    std::uint64_t number = 0;  // the first eight bytes of the UDP payload, big-endian
};

/// An Ethernet frame with IPv4 or IPv6 (by the addresses' form) and UDP, checksums right for IPv4.
Bytes UdpFrame(const FrameOptions& options);
/// The number in an untagged frame that UdpFrame has made, or in its beginning; 0 if there is none.
std::uint64_t NumberOf(std::span<const std::byte> frame);
/// Any EtherType; the payload is a pattern.
Bytes EthernetFrame(std::uint8_t from, std::uint8_t to, std::uint16_t etherType, std::size_t size);

}  // namespace support

#endif
