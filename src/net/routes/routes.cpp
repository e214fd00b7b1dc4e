// SPDX-License-Identifier: Apache-2.0
// A set-associative table of answers.

#include "net/routes/routes.h"

#include <cstring>
#include <utility>

namespace net {
namespace {

std::uint64_t Mix(std::uint64_t hash, const Address& address)
{
    std::uint64_t words[2];
    std::memcpy(words, address.bytes.data(), sizeof words);
    for (const std::uint64_t word : words) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15;
        hash ^= hash >> 32;
    }
    return hash;
}

std::uint64_t Sum(RouteFrom from) { return (std::uint64_t{from.vrf} << 32 | from.ifIndex) + 1; }

}  // namespace

Routes::Routes(RouteQuestions& questions, Now now) : m_questions(questions), m_now(std::move(now)) {}

std::optional<Routes::Found> Routes::Find(RouteFrom from, const Address& destination, const Address& source)
{
    const auto answer = Answer({from, destination, {}}, source);
    if (!answer) return std::nullopt;
    Found found{answer->kind, answer->ifIndex, answer->reason, {}, answer->mtu};
    if (answer->kind != Destination::Kind::kInterface) return found;
    // The route back tells the source's prefix length.
    const auto back = Answer({{0, from.vrf}, source, {}}, {});
    if (!back) return std::nullopt;
    found.route = Between(*answer, *back);
    return found;
}

std::optional<RouteAnswer> Routes::Answer(const Key& shared, const Address& source)
{
    const Key own{shared.from, shared.destination, source};
    const RouteAnswer* remembered = Remembered(shared);
    if (remembered != nullptr && remembered->perSource && source.size != 0) remembered = Remembered(own);
    if (remembered != nullptr) return *remembered;
    if (!MayAsk()) return std::nullopt;
    auto answer = m_questions.Ask(shared.from, shared.destination, source);
    if (!answer) return std::nullopt;
    // A directly connected destination is its own next hop: all zeros, of its family.
    if (answer->nextHop.size == 0) answer->nextHop = {shared.destination.size, {}};
    Remember(shared, *answer);
    if (answer->perSource && source.size != 0) Remember(own, *answer);
    return answer;
}

Routes::Slot* Routes::FirstWay(const Key& key)
{
    if (m_slots.empty()) m_slots.resize(kCapacity);
    const std::uint64_t hash = Mix(Mix(Sum(key.from), key.destination), key.source);
    return &m_slots[hash % (kCapacity / kWays) * kWays];
}

const RouteAnswer* Routes::Remembered(const Key& key)
{
    const Slot* way = FirstWay(key);
    for (std::size_t i = 0; i < kWays; ++i, ++way)
        if (way->generation == m_generation && way->key == key)
            return way->answer.brief && m_now() >= way->until ? nullptr : &way->answer;
    return nullptr;
}

void Routes::Remember(const Key& key, const RouteAnswer& answer)
{
    Slot* const ways = FirstWay(key);
    Slot* place = nullptr;
    for (std::size_t i = 0; i < kWays; ++i) {
        if (ways[i].generation != m_generation)
            place = place == nullptr ? &ways[i] : place;
        else if (ways[i].key == key)
            place = &ways[i];
        if (place != nullptr && place->generation == m_generation) break;
    }
    if (place == nullptr) place = &ways[m_victim++ % kWays];
    *place = {m_generation, key, answer, {}};
    if (answer.brief) place->until = m_now() + kBriefly;
}

bool Routes::MayAsk()
{
    const auto now = m_now();
    if (now >= m_windowEnd) {
        m_windowEnd = now + kWindow;
        m_asked = 0;
    }
    return m_asked++ < kQuestions;
}

}  // namespace net
