// SPDX-License-Identifier: Apache-2.0
// Flow samples as bytes, worked out by hand from the layout in sFlow version 5.
//
// Without header bytes and router a compact sample is 8 + 80 bytes, an expanded one 8 + 92. A router adds 20
// and its address.

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "vectors.h"

namespace {

using wire::Encoding;
using Format = wire::Port::Format;

constexpr std::size_t kFlowRoom = wire::kMaxFlowSample;

struct FlowVector {
    const char* name;
    wire::FlowSample sample;
    Encoding encoding;
    std::size_t room;
    std::string expected;
};

void PrintTo(const FlowVector& row, std::ostream* out) { *out << row.name; }

/// A sample whose every field differs, with so many header bytes, then changed by `change`.
template <typename Change>
wire::FlowSample MakeFlow(std::size_t header, Change change)
{
    wire::FlowSample sample;
    sample.sequence = 0x11;
    sample.source = 3;
    sample.rate = 0x1000;
    sample.pool = 0x20000;
    sample.drops = 7;
    sample.input = {Format::kSingle, 3};
    sample.output = {Format::kSingle, 4};
    sample.frameLength = 68;
    sample.stripped = 4;
    sample.header = Header(header);
    sample.maxHeader = 128;
    sample.inputVlan = 10;
    sample.inputPriority = 1;
    sample.outputVlan = 20;
    sample.outputPriority = 2;
    change(sample);
    return sample;
}

wire::FlowSample MakeFlow(std::size_t header)
{
    return MakeFlow(header, [](wire::FlowSample&) {});
}

wire::FlowSample Tagged(std::size_t header, std::size_t maxHeader = 128, std::uint16_t protocol = 0x8100)
{
    return MakeFlow(header, [&](wire::FlowSample& sample) {
        sample.tagProtocol = protocol;
        sample.tagControl = 0x6064;
        sample.maxHeader = maxHeader;
    });
}

wire::FlowSample Between(wire::Port input, wire::Port output)
{
    return MakeFlow(0, [&](wire::FlowSample& sample) {
        sample.input = input;
        sample.output = output;
    });
}

wire::FlowSample Routed(std::size_t header, std::uint8_t addressSize)
{
    return MakeFlow(header, [&](wire::FlowSample& sample) {
        sample.router = wire::ExtendedRouter{{addressSize, {}}, 24, 16};
        for (std::uint8_t i = 0; i < 16; ++i) {
            sample.router->nextHop.bytes.at(i) = static_cast<std::uint8_t>(0xa0 + i);
        }
    });
}

// Behind the length word of the sample.
const std::string kFields = "00000011 00000003 00001000 00020000 00000007 00000003 00000004 00000002 ";
const std::string kRoutedFields = "00000011 00000003 00001000 00020000 00000007 00000003 00000004 00000003 ";
const std::string kExpandedFields =
    "00000011 00000000 00000003 00001000 00020000 00000007 00000000 00000003 00000000 00000004 00000002 ";
// Behind the length word of the sampled header.
const std::string kHeaderFields = "00000001 00000044 00000004 ";
const std::string kNoHeader = "00000001 00000010 00000001 00000044 00000004 00000000 ";
const std::string kSwitch = "000003e9 00000010 0000000a 00000001 00000014 00000002 ";

const FlowVector kHeaders[] = {
    {"NoHeaderCompact", MakeFlow(0), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"NoHeaderExpanded", MakeFlow(0), Encoding::kExpanded, kFlowRoom,
     "00000003 0000005c " + kExpandedFields + kNoHeader + kSwitch},
    {"OneByte", MakeFlow(1), Encoding::kCompact, kFlowRoom,
     "00000001 00000054 " + kFields + "00000001 00000014 " + kHeaderFields + "00000001 01000000 " + kSwitch},
    {"TwoBytes", MakeFlow(2), Encoding::kCompact, kFlowRoom,
     "00000001 00000054 " + kFields + "00000001 00000014 " + kHeaderFields + "00000002 01020000 " + kSwitch},
    {"ThreeBytes", MakeFlow(3), Encoding::kCompact, kFlowRoom,
     "00000001 00000054 " + kFields + "00000001 00000014 " + kHeaderFields + "00000003 01020300 " + kSwitch},
    {"FourBytes", MakeFlow(4), Encoding::kCompact, kFlowRoom,
     "00000001 00000054 " + kFields + "00000001 00000014 " + kHeaderFields + "00000004 01020304 " + kSwitch},
    {"FiveBytesExpanded", MakeFlow(5), Encoding::kExpanded, kFlowRoom,
     "00000003 00000064 " + kExpandedFields + "00000001 00000018 " + kHeaderFields +
         "00000005 01020304 05000000 " + kSwitch},
    {"NoMoreThanMaxHeader", MakeFlow(16, [](auto& sample) { sample.maxHeader = 8; }), Encoding::kCompact,
     kFlowRoom,
     "00000001 00000058 " + kFields + "00000001 00000018 " + kHeaderFields + "00000008 01020304 05060708 " +
         kSwitch},
    {"OddMaxHeader", MakeFlow(16, [](auto& sample) { sample.maxHeader = 5; }), Encoding::kCompact, kFlowRoom,
     "00000001 00000058 " + kFields + "00000001 00000018 " + kHeaderFields + "00000005 01020304 05000000 " +
         kSwitch},
    {"MaxHeaderOfNothing", MakeFlow(16, [](auto& sample) { sample.maxHeader = 0; }), Encoding::kCompact,
     kFlowRoom, "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"NoLinkHeader", MakeFlow(4, [](auto& sample) { sample.protocol = wire::HeaderProtocol::kIpv6; }),
     Encoding::kCompact, kFlowRoom,
     "00000001 00000054 " + kFields + "00000001 00000014 0000000c 00000044 00000004 00000004 01020304 " +
         kSwitch},
    {"LargestNumbers",
     MakeFlow(0,
              [](auto& sample) {
                  sample.sequence = sample.source = sample.rate = 0xffffffff;
                  sample.pool = sample.drops = sample.frameLength = sample.stripped = 0xffffffff;
                  sample.input = sample.output = {Format::kSingle, 0xffffffff};
                  sample.inputVlan = sample.inputPriority = 0xffffffff;
                  sample.outputVlan = sample.outputPriority = 0xffffffff;
              }),
     Encoding::kExpanded, kFlowRoom,
     "00000003 0000005c ffffffff 00000000 ffffffff ffffffff ffffffff ffffffff 00000000 ffffffff 00000000 "
     "ffffffff 00000002 00000001 00000010 00000001 ffffffff ffffffff 00000000 "
     "000003e9 00000010 ffffffff ffffffff ffffffff ffffffff"},
};

const FlowVector kPorts[] = {
    {"UnknownCompact", Between({}, {}), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 00000011 00000003 00001000 00020000 00000007 00000000 00000000 00000002 " +
         kNoHeader + kSwitch},
    {"UnknownExpanded", Between({}, {}), Encoding::kExpanded, kFlowRoom,
     "00000003 0000005c 00000011 00000000 00000003 00001000 00020000 00000007 00000000 00000000 00000000 "
     "00000000 00000002 " +
         kNoHeader + kSwitch},
    {"SentByThisMachineAndDiscardedCompact",
     Between(wire::kInternalPort, wire::Discarded(wire::DropReason::kUnknown)), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 00000011 00000003 00001000 00020000 00000007 3fffffff 40000100 00000002 " +
         kNoHeader + kSwitch},
    {"SentByThisMachineAndDiscardedExpanded",
     Between(wire::kInternalPort, wire::Discarded(wire::DropReason::kUnknown)), Encoding::kExpanded,
     kFlowRoom,
     "00000003 0000005c 00000011 00000000 00000003 00001000 00020000 00000007 00000000 3fffffff 00000001 "
     "00000100 00000002 " +
         kNoHeader + kSwitch},
    {"ToSeveralCompact", Between({Format::kSingle, 0xffffff}, {Format::kMultiple, 5}), Encoding::kCompact,
     kFlowRoom,
     "00000001 00000050 00000011 00000003 00001000 00020000 00000007 00ffffff 80000005 00000002 " +
         kNoHeader + kSwitch},
    {"ToSeveralExpanded", Between({Format::kSingle, 0x1000000}, {Format::kMultiple, 0}), Encoding::kExpanded,
     kFlowRoom,
     "00000003 0000005c 00000011 00000000 00000003 00001000 00020000 00000007 00000000 01000000 00000002 "
     "00000000 00000002 " +
         kNoHeader + kSwitch},
    {"TooLargeForTheCompactEncoding",
     MakeFlow(0,
              [](auto& sample) {
                  sample.source = 0x12345678;
                  sample.input = {Format::kSingle, 0xffffffff};
                  sample.output = {Format::kDiscarded, 0xc0000002};
              }),
     Encoding::kCompact, kFlowRoom,
     "00000001 00000050 00000011 00345678 00001000 00020000 00000007 3fffffff 40000002 00000002 " +
         kNoHeader + kSwitch},
    {"LargestIndexOfTheCompactEncoding", MakeFlow(0, [](auto& sample) { sample.source = 0xffffff; }),
     Encoding::kCompact, kFlowRoom,
     "00000001 00000050 00000011 00ffffff 00001000 00020000 00000007 00000003 00000004 00000002 " +
         kNoHeader + kSwitch},
};

const FlowVector kRouters[] = {
    {"Ipv4NextHop", Routed(0, 4), Encoding::kCompact, kFlowRoom,
     "00000001 00000068 " + kRoutedFields + kNoHeader + kSwitch +
         "000003ea 00000010 00000001 a0a1a2a3 00000018 00000010"},
    {"Ipv6NextHop", Routed(0, 16), Encoding::kCompact, kFlowRoom,
     "00000001 00000074 " + kRoutedFields + kNoHeader + kSwitch +
         "000003ea 0000001c 00000002 a0a1a2a3 a4a5a6a7 a8a9aaab acadaeaf 00000018 00000010"},
    {"NotWithoutNextHop", Routed(0, 0), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"NotWithoutNextHopExpanded", Routed(0, 0), Encoding::kExpanded, kFlowRoom,
     "00000003 0000005c " + kExpandedFields + kNoHeader + kSwitch},
    {"NotWithANextHopOfNoKnownSize", Routed(0, 7), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"NotWithANextHopOfHugeSize", Routed(0, 255), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"ExpandedBehindAnOddHeader", Routed(3, 16), Encoding::kExpanded, kFlowRoom,
     "00000003 00000084 00000011 00000000 00000003 00001000 00020000 00000007 00000000 00000003 00000000 "
     "00000004 00000003 00000001 00000014 " +
         kHeaderFields + "00000003 01020300 " + kSwitch +
         "000003ea 0000001c 00000002 a0a1a2a3 a4a5a6a7 a8a9aaab acadaeaf 00000018 00000010"},
};

const FlowVector kTags[] = {
    {"BehindTheAddresses", Tagged(14), Encoding::kCompact, kFlowRoom,
     "00000001 00000064 " + kFields + "00000001 00000024 " + kHeaderFields +
         "00000012 01020304 05060708 090a0b0c 81006064 0d0e0000 " + kSwitch},
    {"OuterTagExpanded", Tagged(16, 128, 0x88a8), Encoding::kExpanded, kFlowRoom,
     "00000003 00000070 " + kExpandedFields + "00000001 00000024 " + kHeaderFields +
         "00000014 01020304 05060708 090a0b0c 88a86064 0d0e0f10 " + kSwitch},
    {"AddressesAlone", Tagged(12), Encoding::kCompact, kFlowRoom,
     "00000001 00000060 " + kFields + "00000001 00000020 " + kHeaderFields +
         "00000010 01020304 05060708 090a0b0c 81006064 " + kSwitch},
    {"NotWithoutTheAddresses", Tagged(11), Encoding::kCompact, kFlowRoom,
     "00000001 0000005c " + kFields + "00000001 0000001c " + kHeaderFields +
         "0000000b 01020304 05060708 090a0b00 " + kSwitch},
    {"NotWithoutHeader", Tagged(0), Encoding::kCompact, kFlowRoom,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"NotOfProtocolZero", Tagged(12, 128, 0), Encoding::kCompact, kFlowRoom,
     "00000001 0000005c " + kFields + "00000001 0000001c " + kHeaderFields +
         "0000000c 01020304 05060708 090a0b0c " + kSwitch},
    {"MaxHeaderCountsTheTag", Tagged(20, 18), Encoding::kCompact, kFlowRoom,
     "00000001 00000064 " + kFields + "00000001 00000024 " + kHeaderFields +
         "00000012 01020304 05060708 090a0b0c 81006064 0d0e0000 " + kSwitch},
    {"MaxHeaderBehindTheTag", Tagged(20, 16), Encoding::kCompact, kFlowRoom,
     "00000001 00000060 " + kFields + "00000001 00000020 " + kHeaderFields +
         "00000010 01020304 05060708 090a0b0c 81006064 " + kSwitch},
    {"MaxHeaderInTheTag", Tagged(20, 15), Encoding::kCompact, kFlowRoom,
     "00000001 00000060 " + kFields + "00000001 00000020 " + kHeaderFields +
         "0000000f 01020304 05060708 090a0b0c 81006000 " + kSwitch},
    {"MaxHeaderInTheTagsProtocol", Tagged(20, 13), Encoding::kCompact, kFlowRoom,
     "00000001 00000060 " + kFields + "00000001 00000020 " + kHeaderFields +
         "0000000d 01020304 05060708 090a0b0c 81000000 " + kSwitch},
    {"MaxHeaderBeforeTheTag", Tagged(20, 12), Encoding::kCompact, kFlowRoom,
     "00000001 0000005c " + kFields + "00000001 0000001c " + kHeaderFields +
         "0000000c 01020304 05060708 090a0b0c " + kSwitch},
    {"MaxHeaderInTheAddresses", Tagged(20, 5), Encoding::kCompact, kFlowRoom,
     "00000001 00000058 " + kFields + "00000001 00000018 " + kHeaderFields + "00000005 01020304 05000000 " +
         kSwitch},
    {"RoomBeforeTheTag", Tagged(20), Encoding::kCompact, 88 + 15,
     "00000001 0000005c " + kFields + "00000001 0000001c " + kHeaderFields +
         "0000000c 01020304 05060708 090a0b0c " + kSwitch},
    {"RoomBehindTheTag", Tagged(20), Encoding::kCompact, 88 + 16,
     "00000001 00000060 " + kFields + "00000001 00000020 " + kHeaderFields +
         "00000010 01020304 05060708 090a0b0c 81006064 " + kSwitch},
};

const FlowVector kFlowCuts[] = {
    {"NoRoomAtAll", MakeFlow(12), Encoding::kCompact, 0, ""},
    {"OneByteShortOfTheFields", MakeFlow(12), Encoding::kCompact, 87, ""},
    {"OneByteShortOfTheFieldsExpanded", MakeFlow(12), Encoding::kExpanded, 99, ""},
    {"OneByteShortOfTheRouter", Routed(0, 16), Encoding::kCompact, 123, ""},
    {"JustTheFields", MakeFlow(12), Encoding::kCompact, 88,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"JustTheFieldsExpanded", MakeFlow(12), Encoding::kExpanded, 100,
     "00000003 0000005c " + kExpandedFields + kNoHeader + kSwitch},
    {"JustTheFieldsAndTheRouter", Routed(12, 16), Encoding::kCompact, 124,
     "00000001 00000074 " + kRoutedFields + kNoHeader + kSwitch +
         "000003ea 0000001c 00000002 a0a1a2a3 a4a5a6a7 a8a9aaab acadaeaf 00000018 00000010"},
    {"NoWholeWord", MakeFlow(12), Encoding::kCompact, 91,
     "00000001 00000050 " + kFields + kNoHeader + kSwitch},
    {"OneWord", MakeFlow(12), Encoding::kCompact, 92,
     "00000001 00000054 " + kFields + "00000001 00000014 " + kHeaderFields + "00000004 01020304 " + kSwitch},
    {"TwoWordsAndABit", MakeFlow(12), Encoding::kCompact, 99,
     "00000001 00000058 " + kFields + "00000001 00000018 " + kHeaderFields + "00000008 01020304 05060708 " +
         kSwitch},
    {"JustTheHeader", MakeFlow(12), Encoding::kCompact, 100,
     "00000001 0000005c " + kFields + "00000001 0000001c " + kHeaderFields +
         "0000000c 01020304 05060708 090a0b0c " + kSwitch},
    {"PaddingHasNoRoom", MakeFlow(10), Encoding::kCompact, 99,
     "00000001 00000058 " + kFields + "00000001 00000018 " + kHeaderFields + "00000008 01020304 05060708 " +
         kSwitch},
    {"PaddingHasJustRoom", MakeFlow(10), Encoding::kCompact, 100,
     "00000001 0000005c " + kFields + "00000001 0000001c " + kHeaderFields +
         "0000000a 01020304 05060708 090a0000 " + kSwitch},
};

class FlowVectorTest : public testing::TestWithParam<FlowVector> {};

TEST_P(FlowVectorTest, IsWrittenAsExpected)
{
    const FlowVector& row = GetParam();
    ExpectEncoded(row.sample, row.encoding, row.room, row.expected);
}

INSTANTIATE_TEST_SUITE_P(Header, FlowVectorTest, testing::ValuesIn(kHeaders), kNameOf);
INSTANTIATE_TEST_SUITE_P(Port, FlowVectorTest, testing::ValuesIn(kPorts), kNameOf);
INSTANTIATE_TEST_SUITE_P(Router, FlowVectorTest, testing::ValuesIn(kRouters), kNameOf);
INSTANTIATE_TEST_SUITE_P(Tag, FlowVectorTest, testing::ValuesIn(kTags), kNameOf);
INSTANTIATE_TEST_SUITE_P(Cut, FlowVectorTest, testing::ValuesIn(kFlowCuts), kNameOf);

}  // namespace
