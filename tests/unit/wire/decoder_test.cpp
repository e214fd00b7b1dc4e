// SPDX-License-Identifier: Apache-2.0
// The decoder that the other suites rely on: it reads every field, and refuses what is not exact.

#include "support/sflow_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/hex.h"

namespace {

// A compact datagram of a flow sample with all its records and a counters sample with all of its own.
const std::string kHead = "00000005 00000001 c0000201 00000009 0000000a 0000000b ";
const std::string kFlow =
    "00000001 0000006c 00000011 00000003 00001000 00020000 00000007 00000003 40000100 00000003 "
    "00000001 00000014 00000001 00000044 00000004 00000003 01020300 "
    "000003e9 00000010 0000000a 00000001 00000014 00000002 "
    "000003ea 00000010 00000001 c0000202 00000018 00000010 ";
const std::string kCounters =
    "00000002 000000b8 00000021 00000005 00000003 "
    "00000001 00000058 00000005 00000006 00000002 540be400 00000001 00000001 01020304 05060708 "
    "00000011 00000012 00000013 00000014 00000015 00000016 11121314 15161718 "
    "00000021 00000022 00000023 00000024 00000025 00000002 "
    "00000002 00000034 00000031 00000032 00000033 00000034 00000035 00000036 00000037 00000038 "
    "00000039 0000003a 0000003b 0000003c 0000003d "
    "000003ed 00000008 00000004 65746830 ";

// There is one encoding of it.
const std::string kDiscard =
    "00000005 00000078 00000041 00000000 00000003 00000009 00000003 00000004 00000101 00000004 "
    "00000001 00000014 00000001 00000044 00000004 00000003 01020300 "
    "0000040e 00000008 00000004 66756e63 "
    "00000411 00000010 00000002 67700000 00000004 74726170 "
    "00000412 0000000c 00000006 52454153 4f4e0000 ";

support::DecodedFlow Flow()
{
    support::DecodedFlow flow{.expanded = false,
                              .sequence = 0x11,
                              .sourceClass = 0,
                              .sourceIndex = 3,
                              .rate = 0x1000,
                              .pool = 0x20000,
                              .drops = 7,
                              .input = {0, 3},
                              .output = {1, 256},
                              .records = {1, 1001, 1002},
                              .header = {},
                              .extendedSwitch = support::DecodedSwitch{10, 1, 20, 2},
                              .extendedRouter = support::DecodedRouter{"192.0.2.2", 24, 16}};
    flow.header = support::DecodedHeader{1, 68, 4, FromHex("010203")};
    return flow;
}

support::DecodedCounters Counters()
{
    support::DecodedCounters counters;
    counters.sequence = 0x21;
    counters.sourceIndex = 5;
    counters.records = {1, 2, 1005};
    counters.generic =
        support::DecodedGeneric{5,    6,    10'000'000'000, 1,    true, false, 0x0102030405060708,
                                0x11, 0x12, 0x13,           0x14, 0x15, 0x16,  0x1112131415161718,
                                0x21, 0x22, 0x23,           0x24, 0x25, 2};
    counters.ethernet = support::DecodedEthernet{0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37,
                                                 0x38, 0x39, 0x3a, 0x3b, 0x3c, 0x3d};
    counters.portName = "eth0";
    return counters;
}

support::DecodedDiscard Discard()
{
    support::DecodedDiscard discard;
    discard.sequence = 0x41;
    discard.sourceIndex = 3;
    discard.drops = 9;
    discard.input = 3;
    discard.output = 4;
    discard.reason = 257;
    discard.records = {1, 1038, 1041, 1042};
    discard.header = support::DecodedHeader{1, 68, 4, FromHex("010203")};
    discard.function = "func";
    discard.trap = support::DecodedTrap{"gp", "trap"};
    discard.linuxReason = "REASON";
    return discard;
}

const std::string kMember =
    "00000002 0000004c 00000021 00000005 00000001 00000007 00000038 02aabbcc ddee0000 02112233 44550000 "
    "00000009 073d473f 00000041 00000042 00000043 00000044 00000045 00000046 00000047 00000048";

TEST(SflowDecoderTest, ReadsTheMemberOfAnAggregate)
{
    support::DecodedCounters expected;
    expected.sequence = 0x21;
    expected.sourceIndex = 5;
    expected.records = {7};
    expected.lag = support::DecodedLag{"02:aa:bb:cc:dd:ee",
                                       "02:11:22:33:44:55",
                                       9,
                                       0x07,
                                       0x3d,
                                       0x47,
                                       0x3f,
                                       0x41,
                                       0x42,
                                       0x43,
                                       0x44,
                                       0x45,
                                       0x46,
                                       0x47,
                                       0x48};
    EXPECT_EQ(std::get<support::DecodedCounters>(support::DecodeSample(FromHex(kMember))), expected);
}

TEST(SflowDecoderTest, ReadsADiscardedPacketBesideEitherEncoding)
{
    const auto datagram = support::DecodeDatagram(FromHex(kHead + "00000003" + kDiscard + kFlow + kDiscard));
    EXPECT_EQ(datagram.samples, (std::vector<support::DecodedSample>{Discard(), Flow(), Discard()}));
    EXPECT_EQ(datagram.Discards(), (std::vector{Discard(), Discard()}));
}

TEST(SflowDecoderTest, ReadsEveryFieldOfADatagram)
{
    const auto datagram = support::DecodeDatagram(FromHex(kHead + "00000002" + kFlow + kCounters));
    EXPECT_EQ(datagram.agent, "192.0.2.1");
    EXPECT_EQ(datagram.subAgent, 9U);
    EXPECT_EQ(datagram.sequence, 10U);
    EXPECT_EQ(datagram.uptime, 11U);
    EXPECT_EQ(datagram.samples, (std::vector<support::DecodedSample>{Flow(), Counters()}));
    EXPECT_EQ(datagram.Flows(), std::vector{Flow()});
    EXPECT_EQ(datagram.Counters(), std::vector{Counters()});
}

TEST(SflowDecoderTest, ReadsTheExpandedEncoding)
{
    const auto sample = support::DecodeSample(
        FromHex("00000003 0000002c 00000011 00000001 81000003 00001000 00020000 00000007 "
                "00000002 ff000003 00000001 00000100 00000000"));
    support::DecodedFlow expected = Flow();
    expected.expanded = true;
    expected.sourceClass = 1;
    expected.sourceIndex = 0x81000003;
    expected.input = {2, 0xff000003};
    expected.records.clear();
    expected.header.reset();
    expected.extendedSwitch.reset();
    expected.extendedRouter.reset();
    EXPECT_EQ(std::get<support::DecodedFlow>(sample), expected);
}

TEST(SflowDecoderTest, ReadsAddressesOfEveryKind)
{
    const std::string head =
        "00000001 000000%1 00000011 02000003 00001000 00020000 00000007 80000003 bfffffff 00000001 ";
    const auto nextHop = [](const std::string& text) {
        const auto flow = std::get<support::DecodedFlow>(support::DecodeSample(FromHex(text)));
        EXPECT_EQ(flow.sourceClass, 2U);
        EXPECT_EQ(flow.sourceIndex, 3U);
        EXPECT_EQ(flow.input, (support::DecodedPort{2, 3}));
        EXPECT_EQ(flow.output, (support::DecodedPort{2, 0x3fffffff}));
        return flow.extendedRouter.value().nextHop;
    };
    const auto with = [&](const std::string& size, const std::string& record) {
        return std::string(head).replace(head.find("%1"), 2, size) + record;
    };
    EXPECT_EQ(nextHop(with("38", "000003ea 00000010 00000001 c0000202 00000018 00000010")), "192.0.2.2");
    EXPECT_EQ(nextHop(with("44",
                           "000003ea 0000001c 00000002 20010db8 00000000 00000000 00000001 "
                           "00000018 00000010")),
              "2001:db8::1");
}

struct Wrong {
    const char* name;
    std::string bytes;
    const char* error;
};

void PrintTo(const Wrong& row, std::ostream* out) { *out << row.name; }

/// The text with its first `old` after `from` replaced.
std::string With(std::string text, const std::string& old, const std::string& replacement)
{
    const auto at = text.find(old);
    if (at == std::string::npos) throw std::invalid_argument("no " + old);
    return text.replace(at, old.size(), replacement);
}

const std::string kOneFlow = kHead + "00000001" + kFlow;
const std::string kOneCounters = kHead + "00000001" + kCounters;
const std::string kOneDiscard = kHead + "00000001" + kDiscard;

const Wrong kWrong[] = {
    {"Empty", "", "offset 0: version needs 4 bytes, there are 0"},
    {"OtherVersion", "00000004" + kOneFlow.substr(8), "offset 0: the version is not 5"},
    {"NoAgent", "00000005 00000000", "offset 4: an agent without address"},
    {"UnknownAddressType", "00000005 00000003", "offset 4: agent address is 3"},
    {"CutHead", kHead, "offset 24: number of samples needs 4 bytes, there are 0"},
    {"FewerSamplesThanPromised", kHead + "00000002" + kFlow,
     "offset 144: sample format needs 4 bytes, there are 0"},
    {"MoreSamplesThanPromised", kHead + "00000000" + kFlow, "offset 28: 116 bytes left over in datagram"},
    {"OneByteBehind", kOneFlow + "00", "offset 144: 1 bytes left over in datagram"},
    {"UnknownSampleFormat", kHead + "00000001 00000006 00000000", "offset 28: unknown sample format 6"},
    {"OtherEnterprise", kHead + "00000001 00001001 00000000", "offset 28: unknown sample format 4097"},
    {"SampleBeyondTheEnd", With(kOneFlow, "0000006c", "00000070"),
     "offset 36: sample needs 112 bytes, there are 108"},
    {"SampleTooShort", With(kOneFlow, "0000006c", "00000068"),
     "offset 128: record needs 16 bytes, there are 12"},
    {"SampleOfHalfAWord", With(kOneFlow, "0000006c", "0000006a"), "offset 32: sample of 106 bytes"},
    {"SampleTooLong", With(kOneFlow, "0000006c", "00000070") + "00000000",
     "offset 144: 4 bytes left over in sample"},
    {"BothEncodings", kHead + "00000002" + kFlow + "00000004 00000010 00000001 00000000 00000001 00000000",
     "offset 168: before here a sample of the other encoding"},
    {"PortOfFormat3", With(kOneFlow, "40000100", "c0000100"), "offset 60: output of format 3"},
    {"RecordOfUnknownFormat", With(kOneFlow, "000003e9", "000003eb"), "offset 96: unknown flow record 1003"},
    {"RecordTwice", With(kOneFlow, "000003ea 00000010", "000003e9 00000010"),
     "offset 128: the second record of one format"},
    {"RecordTooShort", With(kOneFlow, "000003e9 00000010", "000003e9 0000000c"),
     "offset 116: destination priority needs 4 bytes, there are 0"},
    {"RecordTooLong", With(kOneFlow, "000003e9 00000010", "000003e9 00000014"),
     "offset 120: 4 bytes left over in record"},
    {"FewerRecordsThanPromised", With(kOneFlow, "40000100 00000003", "40000100 00000004"),
     "offset 144: record format needs 4 bytes, there are 0"},
    {"MoreRecordsThanPromised", With(kOneFlow, "40000100 00000003", "40000100 00000002"),
     "offset 120: 24 bytes left over in sample"},
    {"RecordsWithoutEnd", With(kOneFlow, "40000100 00000003", "40000100 ffffffff"),
     "offset 144: record format needs 4 bytes, there are 0"},
    {"HeaderBeyondItsRecord", With(kOneFlow, "00000003 01020300", "00000005 01020300"),
     "offset 92: header needs 5 bytes, there are 4"},
    {"HeaderOfHugeLength", With(kOneFlow, "00000003 01020300", "fffffffe 01020300"),
     "offset 92: header needs 4294967294 bytes, there are 4"},
    {"HeaderShorterThanItsRecord", With(kOneFlow, "00000003 01020300", "00000000 01020300"),
     "offset 92: 4 bytes left over in record"},
    {"PaddingNotZero", With(kOneFlow, "01020300", "01020301"),
     "offset 95: the padding of header is not zero"},
    {"RouterWithoutAddress", With(kOneFlow, "00000001 c0000202", "00000000 c0000202"),
     "offset 128: a next hop without address"},
    {"UnknownHeaderProtocol", With(kOneFlow, "00000014 00000001", "00000014 0000000f"),
     "offset 76: unknown header protocol"},
    {"UnknownCounterRecord", With(kOneCounters, "000003ed", "000003ee"),
     "offset 204: unknown counter record 1006"},
    {"StatusWithOtherBits", With(kOneCounters, "00000001 00000001 01020304", "00000001 00000004 01020304"),
     "offset 76: ifStatus is 4"},
    {"PaddingOfASystemNotZero", With(kHead + "00000001" + kMember, "ddee0000", "ddee0001"),
     "offset 63: the padding of dot3adAggPortActorSystemID is not zero"},
    {"DiscardOfUnknownReason", With(kOneDiscard, "00000101", "00000010"),
     "offset 60: unknown drop reason 16"},
    {"DiscardRecordOfUnknownFormat", With(kOneDiscard, "00000412", "00000413"),
     "offset 136: unknown record 1043 of a discarded packet"},
    {"DiscardRecordTwice", With(kOneDiscard, "00000412", "0000040e"),
     "offset 144: the second record of one format"},
    {"DiscardTextOfManyBytes", With(kOneDiscard, "0000040e 00000008 00000004", "0000040e 00000008 00000200"),
     "offset 108: function needs 512 bytes, there are 4"},
    {"UnknownDirection", With(kOneCounters, "00000001 00000001 01020304", "00000005 00000001 01020304"),
     "offset 72: ifDirection is 5"},
};

class SflowDecoderErrorTest : public testing::TestWithParam<Wrong> {};

TEST_P(SflowDecoderErrorTest, NamesTheOffset)
{
    try {
        support::DecodeDatagram(FromHex(GetParam().bytes));
        FAIL() << "taken: " << GetParam().bytes;
    } catch (const support::DecodeError& error) {
        EXPECT_STREQ(error.what(), GetParam().error);
    }
}

INSTANTIATE_TEST_SUITE_P(Wrong, SflowDecoderErrorTest, testing::ValuesIn(kWrong),
                         [](const auto& row) { return row.param.name; });

TEST(SflowDecoderTest, RefusesEveryBeginningOfADatagram)
{
    const Bytes whole = FromHex(kHead + "00000002" + kFlow + kCounters);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(support::DecodeDatagram(std::span(whole).first(size)), support::DecodeError) << size;
    }
}

}  // namespace
