// SPDX-License-Identifier: Apache-2.0
// The bytes of the store's keys and values.

#include <random>

#include <gtest/gtest.h>

#include "cdb/rows/codec.h"
#include "cdb/sample.h"

namespace {

namespace codec = cdb::codec;
using namespace std::string_literals;

TEST(StoreCodec, MarksItsFormat)
{
    EXPECT_EQ(codec::FormatMark(), "sflow-switch store\0\0\0\1"s);
    EXPECT_EQ(codec::FormatOf(codec::FormatMark(258)), 258U);
    EXPECT_EQ(codec::FormatOf(""), std::nullopt);
    EXPECT_EQ(codec::FormatOf("some other program's"), std::nullopt);
    EXPECT_EQ(codec::FormatOf("sflow-switch store\0\0\0"s), std::nullopt);
}

TEST(StoreCodec, OrdersNumbersAsBytes)
{
    EXPECT_EQ(codec::NumberBytes(258), "\0\0\0\0\0\0\1\2"s);
    EXPECT_LT(codec::NumberBytes(255), codec::NumberBytes(256));
    EXPECT_EQ(codec::NumberOf(codec::NumberBytes(0xFEDCBA9876543210)), 0xFEDCBA9876543210U);
    EXPECT_EQ(codec::NumberOf("1"), std::nullopt);
}

// The checksum is what `python3 -c 'import zlib; print(hex(zlib.crc32(b"keypayload")))'` prints.
TEST(StoreCodec, PutsFormatAndChecksumBeforeAPayload)
{
    EXPECT_EQ(codec::Seal("key", "payload"), "\x01\xb0\x26\x6c\xcapayload"s);
}

TEST(StoreCodec, SeesADamagedValue)
{
    const std::string sealed = codec::Seal("key", "payload");
    EXPECT_EQ(codec::Payload(sealed), "payload");
    EXPECT_TRUE(codec::IsIntact("key", sealed));
    EXPECT_FALSE(codec::IsIntact("kez", sealed));
    for (std::size_t i = 0; i < sealed.size(); ++i)
        for (unsigned bit = 0; bit < 8; ++bit) {
            std::string damaged = sealed;
            damaged[i] = static_cast<char>(static_cast<unsigned char>(damaged[i]) ^ (1U << bit));
            EXPECT_FALSE(codec::IsIntact("key", damaged)) << i << ' ' << bit;
        }
    EXPECT_FALSE(codec::Payload("\1abc"));
    EXPECT_FALSE(codec::Payload("\2abcdpayload"));
    EXPECT_FALSE(codec::Payload(""));
}

TEST(StoreCodec, WritesARowThatReadsBack)
{
    const cdb::Row row{{{"name", "c1"s},
                        {"enabled", false},
                        {"datagram-size", std::uint16_t{1400}},
                        {"sampling-rate", std::uint32_t{70000}},
                        {"ip", cdb::Ipv4{0x010200c0}},
                        {"plen", cdb::Ipv4Plen{0x0500000a, 24}}}};
    std::string payload;
    codec::ToBytes(row, payload);
    cdb::Row result{{{"left over from the row before", true}}};
    ASSERT_TRUE(codec::ReadRow(payload, result));
    EXPECT_EQ(result, row);
    codec::ToBytes({}, payload);
    ASSERT_TRUE(codec::ReadRow(payload, result));
    EXPECT_EQ(result, cdb::Row());
    EXPECT_FALSE(codec::ReadRow("\xff\xff", result));
}

TEST(StoreCodec, PassesOverWhatNewerProgramsAdd)
{
    const cdb::Row row{{{"port", std::uint16_t{7}}, {"nothing", cdb::Value()}}};
    std::string payload;
    codec::ToBytes(row, payload);
    // A field 15 of each kind: in the row, and in a leaf and a value that it begins with.
    payload += "\x78\x05";
    payload += "\x7a\x03xyz";
    const std::string leaf = "\x0a\x01p\x7d\x01\x02\x03\x04\x12\x04\x18\x08\x78\x01";
    payload += "\x0a" + std::string(1, static_cast<char>(leaf.size())) + leaf;
    cdb::Row result;
    ASSERT_TRUE(codec::ReadRow(payload, result));
    EXPECT_EQ(result,
              (cdb::Row{{{"port", std::uint16_t{7}}, {"nothing", cdb::Value()}, {"p", std::uint16_t{8}}}}));
}

TEST(StoreCodec, RefusesValuesBeyondTheirType)
{
    cdb::Row result;
    EXPECT_TRUE(codec::ReadRow("\x0a\x06\x12\x04\x18\xff\xff\x03", result)) << "a uint16 of 65535";
    EXPECT_FALSE(codec::ReadRow("\x0a\x06\x12\x04\x18\x80\x80\x04", result)) << "a uint16 of 65536";
    EXPECT_TRUE(codec::ReadRow("\x0a\x06\x12\x04\x32\x02\x10\x20", result)) << "a prefix length of 32";
    EXPECT_FALSE(codec::ReadRow("\x0a\x06\x12\x04\x32\x02\x10\x21", result)) << "a prefix length of 33";
}

TEST(StoreCodec, ReadsAnyBytesToAnEnd)
{
    std::string payload;
    codec::ToBytes({{{"name", "c1"s}, {"ip", cdb::Ipv4{0x010200c0}}, {"plen", cdb::Ipv4Plen{1, 24}}}},
                   payload);
    std::mt19937 random(1);
    int read = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string changed = payload.substr(0, 1 + random() % payload.size());
        for (auto changes = random() % 3; changes > 0; --changes)
            changed[random() % changed.size()] = static_cast<char>(random());
        cdb::Row row;
        if (codec::ReadRow(changed, row)) ++read;
    }
    EXPECT_GT(read, 100);
    EXPECT_LT(read, 19000);
}

TEST(StoreCodec, KeepsTheEntriesOfAListTogetherInTheOrderOfTheirKeys)
{
    const codec::RowKeys keys(sample::Table());
    const auto key = [&keys](const std::string& path, std::vector<std::string> entry) {
        std::string bytes;
        keys.Prefix(sample::Node(path), entry, bytes);
        return bytes;
    };
    EXPECT_EQ(key(sample::kFlow, {"eth1", "c1"}),
              "/config/oam/sflow/interface/flow-sampling-collector\0eth1\0c1\0"s);
    const std::vector<std::string> ordered = {
        key(sample::kInterface, {}),         key(sample::kInterface, {"ETH"}),
        key(sample::kInterface, {"eth1"}),   key(sample::kInterface, {"eth1-a"}),
        key(sample::kInterface, {"eth10"}),  key(sample::kInterface, {"eth2"}),
        key(sample::kFlow, {"eth1"}),        key(sample::kFlow, {"eth1", "c1"}),
        key(sample::kFlow, {"eth10", "c1"}),
    };
    for (std::size_t i = 1; i < ordered.size(); ++i) EXPECT_LT(ordered[i - 1], ordered[i]) << i;
}

TEST(StoreCodec, SplitsKeysAndReusesTheirMemory)
{
    std::vector<std::string> keys{"x", "y", "z"};
    codec::RowKeys::Split("a\0\0"s, keys);
    EXPECT_EQ(keys, (std::vector<std::string>{"a", ""}));
    codec::RowKeys::Split("", keys);
    EXPECT_EQ(keys, std::vector<std::string>{});
}

TEST(StoreCodec, PrintsAKeyForMessages)
{
    EXPECT_EQ(codec::Readable("/config/oam/sflow/interface/flow-sampling-collector\0eth1\0c1\0"s),
              "/config/oam/sflow/interface/flow-sampling-collector{eth1}{c1}");
    EXPECT_EQ(codec::Readable("/config\0"s), "/config");
}

}  // namespace
