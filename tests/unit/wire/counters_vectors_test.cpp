// SPDX-License-Identifier: Apache-2.0
// Counters samples and the head of a datagram as bytes, worked out by hand from the layout in sFlow
// version 5.
//
// With the generic counters alone a compact sample is 8 + 108 bytes, an expanded one 8 + 112. The Ethernet
// counters add 60, those of an aggregation port 64, a port name 12 and its bytes.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "vectors.h"

namespace {

using wire::Encoding;

constexpr std::size_t kCountersRoom = wire::kMaxCountersSample;

struct CountersVector {
    const char* name;
    wire::CountersSample sample;
    Encoding encoding;
    std::size_t room;
    std::string expected;
};

void PrintTo(const CountersVector& row, std::ostream* out) { *out << row.name; }

enum class Ethernet : std::uint8_t { kNo, kYes };

/// A sample whose every counter differs.
wire::CountersSample MakeCounters(Ethernet ethernet, std::string_view portName)
{
    wire::CountersSample sample;
    sample.sequence = 0x21;
    sample.source = 5;
    sample.generic = {.ifIndex = 5,
                      .ifType = 6,
                      .speed = 10'000'000'000,
                      .direction = 1,
                      .adminUp = true,
                      .operUp = true,
                      .inOctets = 0x0102030405060708,
                      .inUnicast = 0x11,
                      .inMulticast = 0x12,
                      .inBroadcast = 0x13,
                      .inDiscards = 0x14,
                      .inErrors = 0x15,
                      .inUnknownProtocols = 0x16,
                      .outOctets = 0x1112131415161718,
                      .outUnicast = 0x21,
                      .outMulticast = 0x22,
                      .outBroadcast = 0x23,
                      .outDiscards = 0x24,
                      .outErrors = 0x25,
                      .promiscuous = 2};
    if (ethernet == Ethernet::kYes) {
        sample.ethernet = wire::EthernetCounters{.alignmentErrors = 0x31,
                                                 .fcsErrors = 0x32,
                                                 .singleCollisions = 0x33,
                                                 .multipleCollisions = 0x34,
                                                 .sqeTestErrors = 0x35,
                                                 .deferred = 0x36,
                                                 .lateCollisions = 0x37,
                                                 .excessiveCollisions = 0x38,
                                                 .macTransmitErrors = 0x39,
                                                 .carrierSenseErrors = 0x3a,
                                                 .frameTooLongs = 0x3b,
                                                 .macReceiveErrors = 0x3c,
                                                 .symbolErrors = 0x3d};
    }
    sample.portName = portName;
    return sample;
}

wire::CountersSample WithStatus(bool adminUp, bool operUp)
{
    wire::CountersSample sample;
    sample.generic.adminUp = adminUp;
    sample.generic.operUp = operUp;
    return sample;
}

/// Default counters: unknown things are zero, what is not counted is all ones.
std::string Uncounted(const std::string& status)
{
    return "00000002 0000006c 00000000 00000000 00000001 00000001 00000058 00000000 00000000 00000000 "
           "00000000 "
           "00000000 " +
           status +
           " ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff "
           "ffffffff ffffffff ffffffff ffffffff ffffffff 00000000";
}

wire::CountersSample UncountedEthernet()
{
    wire::CountersSample sample;
    sample.ethernet.emplace();
    return sample;
}

wire::CountersSample WithLag(Ethernet ethernet, std::string_view portName)
{
    wire::CountersSample sample = MakeCounters(ethernet, portName);
    sample.lag = wire::LagCounters{.actorSystem = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee},
                                   .partnerSystem = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55},
                                   .aggregate = 9,
                                   .actorAdminState = 0x07,
                                   .actorState = 0x3d,
                                   .partnerAdminState = 0x47,
                                   .partnerState = 0x3f,
                                   .lacpdusIn = 0x41,
                                   .markersIn = 0x42,
                                   .markerResponsesIn = 0x43,
                                   .unknownIn = 0x44,
                                   .illegalIn = 0x45,
                                   .lacpdusOut = 0x46,
                                   .markersOut = 0x47,
                                   .markerResponsesOut = 0x48};
    return sample;
}

wire::CountersSample UncountedLag()
{
    wire::CountersSample sample;
    sample.lag.emplace();
    return sample;
}

wire::CountersSample FromSource(std::uint32_t source)
{
    wire::CountersSample sample = MakeCounters(Ethernet::kNo, "");
    sample.source = source;
    return sample;
}

const std::string kGeneric =
    "00000001 00000058 00000005 00000006 00000002 540be400 00000001 00000003 01020304 05060708 "
    "00000011 00000012 00000013 00000014 00000015 00000016 11121314 15161718 "
    "00000021 00000022 00000023 00000024 00000025 00000002 ";
const std::string kEthernet =
    "00000002 00000034 00000031 00000032 00000033 00000034 00000035 00000036 00000037 00000038 "
    "00000039 0000003a 0000003b 0000003c 0000003d ";
const std::string kEth0 = "000003ed 00000008 00000004 65746830 ";

/// lag_port_stats of sflow.org's sflow_lag.txt. Each of the two systems has two bytes of padding.
const std::string kLag =
    "00000007 00000038 02aabbcc ddee0000 02112233 44550000 00000009 073d473f "
    "00000041 00000042 00000043 00000044 00000045 00000046 00000047 00000048 ";

const std::string k255Letters(255, 'a');
const std::string k256Letters(256, 'a');

std::string Hex61(int times)
{
    std::string text;
    for (int i = 0; i < times; ++i) text += "61";
    return text;
}

const CountersVector kRecords[] = {
    {"GenericCompact", MakeCounters(Ethernet::kNo, ""), Encoding::kCompact, kCountersRoom,
     "00000002 0000006c 00000021 00000005 00000001 " + kGeneric},
    {"GenericExpanded", MakeCounters(Ethernet::kNo, ""), Encoding::kExpanded, kCountersRoom,
     "00000004 00000070 00000021 00000000 00000005 00000001 " + kGeneric},
    {"EthernetCompact", MakeCounters(Ethernet::kYes, ""), Encoding::kCompact, kCountersRoom,
     "00000002 000000a8 00000021 00000005 00000002 " + kGeneric + kEthernet},
    {"EthernetExpanded", MakeCounters(Ethernet::kYes, ""), Encoding::kExpanded, kCountersRoom,
     "00000004 000000ac 00000021 00000000 00000005 00000002 " + kGeneric + kEthernet},
    {"AllRecordsCompact", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, kCountersRoom,
     "00000002 000000b8 00000021 00000005 00000003 " + kGeneric + kEthernet + kEth0},
    {"AllRecordsExpanded", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kExpanded, kCountersRoom,
     "00000004 000000bc 00000021 00000000 00000005 00000003 " + kGeneric + kEthernet + kEth0},
    {"PortNameWithoutEthernet", MakeCounters(Ethernet::kNo, "eth0"), Encoding::kCompact, kCountersRoom,
     "00000002 0000007c 00000021 00000005 00000002 " + kGeneric + kEth0},
    {"PortNameOfOneByte", MakeCounters(Ethernet::kNo, "e"), Encoding::kCompact, kCountersRoom,
     "00000002 0000007c 00000021 00000005 00000002 " + kGeneric + "000003ed 00000008 00000001 65000000"},
    {"PortNameOfFiveBytes", MakeCounters(Ethernet::kNo, "eth01"), Encoding::kCompact, kCountersRoom,
     "00000002 00000080 00000021 00000005 00000002 " + kGeneric +
         "000003ed 0000000c 00000005 65746830 31000000"},
    {"LongestPortName", MakeCounters(Ethernet::kNo, k255Letters), Encoding::kCompact, kCountersRoom,
     "00000002 00000178 00000021 00000005 00000002 " + kGeneric + "000003ed 00000104 000000ff " + Hex61(255) +
         "00"},
    {"TooLongAPortNameIsCut", MakeCounters(Ethernet::kNo, k256Letters), Encoding::kCompact, kCountersRoom,
     "00000002 00000178 00000021 00000005 00000002 " + kGeneric + "000003ed 00000104 000000ff " + Hex61(255) +
         "00"},
    {"NothingCounted", WithStatus(false, false), Encoding::kCompact, kCountersRoom, Uncounted("00000000")},
    {"OnlyAdminUp", WithStatus(true, false), Encoding::kCompact, kCountersRoom, Uncounted("00000001")},
    {"OnlyOperUp", WithStatus(false, true), Encoding::kCompact, kCountersRoom, Uncounted("00000002")},
    {"NoEthernetCounterCounted", UncountedEthernet(), Encoding::kCompact, kCountersRoom,
     "00000002 000000a8 00000000 00000000 00000002 " + Uncounted("00000000").substr(45) +
         " 00000002 00000034 ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff "
         "ffffffff "
         "ffffffff ffffffff ffffffff ffffffff"},
    {"MemberOfAnAggregate", WithLag(Ethernet::kNo, ""), Encoding::kCompact, kCountersRoom,
     "00000002 000000ac 00000021 00000005 00000002 " + kGeneric + kLag},
    {"MemberOfAnAggregateWithAllRecords", WithLag(Ethernet::kYes, "eth0"), Encoding::kExpanded, kCountersRoom,
     "00000004 000000fc 00000021 00000000 00000005 00000004 " + kGeneric + kEthernet + kLag + kEth0},
    {"NothingCountedOfAMember", UncountedLag(), Encoding::kCompact, kCountersRoom,
     "00000002 000000ac 00000000 00000000 00000002 " + Uncounted("00000000").substr(45) +
         " 00000007 00000038 00000000 00000000 00000000 00000000 00000000 00000000 ffffffff ffffffff "
         "ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff"},
    {"MostThatASampleCanBe", WithLag(Ethernet::kYes, k255Letters), Encoding::kExpanded, kCountersRoom,
     "00000004 000001f8 00000021 00000000 00000005 00000004 " + kGeneric + kEthernet + kLag +
         "000003ed 00000104 000000ff " + Hex61(255) + "00"},
    {"LargestIndexOfTheCompactEncoding", FromSource(0xffffff), Encoding::kCompact, kCountersRoom,
     "00000002 0000006c 00000021 00ffffff 00000001 " + kGeneric},
    {"IndexTooLargeForTheCompactEncoding", FromSource(0x12345678), Encoding::kCompact, kCountersRoom,
     "00000002 0000006c 00000021 00345678 00000001 " + kGeneric},
    {"LargestIndex", FromSource(0xffffffff), Encoding::kExpanded, kCountersRoom,
     "00000004 00000070 00000021 00000000 ffffffff 00000001 " + kGeneric},
};

const CountersVector kCountersCuts[] = {
    {"NoRoomAtAll", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, 0, ""},
    {"OneByteShortOfTheGenericCounters", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, 115, ""},
    {"OneByteShortOfTheGenericCountersExpanded", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kExpanded,
     119, ""},
    {"JustTheGenericCounters", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, 116,
     "00000002 0000006c 00000021 00000005 00000001 " + kGeneric},
    {"JustTheGenericCountersExpanded", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kExpanded, 120,
     "00000004 00000070 00000021 00000000 00000005 00000001 " + kGeneric},
    {"NoPortNameWhereTheEthernetCountersDoNotFit", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact,
     175, "00000002 0000006c 00000021 00000005 00000001 " + kGeneric},
    {"JustTheEthernetCounters", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, 176,
     "00000002 000000a8 00000021 00000005 00000002 " + kGeneric + kEthernet},
    {"OneByteShortOfThePortName", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, 191,
     "00000002 000000a8 00000021 00000005 00000002 " + kGeneric + kEthernet},
    {"JustEverything", MakeCounters(Ethernet::kYes, "eth0"), Encoding::kCompact, 192,
     "00000002 000000b8 00000021 00000005 00000003 " + kGeneric + kEthernet + kEth0},
    {"OneByteShortOfTheMembersRecord", WithLag(Ethernet::kYes, "eth0"), Encoding::kCompact, 239,
     "00000002 000000a8 00000021 00000005 00000002 " + kGeneric + kEthernet},
    {"JustTheMembersRecord", WithLag(Ethernet::kYes, "eth0"), Encoding::kCompact, 240,
     "00000002 000000e8 00000021 00000005 00000003 " + kGeneric + kEthernet + kLag},
    {"PaddingOfThePortNameHasNoRoom", MakeCounters(Ethernet::kNo, "e"), Encoding::kCompact, 131,
     "00000002 0000006c 00000021 00000005 00000001 " + kGeneric},
};

class CountersVectorTest : public testing::TestWithParam<CountersVector> {};

TEST_P(CountersVectorTest, IsWrittenAsExpected)
{
    const CountersVector& row = GetParam();
    ExpectEncoded(row.sample, row.encoding, row.room, row.expected);
}

INSTANTIATE_TEST_SUITE_P(Records, CountersVectorTest, testing::ValuesIn(kRecords), kNameOf);
INSTANTIATE_TEST_SUITE_P(Cut, CountersVectorTest, testing::ValuesIn(kCountersCuts), kNameOf);

TEST(DatagramHeaderVectorTest, IsWrittenAsExpected)
{
    const wire::DatagramHeader header{.agentAddress = ::inet_addr("192.0.2.1"),
                                      .subAgent = 0x01020304,
                                      .sequence = 0x11121314,
                                      .uptime = 0xfffefdfc,
                                      .samples = 7};
    Bytes buffer(wire::kDatagramHeaderSize + 1, kUntouched);
    wire::Encode(header, buffer);
    EXPECT_EQ(buffer, FromHex("00000005 00000001 c0000201 01020304 11121314 fffefdfc 00000007 ee"))
        << ToPaste(buffer);
}

}  // namespace
