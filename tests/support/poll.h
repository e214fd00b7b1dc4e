// SPDX-License-Identifier: Apache-2.0
// Waiting for a condition with a deadline: the only way in which the suites with real processes
// wait. Not for unit tests, which advance a clock instead.

#ifndef SUPPORT_POLL_H
#define SUPPORT_POLL_H

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace support {

/// A condition that did not come true in time; the text says which.
class TimedOut : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Far beyond what anything here takes, sanitizers and a loaded machine included.
inline constexpr std::chrono::seconds kPatience{30};

/// Calls the condition until it is true; false if the time is over.
template <typename Condition>
[[nodiscard]] bool Becomes(Condition&& condition, std::chrono::milliseconds within = kPatience)
{
    const auto deadline = std::chrono::steady_clock::now() + within;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/// The same, but throws TimedOut, which names what was waited for.
template <typename Condition>
void Await(const std::string& what, Condition&& condition, std::chrono::milliseconds within = kPatience)
{
    if (!Becomes(condition, within)) throw TimedOut("did not happen in time: " + what);
}

/// Waits until what the function returns has been the same for so long. Throws TimedOut likewise.
template <typename Value>
void AwaitStill(const std::string& what, Value&& value, std::chrono::milliseconds time)
{
    auto since = std::chrono::steady_clock::now();
    auto last = value();
    Await(what, [&] {
        const auto now = std::chrono::steady_clock::now();
        if (auto fresh = value(); fresh != last) {
            last = fresh;
            since = now;
        }
        return now - since >= time;
    });
}

}  // namespace support

#endif
