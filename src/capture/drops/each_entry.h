// SPDX-License-Identifier: Apache-2.0
// Reads a map of the kernel's with values by CPU, many entries a system call. Used by the program that sees
// drops.

#ifndef CAPTURE_DROPS_EACH_ENTRY_H
#define CAPTURE_DROPS_EACH_ENTRY_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include <bpf/bpf.h>

namespace capture {

/// Calls back with each key and with its values, one a CPU. Entries that come or go meanwhile may be in it or
/// not; the others are, once. Returns 0, or the kernel's negative errno.
template <typename Key, typename Value, typename Function>
int ForEachEntry(int map, std::size_t cpus, Function function)
{
    static_assert(sizeof(Value) % 8 == 0, "the kernel fills values up to eight bytes");
    constexpr std::uint32_t kMostAtOnce = 1U << 20;
    std::uint32_t room = 256;
    std::vector<Key> keys;
    std::vector<Value> values;
    std::uint32_t place = 0, next = 0;
    const std::uint32_t* from = nullptr;
    for (;;) {
        keys.resize(room);
        values.resize(room * cpus);
        std::uint32_t count = room;
        const int error = bpf_map_lookup_batch(map, const_cast<std::uint32_t*>(from), &next, keys.data(),
                                               values.data(), &count, nullptr);
        if (error == -ENOSPC && room < kMostAtOnce) {  // one place of the kernel's table has more
            room *= 2;
            continue;
        }
        if (error != 0 && error != -ENOENT) return error;
        for (std::uint32_t i = 0; i < count; ++i) function(keys[i], &values[i * cpus]);
        if (error == -ENOENT) return 0;
        place = next;
        from = &place;
    }
}

}  // namespace capture

#endif
