// SPDX-License-Identifier: Apache-2.0
// A hash table from 64-bit keys to small values in one array, for look-ups that run once a packet:
// std::unordered_map needs several dependent memory accesses and a division. Linear probing without
// tombstones. Used for learned addresses.

#ifndef NET_LINKS_ADDRESS_TABLE_H
#define NET_LINKS_ADDRESS_TABLE_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace net {

/// A random number that a peer can't predict.
[[nodiscard]] inline std::uint64_t UnforeseeableNumber()
{
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

template <typename Value>
class AddressTable {
public:
    [[nodiscard]] std::size_t Size() const { return m_size; }

    /// Null if there is none. Valid until something is put or erased.
    [[nodiscard]] const Value* Find(std::uint64_t key) const
    {
        if (m_slots.empty()) return nullptr;
        for (std::size_t at = Home(key);; at = Next(at)) {
            const Slot& slot = m_slots[at];
            if (!slot.used) return nullptr;
            if (slot.key == key) return &slot.value;
        }
    }
    [[nodiscard]] Value* Find(std::uint64_t key)
    {
        return const_cast<Value*>(std::as_const(*this).Find(key));
    }

    /// Inserts it, or replaces the value of this key.
    void Put(std::uint64_t key, Value value)
    {
        if (Value* before = Find(key); before != nullptr) {
            *before = std::move(value);
            return;
        }
        if ((m_size + 1) * 2 > m_slots.size()) Resize(m_slots.empty() ? kSmallest : m_slots.size() * 2);
        Enter(key, std::move(value));
    }

    /// The number erased: 1 or 0.
    std::size_t Erase(std::uint64_t key)
    {
        const Value* found = Find(key);
        if (found == nullptr) return 0;
        std::size_t hole = Home(key);
        while (&m_slots[hole].value != found) hole = Next(hole);
        // Entries that were pushed beyond the hole from a home before it move up.
        for (std::size_t at = Next(hole); m_slots[at].used; at = Next(at)) {
            if (((at - Home(m_slots[at].key)) & Mask()) < ((at - hole) & Mask())) continue;
            m_slots[hole] = std::move(m_slots[at]);
            hole = at;
        }
        m_slots[hole] = {};
        --m_size;
        return 1;
    }

    /// Erases the entries whose value meets the condition and returns their number. The table shrinks to fit.
    template <typename Condition>
    std::size_t EraseIf(Condition condition)
    {
        std::size_t stays = 0;
        for (const Slot& slot : m_slots) stays += slot.used && !condition(slot.value) ? 1 : 0;
        const std::size_t gone = m_size - stays;
        if (gone == 0) return 0;
        std::size_t room = kSmallest;
        while (room < stays * 2) room *= 2;
        std::vector<Slot> before(room);
        before.swap(m_slots);
        m_size = 0;
        for (Slot& slot : before)
            if (slot.used && !condition(slot.value)) Enter(slot.key, std::move(slot.value));
        return gone;
    }

private:
    static constexpr std::size_t kSmallest = 16;  // a power of two, like every size

    struct Slot {
        std::uint64_t key = 0;
        Value value{};
        bool used = false;
    };

    [[nodiscard]] std::size_t Mask() const { return m_slots.size() - 1; }
    [[nodiscard]] std::size_t Next(std::size_t at) const { return (at + 1) & Mask(); }
    [[nodiscard]] std::size_t Home(std::uint64_t key) const
    {
        key ^= m_seed;
        key *= 0x9E3779B97F4A7C15;
        key ^= key >> 32;
        key *= 0xD6E8FEB86659FD93;
        return static_cast<std::size_t>(key ^ key >> 29) & Mask();
    }
    void Enter(std::uint64_t key, Value value)
    {
        std::size_t at = Home(key);
        while (m_slots[at].used) at = Next(at);
        m_slots[at] = {key, std::move(value), true};
        ++m_size;
    }
    void Resize(std::size_t size)
    {
        std::vector<Slot> before(size);
        before.swap(m_slots);
        m_size = 0;
        for (Slot& slot : before)
            if (slot.used) Enter(slot.key, std::move(slot.value));
    }

    std::vector<Slot> m_slots;
    std::size_t m_size = 0;
    // Differs in each process and table, so that a peer can't choose addresses that collide.
    std::uint64_t m_seed = UnforeseeableNumber();
};

}  // namespace net

#endif
