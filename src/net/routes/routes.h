// SPDX-License-Identifier: Apache-2.0
// A bounded memory of routing answers, forgotten as a whole when anything about routing changes, and a limit
// on requests, so that a flood of addresses can't exhaust the processor. RouteQuestions answers: the kernel
// (kernel_routes.h), or a test.

#ifndef NET_ROUTES_ROUTES_H
#define NET_ROUTES_ROUTES_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "net/routes/forwarding.h"

namespace net {

struct RouteAnswer {
    Destination::Kind kind = Destination::Kind::kUnknown;
    std::uint32_t ifIndex = 0;
    Address nextHop{};       // if directly connected: size 0 from RouteQuestions, all zeros from Routes
    std::uint8_t bits = 0;   // prefix length of the route
    bool perSource = false;  // may differ for another source
    bool brief = false;      // may change without notice: remembered for kBriefly only
    Discard reason = Discard::kUnknown;  // of kDiscarded
    std::uint32_t mtu = 0;  // of the route, if it is one that counts for what is forwarded; 0: the device's
};

/// Whose packet a route is asked for.
struct RouteFrom {
    std::uint32_t ifIndex = 0;  // it entered by this interface; 0: this machine sends it
    std::uint32_t vrf = 0;      // device of the VRF in which it does; 0: none
    friend bool operator==(const RouteFrom&, const RouteFrom&) = default;
};

class RouteQuestions {
public:
    RouteQuestions() = default;
    RouteQuestions(const RouteQuestions&) = delete;
    RouteQuestions& operator=(const RouteQuestions&) = delete;
    virtual ~RouteQuestions() = default;

    /// The route of a packet. `source` may have size 0 if this machine sends it. Nullopt if the kernel does
    /// not say.
    virtual std::optional<RouteAnswer> Ask(RouteFrom from, const Address& destination,
                                           const Address& source) = 0;
};

class Routes {
public:
    using Now = std::function<std::chrono::steady_clock::time_point()>;

    static constexpr std::size_t kCapacity = 8192;
    static constexpr int kQuestions = 300;  // at most, in each window
    static constexpr std::chrono::milliseconds kWindow{100};
    static constexpr std::chrono::seconds kBriefly{1};

    /// `questions` must outlive it.
    explicit Routes(RouteQuestions& questions, Now now = std::chrono::steady_clock::now);

    struct Found {
        Destination::Kind kind = Destination::Kind::kUnknown;
        std::uint32_t ifIndex = 0;
        Discard reason = Discard::kUnknown;  // of kDiscarded
        Destination::Route route;            // of kInterface
        std::uint32_t mtu = 0;               // as in RouteAnswer
    };
    /// Nullopt if it is not remembered and can't be asked now.
    [[nodiscard]] std::optional<Found> Find(RouteFrom from, const Address& destination,
                                            const Address& source);

    /// One direction only; `source` may have size 0 if this machine sends the packet. Nullopt as above.
    [[nodiscard]] std::optional<RouteAnswer> Way(RouteFrom from, const Address& destination,
                                                 const Address& source)
    {
        return Answer({from, destination, {}}, source);
    }
    /// Combines the answer to the destination with that back to the source.
    [[nodiscard]] static Destination::Route Between(const RouteAnswer& there, const RouteAnswer& back)
    {
        return {there.nextHop, back.bits, there.bits};
    }

    /// Forgets every answer.
    void Forget() { ++m_generation; }

private:
    static constexpr std::size_t kWays = 4;

    struct Key {
        RouteFrom from;
        Address destination, source;
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct Slot {
        std::uint64_t generation = 0;
        Key key;
        RouteAnswer answer;
        std::chrono::steady_clock::time_point until{};  // of a brief answer
    };

    [[nodiscard]] std::optional<RouteAnswer> Answer(const Key& shared, const Address& source);
    [[nodiscard]] Slot* FirstWay(const Key& key);
    [[nodiscard]] const RouteAnswer* Remembered(const Key& key);
    void Remember(const Key& key, const RouteAnswer& answer);
    [[nodiscard]] bool MayAsk();

    RouteQuestions& m_questions;
    Now m_now;
    std::vector<Slot> m_slots;  // allocated at first use
    std::uint64_t m_generation = 1;
    std::uint32_t m_victim = 0;
    std::chrono::steady_clock::time_point m_windowEnd{};
    int m_asked = 0;
};

}  // namespace net

#endif
