// SPDX-License-Identifier: Apache-2.0
#include "manager/export/collector_test.h"

#include <array>
#include <cstddef>
#include <span>
#include <utility>

#include <fmt/format.h>

#include "wire/encode.h"

namespace manager {
namespace {

using Outcome = CollectorTested::Outcome;

/// Counters of no interface, of which none is known: what a collector keeps of its ports stays as it is.
constexpr std::string_view kPortName = "sflow-test";

struct Encoded {
    std::array<std::byte, wire::kDatagramHeaderSize + wire::kMaxCountersSample> bytes{};
    std::size_t size = 0;
};

Encoded Encode(const wire::DatagramHeader& header)
{
    Encoded encoded;
    wire::CountersSample sample;
    sample.sequence = header.sequence;
    sample.portName = kPortName;
    wire::Encode(header, encoded.bytes);
    encoded.size =
        wire::kDatagramHeaderSize + wire::Encode(sample, wire::Encoding::kCompact,
                                                 std::span(encoded.bytes).subspan(wire::kDatagramHeaderSize));
    return encoded;
}

Outcome OutcomeOf(const std::error_code& error)
{
    return error == std::errc::connection_refused ? Outcome::kRefused : Outcome::kUnreachable;
}

}  // namespace

const char* Name(Outcome outcome)
{
    static constexpr std::array kNames = {"not-sent", "refused", "unreachable", "silent"};
    return kNames.at(static_cast<std::size_t>(outcome));
}

std::string CollectorTested::Text() const
{
    const std::string where = fmt::format("{}:{}", AddressText(to.address), to.port);
    switch (outcome) {
    case Outcome::kNotSent:
        return fmt::format(
            "no datagram could be sent to {}: {}; look at the routes (ip route get {}), and at the "
            "collector's "
            "port, source address and device",
            where, error.message(), AddressText(to.address));
    case Outcome::kRefused:
        return fmt::format(
            "{} has refused the datagram: no program listens at that port; start the collector there, or "
            "correct its port",
            where);
    case Outcome::kUnreachable:
        return fmt::format(
            "the network has reported that {} can't be reached: {}; look at the routes on the way", where,
            error.message());
    case Outcome::kSilent:
        break;
    }
    return fmt::format(
        "a datagram of {} bytes was sent to {}, and nothing was reported within 1 s: it has arrived, or was "
        "dropped without a word; a host that is off is reported after some 3 s only",
        size, where);
}

std::string CollectorTested::Command() const
{
    constexpr std::uint16_t kUsualPort = 6343;  // tshark takes what goes there for sFlow by itself
    return fmt::format("tshark -i any -f 'udp port {}'{} -Y 'sflow_245.sub_agent_id == {}'", to.port,
                       to.port == kUsualPort ? "" : fmt::format(" -d udp.port=={},sflow", to.port),
                       datagram.subAgent);
}

bool CollectorTests::Start(const std::string& name, const CollectorSettings& settings,
                           const SendSettings& send, const wire::DatagramHeader& agent, Done done)
{
    if (m_tests.size() >= kMost) return false;
    if (m_sequences.size() >= kMostNames) m_sequences.clear();
    const At at = m_tests.emplace(m_tests.end(), m_mark);
    at->result.to = settings;
    at->result.datagram = agent;
    at->result.datagram.subAgent = agent.subAgent == kSubAgent ? kOtherSubAgent : kSubAgent;
    at->result.datagram.sequence = ++m_sequences[name];
    at->result.datagram.samples = 1;
    at->done = std::move(done);
    at->end = m_timers.Now() + kWait;
    Send(*at, send);
    if (at->result.outcome != Outcome::kNotSent) {
        Wait(at);
        return true;
    }
    const auto tell = std::move(at->done);
    const CollectorTested result = at->result;
    m_tests.erase(at);
    tell(result);
    return true;
}

void CollectorTests::Send(Test& test, const SendSettings& send)
{
    const Connecting made = test.socket.Connect(test.result.to.address, test.result.to.port, send);
    test.result.error = made.error;
    if (!made.error) {
        const Encoded encoded = Encode(test.result.datagram);
        test.result.size = encoded.size;
        Datagram datagram;
        datagram.size = static_cast<std::uint16_t>(encoded.size);
        const SendResult sent = test.socket.Send(encoded.bytes.data(), {&datagram, 1});
        if (sent.taken != 0) return;
        test.result.error = sent.error;
    }
    test.result.outcome = Outcome::kNotSent;
}

void CollectorTests::Wait(At at)
{
    at->timer = m_timers.After(kLookEvery, [this, at] { Look(at); });
}

void CollectorTests::Look(At at)
{
    at->result.error = at->socket.TakeError();
    if (at->result.error)
        at->result.outcome = OutcomeOf(at->result.error);
    else if (m_timers.Now() < at->end)
        return Wait(at);
    const auto tell = std::move(at->done);
    const CollectorTested result = at->result;
    const auto timer = std::move(at->timer);  // whose action this is
    m_tests.erase(at);
    tell(result);
}

}  // namespace manager
