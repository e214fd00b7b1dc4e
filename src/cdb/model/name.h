// SPDX-License-Identifier: Apache-2.0
// What a name may be, for code that has no schema at hand. The YANG module switch-types says it first: these
// mirror its types `name` and `collector-name`, and a test compares them with libyang.

#ifndef CDB_MODEL_NAME_H
#define CDB_MODEL_NAME_H

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace cdb {

/// Bytes of a name at most.
inline constexpr std::size_t kMaxName = 64;

/// switch-types:name.
constexpr bool IsName(std::string_view text)
{
    constexpr std::string_view kExcluded = "\"'{}[];|<>&";
    return !text.empty() && text.size() <= kMaxName && std::all_of(text.begin(), text.end(), [&](char c) {
        return c > ' ' && c < '\x7f' && kExcluded.find(c) == std::string_view::npos;
    });
}

/// switch-types:collector-name.
constexpr bool IsCollectorName(std::string_view text)
{
    return IsName(text) && text.find('%') == std::string_view::npos;
}

}  // namespace cdb

#endif
