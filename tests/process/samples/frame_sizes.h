// SPDX-License-Identifier: Apache-2.0
// Bytes of a frame around its packet.

#ifndef SAMPLES_FRAME_SIZES_H
#define SAMPLES_FRAME_SIZES_H

#include <cstddef>
#include <cstdint>

namespace samples_tests {

inline constexpr std::size_t kEthernet = 14;
inline constexpr std::uint32_t kFcs = 4;
inline constexpr std::size_t kLeast =
    60;  // of an Ethernet frame without FCS: shorter ones are padded by the device

}  // namespace samples_tests

#endif
