// SPDX-License-Identifier: Apache-2.0
// Discarded packets as bytes, worked out by hand from the layout of sFlow's dropped packet notifications.
//
// Without header bytes and texts one is 8 + 56 bytes.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "vectors.h"
#include "wire/discard.h"

namespace {

using wire::DiscardSample;
using wire::DropReason;

struct DiscardVector {
    const char* name;
    DiscardSample sample;
    std::size_t room;
    std::string expected;
};

void PrintTo(const DiscardVector& row, std::ostream* out) { *out << row.name; }

/// A sample whose every field differs, with so many header bytes, then changed by `change`.
template <typename Change>
DiscardSample MakeDiscard(std::size_t header, Change change)
{
    DiscardSample sample;
    sample.sequence = 0x11;
    sample.source = 0x2000003;
    sample.drops = 7;
    sample.input = 3;
    sample.output = 4;
    sample.reason = DropReason::kTtlExceeded;
    sample.frameLength = 68;
    sample.stripped = 4;
    sample.header = Header(header);
    sample.maxHeader = 128;
    change(sample);
    return sample;
}

DiscardSample MakeDiscard(std::size_t header)
{
    return MakeDiscard(header, [](DiscardSample&) {});
}

DiscardSample WithTexts(std::size_t header)
{
    return MakeDiscard(header, [](DiscardSample& sample) {
        sample.function = "abcd";
        sample.trapGroup = "l3";
        sample.trap = "ttl";
        sample.linuxReason = "NO";
    });
}

// Behind the length word of the sample, up to the number of records.
const std::string kDiscardFields = "00000011 00000000 02000003 00000007 00000003 00000004 00000101 ";
const std::string kNoDiscardHeader = "00000001 00000010 00000001 00000044 00000004 00000000 ";
const std::string kFunctionRecord = "0000040e 00000008 00000004 61626364 ";
const std::string kTrapRecord = "00000411 00000010 00000002 6c330000 00000003 74746c00 ";
const std::string kReasonRecord = "00000412 00000008 00000002 4e4f0000 ";
const std::string kFourBytes = "00000001 00000014 00000001 00000044 00000004 00000004 01020304 ";

const DiscardVector kWholeDiscards[] = {
    {"Bare", MakeDiscard(0), 2048, "00000005 00000038 " + kDiscardFields + "00000001 " + kNoDiscardHeader},
    {"HeaderOfOneByte", MakeDiscard(1), 2048,
     "00000005 0000003c " + kDiscardFields +
         "00000001 00000001 00000014 00000001 00000044 00000004 00000001 01000000"},
    {"HeaderOfFourBytes", MakeDiscard(4), 2048,
     "00000005 0000003c " + kDiscardFields + "00000001 " + kFourBytes},
    {"AllTexts", WithTexts(4), 2048,
     "00000005 00000074 " + kDiscardFields + "00000004 " + kFourBytes + kFunctionRecord + kTrapRecord +
         kReasonRecord},
    {"FunctionOnly", MakeDiscard(0, [](auto& sample) { sample.function = "abcd"; }), 2048,
     "00000005 00000048 " + kDiscardFields + "00000002 " + kNoDiscardHeader + kFunctionRecord},
    {"ReasonOnly", MakeDiscard(0, [](auto& sample) { sample.linuxReason = "NO"; }), 2048,
     "00000005 00000048 " + kDiscardFields + "00000002 " + kNoDiscardHeader + kReasonRecord},
    {"TrapWithoutGroup", MakeDiscard(0, [](auto& sample) { sample.trap = "ttl"; }), 2048,
     "00000005 0000004c " + kDiscardFields + "00000002 " + kNoDiscardHeader +
         "00000411 0000000c 00000000 00000003 74746c00"},
    {"CodeOfIcmp", MakeDiscard(0, [](auto& sample) { sample.reason = DropReason::kPortUnreachable; }), 2048,
     "00000005 00000038 00000011 00000000 02000003 00000007 00000003 00000004 00000003 00000001 " +
         kNoDiscardHeader},
    {"Ipv6", MakeDiscard(4, [](auto& sample) { sample.protocol = wire::HeaderProtocol::kIpv6; }), 2048,
     "00000005 0000003c " + kDiscardFields +
         "00000001 00000001 00000014 0000000c 00000044 00000004 00000004 01020304"},
    {"TagPutBack",
     MakeDiscard(14,
                 [](auto& sample) {
                     sample.tagProtocol = 0x8100;
                     sample.tagControl = 0x6064;
                 }),
     2048,
     "00000005 0000004c " + kDiscardFields +
         "00000001 00000001 00000024 00000001 00000044 00000004 00000012 "
         "01020304 05060708 090a0b0c 81006064 0d0e0000"},
    {"NoMoreThanMaxHeader", MakeDiscard(16, [](auto& sample) { sample.maxHeader = 4; }), 2048,
     "00000005 0000003c " + kDiscardFields + "00000001 " + kFourBytes},
};

const DiscardVector kDiscardCuts[] = {
    {"NoRoom", MakeDiscard(4), 63, ""},
    {"JustTheFields", WithTexts(4), 64,
     "00000005 00000038 " + kDiscardFields + "00000001 " + kNoDiscardHeader},
    {"HeaderCut", MakeDiscard(8), 71, "00000005 0000003c " + kDiscardFields + "00000001 " + kFourBytes},
    {"TheReasonBeforeAllElse", WithTexts(4), 80,
     "00000005 00000048 " + kDiscardFields + "00000002 " + kNoDiscardHeader + kReasonRecord},
    {"ThenTheFunction", WithTexts(4), 96,
     "00000005 00000058 " + kDiscardFields + "00000003 " + kNoDiscardHeader + kFunctionRecord +
         kReasonRecord},
    {"TheHeaderTakesWhatATrapCant", WithTexts(4), 119,
     "00000005 0000005c " + kDiscardFields + "00000003 " + kFourBytes + kFunctionRecord + kReasonRecord},
    {"AllButTheHeader", WithTexts(4), 120,
     "00000005 00000070 " + kDiscardFields + "00000004 " + kNoDiscardHeader + kFunctionRecord + kTrapRecord +
         kReasonRecord},
};

class DiscardVectorTest : public testing::TestWithParam<DiscardVector> {};

TEST_P(DiscardVectorTest, IsWrittenAsExpected)
{
    const DiscardVector& row = GetParam();
    Bytes buffer(row.room, kUntouched);
    const std::size_t size = wire::Encode(row.sample, buffer);
    ASSERT_LE(size, row.room);
    EXPECT_EQ(ToPaste(std::span(buffer).first(size)), ToPaste(FromHex(row.expected)));
    EXPECT_EQ(std::ranges::count(std::span(buffer).subspan(size), kUntouched),
              static_cast<std::ptrdiff_t>(row.room - size))
        << "written behind the end";
}

INSTANTIATE_TEST_SUITE_P(Whole, DiscardVectorTest, testing::ValuesIn(kWholeDiscards), kNameOf);
INSTANTIATE_TEST_SUITE_P(Cut, DiscardVectorTest, testing::ValuesIn(kDiscardCuts), kNameOf);

TEST(DiscardTexts, AreCutAtTheirBound)
{
    const std::string text(300, 'x');
    DiscardSample sample = MakeDiscard(0);
    sample.function = sample.trapGroup = sample.trap = sample.linuxReason = text;
    Bytes buffer(wire::kMaxDiscardSample);
    // Each text takes a length word and 256 bytes.
    EXPECT_EQ(wire::Encode(sample, buffer), 64U + 2 * (8 + 260) + (8 + 2 * 260));
}

}  // namespace
