// SPDX-License-Identifier: Apache-2.0
// What the operations are tried on: two ports sampled at 1:1 for two collectors under steady traffic, and the
// expectations that several of them share.

#ifndef ENDURANCE_OPERATIONS_WORLD_H
#define ENDURANCE_OPERATIONS_WORLD_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "endurance/endurance_test.h"

namespace endurance {

/// What an operation has to do with.
struct Concerns {
    bool portOne = false;     // what is sampled at p1
    bool collectorA = false;  // everything that goes to collector a
    bool portOneAtA = false;  // what goes from p1 to collector a
};

class OperationsWorld {
public:
    /// Configures, and lets traffic begin: `kRate` frames a second from h1 to h2 and as many back.
    OperationsWorld(SamplingWorld& samplingWorld, Pool countsPool);

    [[nodiscard]] SamplingWorld& World() const { return world; }
    [[nodiscard]] support::ServiceClient& Service() const { return world.Service(); }

    /// The whole configuration in the session that is open, and the mark at its end.
    void Configure(const std::vector<std::string>& ports = {"p1", "p2"});

    /// Returns when more samples of the port that stands by have come.
    void Flow();
    void FlowFor(std::chrono::milliseconds time);
    /// Ends it and waits for all that is under way.
    void EndTraffic();

    /// Frames that have entered by the port since sampling began there.
    [[nodiscard]] std::uint64_t Frames(const std::string& port) const;

    /// Most frames that may pass unseen while p1's packets begin to be sampled in another way: none with
    /// eBPF. Packet sockets are exchanged for others, in between which the process may have to wait for its
    /// CPU.
    [[nodiscard]] std::uint64_t MostUnseen() const { return pool == Pool::kExact ? 0 : 100; }

    /// The samples of p1 have these rates, one after the other, and account for every frame.
    void ExpectRates(const std::vector<std::uint32_t>& rates);
    static void ExpectSeen(std::uint64_t seen, std::uint64_t frames, std::uint64_t unseen);
    /// p1 was not sampled for a while: the frames of that time are in neither count, all else is whole.
    void ExpectPause();
    /// Every frame has come once at the port and collector that the operation does not concern.
    void ExpectTheRestWhole(const Concerns& concerns);

    SamplingWorld& world;
    const Pool pool;
    std::uint32_t p1, p2;
    DecodingCollector a, b, c;
    std::map<std::uint32_t, std::size_t> flowsAtA;  // before the operation, by interface
    std::uint64_t counters = 0;                     // for an operation's own use

private:
    static constexpr std::uint64_t kRate = 3000;
    static constexpr std::uint32_t kFlow = 150;  // samples: 50 ms

    std::map<std::string, std::uint64_t> m_before;
    std::optional<BackgroundTraffic> m_there, m_back;
};

}  // namespace endurance

#endif
