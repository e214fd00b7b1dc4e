// SPDX-License-Identifier: Apache-2.0
// The bare forwarding path (see the header).

#include "sampling/forwarding_path.h"

#include <stdexcept>
#include <string>

#include "support/kernel.h"

namespace sampling {
namespace {

constexpr std::uint8_t kHostANumber = 0xa, kDestinationNumber = 0x99;

}  // namespace

ForwardingPath::ForwardingPath()
{
    using support::Network;
    Network::Veth(kHostA, kIn);
    Network::Veth(kHostB, kOut);
    Network::MakeBridge("br0", {kIn, kOut});
    // No host has the frames' destination address: host B drops them as soon as it can.
    Network::Bridge(std::string("fdb add 02:00:00:00:00:99 dev ") + kOut + " master static");
    support::FrameOptions options;
    options.from = kHostANumber;
    options.to = kDestinationNumber;
    options.size = kFrameSize;
    m_frames = support::UdpFlows(64, options);
    m_traffic = std::make_unique<support::Traffic>(kHostA, m_frames);
}

support::Sent ForwardingPath::Forward(std::chrono::milliseconds time, std::uint64_t rate)
{
    const auto before = support::Received(kHostB);
    const auto sent = m_traffic->SendFor(time, rate);
    const auto arrived = support::Received(kHostB) - before;
    if (arrived != sent.frames)
        throw std::runtime_error("of " + std::to_string(sent.frames) + " frames sent " +
                                 std::to_string(arrived) + " arrived");
    return sent;
}

}  // namespace sampling
