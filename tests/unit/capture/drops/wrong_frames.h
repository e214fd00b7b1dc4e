// SPDX-License-Identifier: Apache-2.0
// Frames with something wrong in them: those of support/network.h, changed byte by byte.

#ifndef TESTS_UNIT_CAPTURE_DROPS_WRONG_FRAMES_H
#define TESTS_UNIT_CAPTURE_DROPS_WRONG_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "support/network.h"

// Offsets in an untagged frame.
inline constexpr std::size_t kIpVersion = 14, kIpLength = 16, kIpFlags = 20, kIpTtl = 22, kIpProtocol = 23,
                             kIpSum = 24;
inline constexpr std::size_t kIpv6HopLimit = 21;

/// The frame with these bytes from there on.
inline support::Bytes With(support::Bytes frame, std::size_t at, std::initializer_list<std::uint8_t> bytes)
{
    for (const std::uint8_t byte : bytes) frame.at(at++) = static_cast<std::byte>(byte);
    return frame;
}

/// The frame with the right checksum in its IPv4 header of 20 bytes.
support::Bytes Summed(support::Bytes frame);

/// The first segment of a connection that a host begins, over IPv4.
support::Bytes TcpFrame(const support::FrameOptions& options);

#endif
