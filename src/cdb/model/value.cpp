// SPDX-License-Identifier: Apache-2.0
#include "cdb/model/value.h"

#include <arpa/inet.h>

#include <array>

#include "base/number.h"

namespace cdb {
namespace {

constexpr std::uint8_t kLongestPrefix = 32;

std::string AddressText(std::uint32_t word)
{
    std::array<char, INET_ADDRSTRLEN> buffer{};
    const in_addr address{word};
    inet_ntop(AF_INET, &address, buffer.data(), buffer.size());
    return buffer.data();
}

std::optional<std::uint32_t> AddressWord(std::string_view text)
{
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) return std::nullopt;
    return address.s_addr;
}

template <typename Integer>
std::optional<Value> NumberValue(std::string_view text)
{
    const auto number = base::ToNumber<Integer>(text);
    if (!number) return std::nullopt;
    return Value(*number);
}

std::optional<Value> BoolValue(std::string_view text)
{
    if (text == "true") return Value(true);
    if (text == "false") return Value(false);
    return std::nullopt;
}

std::optional<Value> Ipv4Value(std::string_view text)
{
    const auto word = AddressWord(text);
    if (!word) return std::nullopt;
    return Value(Ipv4{*word});
}

std::optional<Value> Ipv4PlenValue(std::string_view text)
{
    const auto slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    const auto word = AddressWord(text.substr(0, slash));
    const auto length = base::ToNumber<std::uint8_t>(text.substr(slash + 1));
    if (!word || !length || *length > kLongestPrefix) return std::nullopt;
    return Value(Ipv4Plen{*word, *length});
}

struct AsText {
    std::string operator()(std::monostate) const { return {}; }
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(std::uint16_t value) const { return std::to_string(value); }
    std::string operator()(std::uint32_t value) const { return std::to_string(value); }
    std::string operator()(Ipv4 value) const { return AddressText(value.word); }
    std::string operator()(Ipv4Plen value) const
    {
        return AddressText(value.word) + '/' + std::to_string(value.length);
    }
};

}  // namespace

std::string ToText(const Value& value) { return std::visit(AsText{}, value); }

std::optional<Value> FromText(ValueType type, std::string_view text)
{
    switch (type) {
    case ValueType::kNone:
        return std::nullopt;
    case ValueType::kString:
        return Value(std::string(text));
    case ValueType::kBool:
        return BoolValue(text);
    case ValueType::kUint16:
        return NumberValue<std::uint16_t>(text);
    case ValueType::kUint32:
        return NumberValue<std::uint32_t>(text);
    case ValueType::kIpv4:
        return Ipv4Value(text);
    case ValueType::kIpv4Plen:
        return Ipv4PlenValue(text);
    }
    return std::nullopt;
}

const char* TypeName(ValueType type)
{
    static constexpr std::array kNames{
        "nothing", "string", "boolean", "uint16", "uint32", "ipv4-address", "ipv4-address-and-prefix-length"};
    return kNames.at(static_cast<std::size_t>(type));
}

}  // namespace cdb
