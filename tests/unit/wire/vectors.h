// SPDX-License-Identifier: Apache-2.0
// What the tables of wire vectors share: the header bytes that samples refer to, and the comparison of
// what was written with the bytes expected.

#ifndef TESTS_UNIT_WIRE_VECTORS_H
#define TESTS_UNIT_WIRE_VECTORS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string>

#include "support/hex.h"
#include "wire/encode.h"

inline constexpr std::byte kUntouched{0xee};

/// Of a row, for INSTANTIATE_TEST_SUITE_P.
inline constexpr auto kNameOf = [](const auto& row) { return std::string(row.param.name); };

/// 01 02 03 ...: no byte of the header looks like padding.
inline std::span<const std::byte> Header(std::size_t size)
{
    static const auto bytes = [] {
        std::array<std::byte, 255> all{};
        for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::byte>(i + 1);
        return all;
    }();
    return std::span(bytes).first(size);
}

/// Encodes into a buffer of exactly `room` bytes (so that address checks see a byte too many) and
/// compares. `expected` is hexadecimal; nothing expected means that nothing must have been written.
template <typename Sample>
void ExpectEncoded(const Sample& sample, wire::Encoding encoding, std::size_t room,
                   const std::string& expected)
{
    Bytes buffer(room, kUntouched);
    const std::size_t size = wire::Encode(sample, encoding, buffer);
    ASSERT_LE(size, room);
    const auto written = std::span(buffer).first(size);
    EXPECT_TRUE(std::ranges::equal(written, FromHex(expected))) << "written:\n"
                                                                << ToPaste(written) << "\nexpected:\n"
                                                                << ToPaste(FromHex(expected));
    EXPECT_EQ(std::ranges::count(std::span(buffer).subspan(size), kUntouched),
              static_cast<std::ptrdiff_t>(room - size))
        << "written behind the end";
}

#endif
