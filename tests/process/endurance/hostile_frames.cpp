// SPDX-License-Identifier: Apache-2.0
// Frames that make no sense (see the header).

#include "endurance/hostile_frames.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>

namespace endurance {
namespace {

using support::Bytes;
using support::FrameOptions;
using support::UdpFrame;

constexpr std::size_t kEthernet = 14, kLongest = 1514;
constexpr std::uint16_t kIpv4 = 0x0800, kIpv6 = 0x86DD, kVlan = 0x8100, kServiceVlan = 0x88A8;

std::byte Byte(unsigned value) { return static_cast<std::byte>(value & 0xff); }

void SetType(Bytes& frame, unsigned type)
{
    frame[12] = Byte(type >> 8);
    frame[13] = Byte(type);
}

unsigned TypeOf(const Bytes& frame)
{
    return std::to_integer<unsigned>(frame[12]) << 8 | std::to_integer<unsigned>(frame[13]);
}

Bytes Ipv6() { return UdpFrame({.source = "2001:db8::1", .destination = "2001:db8::2"}); }

std::vector<Bytes> Sound()
{
    FrameOptions tagged{.tags = {0x81006005}};
    FrameOptions twice{
        .tags = {0x88A80064, 0x8100E007}, .source = "2001:db8::1", .destination = "2001:db8::2"};
    for (auto* options : {&tagged, &twice}) options->size = 90;
    return {UdpFrame({.size = 70}), Ipv6(), UdpFrame(tagged), UdpFrame(twice)};
}

/// An Ethernet header and an IPv6 header, with room behind it.
Bytes Ipv6Start(unsigned next, std::size_t size)
{
    Bytes frame = Ipv6();
    frame.resize(size);
    const auto payload = static_cast<unsigned>(size - kEthernet - 40);
    frame[18] = Byte(payload >> 8);
    frame[19] = Byte(payload);
    frame[20] = Byte(next);
    return frame;
}

}  // namespace

std::vector<Bytes> RandomFrames()
{
    constexpr std::array<unsigned, 8> kTypes{0, kIpv4, kIpv6, kVlan, kServiceVlan, 0x0806, 0x8847, 0x8864};
    std::mt19937 random(20260101);
    std::vector<Bytes> frames;
    for (std::size_t size = kEthernet; size <= kLongest; ++size) {
        Bytes frame(size);
        for (std::byte& byte : frame) byte = Byte(static_cast<unsigned>(random()));
        if (const unsigned type = kTypes[size % kTypes.size()]; type != 0) SetType(frame, type);
        // Every other one looks like IP at first sight.
        if (size > 30 && random() % 2 == 0) frame[14] = Byte(TypeOf(frame) == kIpv6 ? 0x60 : 0x45);
        frames.push_back(std::move(frame));
    }
    return frames;
}

std::vector<Bytes> CutFrames()
{
    std::vector<Bytes> frames;
    for (const Bytes& sound : Sound())
        for (std::size_t size = kEthernet; size < sound.size(); ++size)
            frames.emplace_back(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size));
    return frames;
}

std::vector<Bytes> LyingFrames()
{
    std::vector<Bytes> frames;
    // Version and header length, total length, fragment offset, protocol; the addresses after them.
    for (unsigned value = 0; value < 256; ++value)
        for (const std::size_t at : {14U, 16U, 17U, 20U, 23U}) {
            Bytes frame = UdpFrame({.size = 80});
            frame[at] = Byte(value);
            frames.push_back(std::move(frame));
        }
    for (unsigned value = 0; value < 256; ++value)
        for (const std::size_t at : {14U, 18U, 20U, 22U, 38U}) {
            Bytes frame = Ipv6();
            frame[at] = Byte(value);
            frames.push_back(std::move(frame));
        }
    return frames;
}

std::vector<Bytes> ChainedFrames()
{
    constexpr std::array<unsigned, 7> kExtensions{0, 43, 44, 51, 60, 135, 139};
    std::vector<Bytes> frames;
    for (const unsigned extension : kExtensions) {
        for (const unsigned length : {0U, 1U, 7U, 30U, 255U}) {
            Bytes frame = Ipv6Start(extension, kLongest);
            const std::size_t step = (std::size_t{length} + 1) * 8;
            for (std::size_t at = kEthernet + 40; at + 2 <= frame.size(); at += step) {
                frame[at] = Byte(extension);  // and again, to the packet's end
                frame[at + 1] = Byte(length);
            }
            frames.push_back(std::move(frame));
        }
    }
    for (const unsigned type : {unsigned{kVlan}, unsigned{kServiceVlan}}) {
        Bytes frame(kLongest, Byte(0));
        for (std::size_t at = 12; at + 4 <= frame.size(); at += 4) {
            frame[at] = Byte(type >> 8);
            frame[at + 1] = Byte(type);
            frame[at + 2] = Byte(0xEF);
            frame[at + 3] = Byte(0xFF);
        }
        for (const std::size_t size : {18U, 20U, 22U, 26U, 64U, 127U, 128U, 131U, 132U, 512U, 1514U})
            frames.emplace_back(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return frames;
}

bool KernelDrops(const Bytes& frame)
{
    const unsigned type = TypeOf(frame);
    return (type == kVlan || type == kServiceVlan) && frame.size() < kEthernet + 6;
}

}  // namespace endurance
