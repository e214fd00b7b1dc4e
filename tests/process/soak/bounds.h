// SPDX-License-Identifier: Apache-2.0
// What processes may have open and in memory: measured at each look, against what the same life of the
// process had at its first.

#ifndef SOAK_BOUNDS_H
#define SOAK_BOUNDS_H

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace soak {

class Bounds {
public:
    /// What is too much, as text; nullopt: nothing.
    std::optional<std::string> Measure(const std::string& name, pid_t process);

    /// The most that was seen.
    [[nodiscard]] std::string Text() const;

private:
    struct Size {
        std::size_t files = 0;
        std::size_t kilobytes = 0;
    };
    static Size SizeOf(pid_t process);
    std::map<pid_t, Size> m_first;
    std::map<std::string, Size> m_most;
};

}  // namespace soak

#endif
