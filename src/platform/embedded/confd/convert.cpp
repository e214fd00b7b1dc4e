// SPDX-License-Identifier: Apache-2.0
// Values and keypaths, from the database to the client API and back.

#include "platform/embedded/confd/convert.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace embedded {
namespace {

confd_value_t StringAt(const char* bytes, std::size_t size)
{
    // The client API has no constant strings; its users do not write through a keypath's or a callback's.
    auto* content = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes));
    return {C_BUF, {.buf = {content, static_cast<unsigned int>(size)}}};
}

struct ToConfd {
    confd_value_t operator()(std::monostate) const { return Empty(); }
    confd_value_t operator()(const std::string& text) const { return StringAt(text.data(), text.size()); }
    confd_value_t operator()(bool boolean) const { return {C_BOOL, {.boolean = boolean ? 1 : 0}}; }
    confd_value_t operator()(std::uint16_t number) const { return {C_UINT16, {.u16 = number}}; }
    confd_value_t operator()(std::uint32_t number) const { return {C_UINT32, {.u32 = number}}; }
    confd_value_t operator()(cdb::Ipv4 address) const { return {C_IPV4, {.ip = {address.word}}}; }
    confd_value_t operator()(cdb::Ipv4Plen prefix) const
    {
        return {C_IPV4_AND_PLEN, {.ipv4prefix = {{prefix.word}, prefix.length}}};
    }
};

/// One position, ended by an empty value.
void SetTag(const cdb::SchemaNode& node, confd_value_t* position)
{
    position[0] = {C_XMLTAG, {.xmltag = {node.tag, node.ns}}};
    position[1] = Empty();
}

void SetKeys(const std::vector<std::string>& keys, confd_value_t* position)
{
    if (keys.size() > MAXKEYLEN) throw ClientError("a list entry has more keys than a keypath holds");
    for (std::size_t i = 0; i < keys.size(); ++i) position[i] = StringAt(keys[i].data(), keys[i].size());
    if (keys.size() < MAXKEYLEN) position[keys.size()] = Empty();
}

void AppendKeys(const confd_value_t* position, std::string& text)
{
    char separator = '{';
    for (int i = 0; i < MAXKEYLEN && position[i].type != C_NOEXISTS; ++i) {
        text += separator + cdb::ToText(FromConfd(position[i]));
        separator = ' ';
    }
    text += '}';
}

}  // namespace

confd_value_t Empty() { return {C_NOEXISTS, {}}; }

confd_value_t BorrowedValue(const cdb::Value& value) { return std::visit(ToConfd{}, value); }

confd_value_t OwnedString(const std::string& text)
{
    auto* bytes = static_cast<char*>(std::malloc(text.size() + 1));
    if (bytes == nullptr) throw std::bad_alloc();
    std::memcpy(bytes, text.c_str(), text.size() + 1);
    return StringAt(bytes, text.size());
}

confd_value_t OwnedValue(const cdb::Value& value)
{
    const auto* text = std::get_if<std::string>(&value);
    return text != nullptr ? OwnedString(*text) : BorrowedValue(value);
}

cdb::Value FromConfd(const confd_value_t& value)
{
    switch (value.type) {
    case C_BUF:
        return std::string(reinterpret_cast<const char*>(value.val.buf.ptr), value.val.buf.size);
    case C_BOOL:
        return value.val.boolean != 0;
    case C_UINT16:
        return value.val.u16;
    case C_UINT32:
        return value.val.u32;
    case C_IPV4:
        return cdb::Ipv4{value.val.ip.s_addr};
    case C_IPV4_AND_PLEN:
        return cdb::Ipv4Plen{value.val.ipv4prefix.ip.s_addr, value.val.ipv4prefix.len};
    case C_NOEXISTS:
    case C_XMLTAG:
        break;
    }
    throw ClientError("a value of type " + std::to_string(value.type) + " is no leaf's");
}

void MakeKeypath(const cdb::SchemaTable& schema, const std::vector<KeypathStep>& steps,
                 confd_hkeypath_t& keypath)
{
    int length = 0;
    for (const auto& step : steps) length += step.keys == nullptr || step.keys->empty() ? 1 : 2;
    if (length > MAXDEPTH) throw ClientError("a path is deeper than a keypath holds");
    keypath.len = length;
    int position = length;
    for (const auto& step : steps) {
        SetTag(schema[step.node], keypath.v[--position]);
        if (step.keys != nullptr && !step.keys->empty()) SetKeys(*step.keys, keypath.v[--position]);
    }
}

std::vector<KeypathStep> StepsOf(const cdb::Path& path)
{
    std::vector<KeypathStep> steps;
    steps.reserve(path.steps.size());
    for (const auto& step : path.steps) steps.push_back({step.node, &step.keys});
    return steps;
}

std::string KeypathText(const cdb::SchemaTable& schema, const confd_hkeypath_t& keypath)
{
    std::string text;
    for (int i = keypath.len - 1; i >= 0; --i) {
        const confd_value_t* position = keypath.v[i];
        if (position[0].type != C_XMLTAG) {
            AppendKeys(position, text);
            continue;
        }
        const std::string_view name = schema.NameOfTag(position[0].val.xmltag.tag);
        if (name.empty())
            throw ClientError("no schema element has the tag " + std::to_string(position[0].val.xmltag.tag));
        text.append("/").append(name);
    }
    return text;
}

}  // namespace embedded
