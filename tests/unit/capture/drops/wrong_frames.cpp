// SPDX-License-Identifier: Apache-2.0
#include "wrong_frames.h"

namespace {

constexpr std::size_t kIp = 14, kIpSize = 20, kTcp = kIp + kIpSize, kTcpSize = 20;

std::uint32_t SumOf(const support::Bytes& frame, std::size_t begin, std::size_t end)
{
    std::uint32_t sum = 0;
    for (std::size_t i = begin; i < end; i += 2)
        sum += std::to_integer<std::uint32_t>(frame.at(i)) << 8 |
               std::to_integer<std::uint32_t>(frame.at(i + 1));
    return sum;
}

void PutSum(support::Bytes& frame, std::size_t at, std::uint32_t sum)
{
    while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
    frame.at(at) = static_cast<std::byte>(~sum >> 8 & 0xff);
    frame.at(at + 1) = static_cast<std::byte>(~sum & 0xff);
}

}  // namespace

support::Bytes Summed(support::Bytes frame)
{
    frame = With(std::move(frame), kIpSum, {0, 0});
    PutSum(frame, kIpSum, SumOf(frame, kIp, kIp + kIpSize));
    return frame;
}

support::Bytes TcpFrame(const support::FrameOptions& options)
{
    support::FrameOptions sized = options;
    sized.size = kTcp + kTcpSize;
    constexpr std::uint8_t kTcpProtocol = 6, kBegin = 2, kWords = kTcpSize / 4 << 4;
    // Behind the ports, which are where UDP has them: sequence, acknowledgement, size and flags, window,
    // checksum, urgent.
    support::Bytes frame = With(With(support::UdpFrame(sized), kIpProtocol, {kTcpProtocol}), kTcp + 4,
                                {0, 0, 0, 1, 0, 0, 0, 0, kWords, kBegin, 16, 0, 0, 0, 0, 0});
    PutSum(frame, kTcp + 16, SumOf(frame, kIp + 12, kTcp + kTcpSize) + kTcpProtocol + kTcpSize);
    return Summed(std::move(frame));
}
