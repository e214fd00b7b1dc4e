// SPDX-License-Identifier: Apache-2.0
// Frames of many shapes (see the header).

#include "samples/shapes.h"

#include <cstddef>
#include <initializer_list>

#include "samples/frame_sizes.h"

namespace samples_tests {
namespace {

using support::Bytes;
using support::EthernetFrame;
using support::FrameOptions;

constexpr std::size_t kTag = 4, kIpv4 = 20, kIpv6 = 40;
constexpr int kIcmp = 1, kTcp = 6, kUdp = 17, kIcmp6 = 58;
constexpr const char* kSix = "2001:db8::1";
constexpr const char* kOtherSix = "2001:db8::2";

void Put(Bytes& bytes, std::size_t at, std::initializer_list<int> values)
{
    for (const int value : values) bytes.at(at++) = static_cast<std::byte>(value);
}

/// Where IP begins.
std::size_t IpOf(const FrameOptions& options) { return kEthernet + kTag * options.tags.size(); }

bool IsSix(const FrameOptions& options) { return options.source.find(':') != std::string::npos; }

std::size_t PayloadAt(const FrameOptions& options)
{
    return IpOf(options) + (IsSix(options) ? kIpv6 : kIpv4);
}

/// One's complement sum of 16-bit words.
class Checksum {
public:
    void Add(const Bytes& bytes, std::size_t from, std::size_t to)
    {
        for (std::size_t at = from; at < to; ++at)
            m_sum += std::to_integer<unsigned>(bytes[at]) << ((at - from) % 2 == 0 ? 8U : 0U);
    }
    void Add(std::size_t word) { m_sum += static_cast<unsigned>(word); }
    void PutInto(Bytes& bytes, std::size_t at) const
    {
        unsigned sum = m_sum;
        while (sum >> 16U != 0) sum = (sum & 0xFFFFU) + (sum >> 16U);
        sum = ~sum & 0xFFFFU;
        if (sum == 0) sum = 0xFFFF;
        Put(bytes, at, {static_cast<int>(sum >> 8U), static_cast<int>(sum & 0xFFU)});
    }

private:
    unsigned m_sum = 0;
};

/// Gives the frame this protocol, and checksums: that of IPv4, and that of the payload at `at` in it.
void Finish(Bytes& frame, const FrameOptions& options, int protocol, std::size_t at)
{
    const std::size_t ip = IpOf(options);
    const std::size_t payload = PayloadAt(options);
    if (IsSix(options)) {
        Put(frame, ip + 6, {protocol});
    } else {
        Put(frame, ip + 9, {protocol, 0, 0});
        Checksum header;
        header.Add(frame, ip, payload);
        header.PutInto(frame, ip + 10);
    }
    Put(frame, payload + at, {0, 0});
    Checksum sum;
    sum.Add(frame, payload, frame.size());
    if (protocol != kIcmp) {
        sum.Add(frame, payload - (IsSix(options) ? 32 : 8), payload);  // both addresses
        sum.Add(frame.size() - payload);
        sum.Add(static_cast<std::size_t>(protocol));
    }
    sum.PutInto(frame, payload + at);
}

std::uint16_t WordAt(const Bytes& bytes, std::size_t at)
{
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes.at(at)) << 8U |
                                      std::to_integer<unsigned>(bytes.at(at + 1)));
}

}  // namespace

Bytes IpUdp(const FrameOptions& options)
{
    Bytes frame = support::UdpFrame(options);
    Finish(frame, options, kUdp, 6);
    return frame;
}

Bytes TcpFrame(const FrameOptions& options)
{
    Bytes frame = support::UdpFrame(options);
    constexpr int kFiveWords = 0x50, kAck = 0x10;
    Put(frame, PayloadAt(options) + 4, {0, 0, 0, 1, 0, 0, 0, 1, kFiveWords, kAck, 0xFF, 0xFF, 0, 0, 0, 0});
    Finish(frame, options, kTcp, 16);
    return frame;
}

Bytes EchoFrame(const FrameOptions& options)
{
    constexpr int kEcho = 8, kEcho6 = 128;
    Bytes frame = support::UdpFrame(options);
    Put(frame, PayloadAt(options), {IsSix(options) ? kEcho6 : kEcho, 0, 0, 0, 0, 1, 0, 1});
    Finish(frame, options, IsSix(options) ? kIcmp6 : kIcmp, 2);
    return frame;
}

Bytes To(Bytes frame, const std::vector<int>& mac)
{
    for (std::size_t i = 0; i < mac.size(); ++i) frame.at(i) = static_cast<std::byte>(mac[i]);
    return frame;
}

std::vector<Shape> IpShapes()
{
    std::vector<Shape> shapes = Shapes();
    std::erase_if(shapes, [](const Shape& shape) {
        std::size_t at = kEthernet - 2;
        while (at + kTag + 2 < shape.frame.size() &&
               (WordAt(shape.frame, at) == 0x8100 || WordAt(shape.frame, at) == 0x88A8))
            at += kTag;
        return WordAt(shape.frame, at) != 0x0800 && WordAt(shape.frame, at) != 0x86DD;
    });
    return shapes;
}

std::vector<Shape> Shapes()
{
    const std::vector<int> everybody(6, 0xFF);
    const auto six = [](std::size_t size) {
        return FrameOptions{.source = kSix, .destination = kOtherSix, .size = size};
    };
    return {
        {"UDP over IPv4", IpUdp({.size = 200})},
        {"TCP over IPv4", TcpFrame({.size = 300})},
        {"ICMP", EchoFrame({.size = 98})},
        {"UDP over IPv6", IpUdp(six(201))},
        {"TCP over IPv6", TcpFrame(six(301))},
        {"ICMPv6", EchoFrame(six(118))},
        {"one tag", IpUdp({.tags = {0x81006064}, .size = 204}), Goes::kToP2, 100, 3},
        {"one tag before IPv6",
         [&] {
             FrameOptions options = six(222);
             options.tags = {0x8100EFFE};
             return IpUdp(options);
         }(),
         Goes::kToP2, 0xFFE, 7},
        {"a priority and no VLAN", TcpFrame({.tags = {0x8100A000}, .size = 150}), Goes::kToP2, 0, 5},
        {"a service tag", IpUdp({.tags = {0x88A82007}, .size = 151}), Goes::kToP2, 7, 1},
        {"QinQ", IpUdp({.tags = {0x88A840C8, 0x8100000A}, .size = 152}), Goes::kToP2, 200, 2},
        {"QinQ of one kind", IpUdp({.tags = {0x8100012C, 0x8100E00B}, .size = 153}), Goes::kToP2, 300, 0},
        {"a tagged echo", EchoFrame({.tags = {0x81000001}, .size = 90}), Goes::kToP2, 1, 0},
        {"ARP", To(EthernetFrame(1, 0, 0x0806, 42), everybody), Goes::kToBoth},
        {"a tagged broadcast", To(IpUdp({.tags = {0x81000005}, .size = 160}), everybody), Goes::kToBoth, 5,
         0},
        {"multicast of IPv4", To(IpUdp({.destination = "224.1.2.3"}), {1, 0, 0x5E, 1, 2, 3}), Goes::kToBoth},
        {"multicast of IPv6",
         To(IpUdp({.source = kSix, .destination = "ff02::1:2", .size = 210}), {0x33, 0x33, 0, 1, 0, 2}),
         Goes::kToBoth},
        {"LLDP", To(EthernetFrame(1, 0, 0x88CC, 70), {1, 0x80, 0xC2, 0, 0, 0x0E}), Goes::kHere},
        {"a header alone", EthernetFrame(1, 2, 0x88B5, 14)},
        {"one byte", EthernetFrame(1, 2, 0x88B6, 15)},
        {"59 bytes", EthernetFrame(1, 2, 0x88B7, 59)},
        {"60 bytes", EthernetFrame(1, 2, 0x88B8, 60)},
        {"a length for a type", EthernetFrame(1, 2, 0x0026, 52)},
        {"as much as is sampled", EthernetFrame(1, 2, 0x88B9, 128)},
        {"a byte more", EthernetFrame(1, 2, 0x88BA, 129)},
        {"with its tag as much as is sampled", IpUdp({.tags = {0x81000006}, .size = 128}), Goes::kToP2, 6, 0},
        {"as much as is common", IpUdp({.size = 1514, .number = 1})},
        {"jumbo", IpUdp({.size = 9014, .number = 2})},
        {"tagged jumbo", IpUdp({.tags = {0x81000FFF}, .size = 9018}), Goes::kToP2, 0xFFF, 0},
    };
}

}  // namespace samples_tests
