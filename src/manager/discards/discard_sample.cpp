// SPDX-License-Identifier: Apache-2.0
#include "manager/discards/discard_sample.h"

#include "capture/drops/code.h"
#include "wire/frame.h"

namespace manager {
namespace {

wire::HeaderProtocol ProtocolOf(capture::HeaderStart start)
{
    switch (start) {
    case capture::HeaderStart::kIpv4:
        return wire::HeaderProtocol::kIpv4;
    case capture::HeaderStart::kIpv6:
        return wire::HeaderProtocol::kIpv6;
    case capture::HeaderStart::kEthernet:
    case capture::HeaderStart::kUnknown:  // there is no header then
        break;
    }
    return wire::HeaderProtocol::kEthernet;
}

}  // namespace

void DescribeDiscard(const capture::Drop& drop, std::size_t maxHeader, wire::DiscardSample& discard)
{
    const bool ethernet = drop.start == capture::HeaderStart::kEthernet;
    discard.source = drop.ifIndex;
    discard.input = drop.input;
    discard.output = drop.output;
    discard.reason = capture::CodeOf(drop);
    discard.protocol = ProtocolOf(drop.start);
    discard.tagProtocol = ethernet ? drop.tagProtocol : std::uint16_t{0};
    discard.tagControl = drop.tagControl;
    discard.stripped = ethernet ? wire::kFcs : 0;
    discard.frameLength = ethernet ? wire::FrameLength(drop.length, discard.tagProtocol != 0) : drop.length;
    discard.header = drop.header;
    discard.maxHeader = maxHeader;
    discard.function = drop.function;
    discard.linuxReason = drop.reasonName;
}

}  // namespace manager
