// SPDX-License-Identifier: Apache-2.0
// Numbers of things in a sentence.

#ifndef CLI_SCREENS_COUNTED_H
#define CLI_SCREENS_COUNTED_H

#include <cstdint>
#include <string>
#include <string_view>

namespace cli {

/// "1 change", "1,500 changes".
inline std::string Counted(std::uint64_t count, std::string_view one)
{
    constexpr std::size_t kGroup = 3;
    std::string text = std::to_string(count);
    for (std::size_t at = text.size(); at > kGroup; at -= kGroup) text.insert(at - kGroup, 1, ',');
    return text.append(" ").append(one).append(count == 1 ? "" : "s");
}

}  // namespace cli

#endif
