// SPDX-License-Identifier: Apache-2.0
// Reads rows from their bytes (the message Row of stored.proto), field by field into memory that is reused:
// parsing them as messages costs several times as much, and whole configurations are read row by row.

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <limits>
#include <utility>

#include "cdb/rows/codec.h"
#include "cdb/rows/stored.pb.h"

namespace cdb::codec {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using Stored = ipc::cdb::Value;

constexpr std::uint32_t kLongestPrefix = 32;

constexpr std::uint32_t Tag(int field, WireFormatLite::WireType type)
{
    return WireFormatLite::MakeTag(field, type);
}

bool ReadText(CodedInputStream& in, std::string& text)
{
    std::uint32_t size = 0;
    return in.ReadVarint32(&size) && size <= std::numeric_limits<int>::max() &&
           in.ReadString(&text, static_cast<int>(size));
}

/// Reads the fields up to the limit: `field` is called with each tag.
template <typename Field>
bool ReadFields(CodedInputStream& in, const Field& field)
{
    while (const std::uint32_t tag = in.ReadTag())
        if (!field(tag)) return false;
    return in.ConsumedEntireMessage();
}

template <typename Field>
bool ReadMessage(CodedInputStream& in, const Field& field)
{
    std::uint32_t size = 0;
    if (!in.ReadVarint32(&size) || size > static_cast<std::uint32_t>(in.BytesUntilLimit())) return false;
    const auto limit = in.PushLimit(static_cast<int>(size));
    const bool whole = ReadFields(in, field);
    in.PopLimit(limit);
    return whole;
}

bool ReadPlen(CodedInputStream& in, Ipv4Plen& plen)
{
    std::uint32_t length = 0;
    const bool whole = ReadMessage(in, [&](std::uint32_t tag) {
        switch (tag) {
        case Tag(Stored::Ipv4Plen::kAddressFieldNumber, WireFormatLite::WIRETYPE_FIXED32):
            return in.ReadLittleEndian32(&plen.word);
        case Tag(Stored::Ipv4Plen::kLengthFieldNumber, WireFormatLite::WIRETYPE_VARINT):
            return in.ReadVarint32(&length);
        default:
            return WireFormatLite::SkipField(&in, tag);
        }
    });
    plen.length = static_cast<std::uint8_t>(length);
    return whole && length <= kLongestPrefix;
}

bool ReadValueText(CodedInputStream& in, Value& value)
{
    auto* text = std::get_if<std::string>(&value);
    return ReadText(in, text != nullptr ? *text : value.emplace<std::string>());
}

/// Reads a number as this type; returns false if it is out of range.
template <typename Type>
bool ReadNumber(CodedInputStream& in, Value& value)
{
    std::uint32_t number = 0;
    if (!in.ReadVarint32(&number) || number > std::numeric_limits<Type>::max()) return false;
    value = static_cast<Type>(number);
    return true;
}

bool ReadValue(CodedInputStream& in, Value& value, bool& given)
{
    return ReadMessage(in, [&](std::uint32_t tag) {
        const bool before = std::exchange(given, true);
        switch (tag) {
        case Tag(Stored::kTextFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED):
            return ReadValueText(in, value);
        case Tag(Stored::kBooleanFieldNumber, WireFormatLite::WIRETYPE_VARINT): {
            std::uint64_t number = 0;
            if (!in.ReadVarint64(&number)) return false;
            value = number != 0;
            return true;
        }
        case Tag(Stored::kUint16FieldNumber, WireFormatLite::WIRETYPE_VARINT):
            return ReadNumber<std::uint16_t>(in, value);
        case Tag(Stored::kUint32FieldNumber, WireFormatLite::WIRETYPE_VARINT):
            return ReadNumber<std::uint32_t>(in, value);
        case Tag(Stored::kIpv4FieldNumber, WireFormatLite::WIRETYPE_FIXED32): {
            Ipv4 address;
            if (!in.ReadLittleEndian32(&address.word)) return false;
            value = address;
            return true;
        }
        case Tag(Stored::kIpv4PlenFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED): {
            Ipv4Plen plen;
            if (!ReadPlen(in, plen)) return false;
            value = plen;
            return true;
        }
        default:
            given = before;  // from a newer program
            return WireFormatLite::SkipField(&in, tag);
        }
    });
}

bool ReadLeaf(CodedInputStream& in, std::pair<std::string, Value>& leaf)
{
    leaf.first.clear();
    bool given = false;
    const bool whole = ReadMessage(in, [&](std::uint32_t tag) {
        switch (tag) {
        case Tag(stored::Leaf::kNameFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED):
            return ReadText(in, leaf.first);
        case Tag(stored::Leaf::kValueFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED):
            return ReadValue(in, leaf.second, given);
        default:
            return WireFormatLite::SkipField(&in, tag);
        }
    });
    if (!given) leaf.second = Value();
    return whole;
}

}  // namespace

bool ReadRow(std::string_view payload, Row& row)
{
    CodedInputStream in(reinterpret_cast<const std::uint8_t*>(payload.data()),
                        static_cast<int>(payload.size()));
    const auto limit = in.PushLimit(static_cast<int>(payload.size()));
    std::size_t count = 0;
    const bool whole = ReadFields(in, [&](std::uint32_t tag) {
        if (tag != Tag(stored::Row::kLeavesFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED))
            return WireFormatLite::SkipField(&in, tag);
        if (count == row.leaves.size()) row.leaves.emplace_back();
        return ReadLeaf(in, row.leaves[count++]);
    });
    in.PopLimit(limit);
    row.leaves.resize(count);
    return whole;
}

}  // namespace cdb::codec
