// SPDX-License-Identifier: Apache-2.0
// Values as text and as messages.

#include <arpa/inet.h>

#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "cdb/model/value.h"
#include "cdb/model/value_message.h"
#include "ipc/cdb.pb.h"

namespace {

using cdb::FromText;
using cdb::Value;
using cdb::ValueType;

std::uint32_t Word(const char* text) { return inet_addr(text); }

struct TextCase {
    const char* name;
    Value value;
    std::string text;
};

const std::vector<TextCase> kTexts = {
    {"an empty string", std::string(), ""},
    {"a string", std::string("gigabit-ethernet-1/1/1"), "gigabit-ethernet-1/1/1"},
    {"true", true, "true"},
    {"false", false, "false"},
    {"the smallest uint16", std::uint16_t{0}, "0"},
    {"the largest uint16", std::uint16_t{65535}, "65535"},
    {"the largest uint32", std::uint32_t{4294967295}, "4294967295"},
    {"an address", cdb::Ipv4{Word("192.0.2.1")}, "192.0.2.1"},
    {"an address with its host bits", cdb::Ipv4Plen{Word("10.0.0.5"), 24}, "10.0.0.5/24"},
    {"the longest prefix", cdb::Ipv4Plen{Word("255.255.255.255"), 32}, "255.255.255.255/32"},
    {"the shortest prefix", cdb::Ipv4Plen{0, 0}, "0.0.0.0/0"},
};

TEST(Value, HasACanonicalTextThatReadsBack)
{
    for (const auto& row : kTexts) {
        EXPECT_EQ(cdb::ToText(row.value), row.text) << row.name;
        EXPECT_EQ(FromText(cdb::TypeOf(row.value), row.text), row.value) << row.name;
    }
    EXPECT_EQ(cdb::ToText(Value()), "");
}

TEST(Value, ReadsNumbersWithLeadingZeros)
{
    EXPECT_EQ(FromText(ValueType::kUint16, "0010"), Value(std::uint16_t{10}));
}

TEST(Value, KeepsAnAddressAsItsWordInMemory)
{
    const auto value = FromText(ValueType::kIpv4, "192.0.2.1");
    ASSERT_TRUE(value);
    const auto word = std::get<cdb::Ipv4>(*value).word;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&word);
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + sizeof(word)),
              (std::vector<unsigned char>{192, 0, 2, 1}));
}

TEST(Value, IsNotReadFromTextOfAnotherType)
{
    const std::vector<std::pair<ValueType, std::string>> refused = {
        {ValueType::kNone, ""},
        {ValueType::kBool, ""},
        {ValueType::kBool, "True"},
        {ValueType::kBool, "1"},
        {ValueType::kUint16, ""},
        {ValueType::kUint16, "65536"},
        {ValueType::kUint16, "-1"},
        {ValueType::kUint16, "12 "},
        {ValueType::kUint16, "0x10"},
        {ValueType::kUint32, "4294967296"},
        {ValueType::kUint32, "1.0"},
        {ValueType::kIpv4, "192.0.2"},
        {ValueType::kIpv4, "192.0.2.256"},
        {ValueType::kIpv4, "192.0.2.1/24"},
        {ValueType::kIpv4Plen, "10.0.0.5"},
        {ValueType::kIpv4Plen, "10.0.0.5/33"},
        {ValueType::kIpv4Plen, "10.0.0.5/"},
        {ValueType::kIpv4Plen, "10.0.0/8"},
    };
    for (const auto& [type, text] : refused)
        EXPECT_EQ(FromText(type, text), std::nullopt) << cdb::TypeName(type) << " from \"" << text << '"';
}

TEST(Value, TravelsInAMessage)
{
    for (const auto& row : kTexts) {
        ipc::cdb::Value message;
        cdb::ToMessage(row.value, message);
        ipc::cdb::Value received;
        ASSERT_TRUE(received.ParseFromString(message.SerializeAsString())) << row.name;
        EXPECT_EQ(cdb::FromMessage(received), row.value) << row.name;
    }
    ipc::cdb::Value message;
    message.set_boolean(true);
    cdb::ToMessage(Value(), message);
    EXPECT_EQ(cdb::FromMessage(message), Value());
}

TEST(Value, IsNotTakenFromAMessageThatItsTypeCannotHold)
{
    ipc::cdb::Value message;
    message.set_uint16(65536);
    EXPECT_EQ(cdb::FromMessage(message), std::nullopt);
    message.mutable_ipv4_plen()->set_length(33);
    EXPECT_EQ(cdb::FromMessage(message), std::nullopt);
}

}  // namespace
