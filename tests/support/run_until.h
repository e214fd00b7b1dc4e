// SPDX-License-Identifier: Apache-2.0
// Runs an event loop of the test's own until something holds.

#ifndef TESTS_SUPPORT_RUN_UNTIL_H
#define TESTS_SUPPORT_RUN_UNTIL_H

#include <chrono>

#include <boost/asio/io_context.hpp>

namespace support {

/// False if it does not hold within 20 s.
template <typename Condition>
[[nodiscard]] bool RunUntil(boost::asio::io_context& loop, Condition&& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        loop.restart();
        loop.run_one_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace support

#endif
