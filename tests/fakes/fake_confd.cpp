// SPDX-License-Identifier: Apache-2.0
// The C functions of the client API over the fake database. Every call is noted with its path.

#include <confd_cdb.h>
#include <confd_maapi.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "fakes/fake_platform.h"

using fakes::Cdb;
using fakes::Place;
using fakes::Platform;
using fakes::SchemaNode;
using fakes::Value;

namespace {

int Fail(const std::string& reason)
{
    Platform::Get().lastError = reason;
    return CONFD_ERR;
}

std::string Expand(const char* format, std::va_list arguments)
{
    char text[16384];
    std::vsnprintf(text, sizeof text, format, arguments);
    return text;
}

confd_value_t Owned(const std::string& text)
{
    Platform& platform = Platform::Get();
    auto& bytes = platform.strings.emplace_back(std::make_unique<unsigned char[]>(text.size() + 1));
    std::memcpy(bytes.get(), text.data(), text.size());
    bytes[text.size()] = 0;
    platform.unreleased.insert(bytes.get());
    confd_value_t value{};
    value.type = C_BUF;
    value.val.buf = {bytes.get(), static_cast<unsigned>(text.size())};
    return value;
}

confd_value_t ToConfd(const Value& value)
{
    if (const auto* text = std::get_if<std::string>(&value)) return Owned(*text);
    confd_value_t result{};
    result.type = C_NOEXISTS;
    if (const auto* flag = std::get_if<bool>(&value)) {
        result.type = C_BOOL;
        result.val.boolean = *flag ? 1 : 0;
    } else if (const auto* small = std::get_if<std::uint16_t>(&value)) {
        result.type = C_UINT16;
        result.val.u16 = *small;
    } else if (const auto* number = std::get_if<std::uint32_t>(&value)) {
        result.type = C_UINT32;
        result.val.u32 = *number;
    } else if (const auto* address = std::get_if<fakes::Ipv4>(&value)) {
        result.type = C_IPV4;
        result.val.ip.s_addr = address->word;
    } else if (const auto* prefix = std::get_if<fakes::Ipv4Plen>(&value)) {
        result.type = C_IPV4_AND_PLEN;
        result.val.ipv4prefix.ip.s_addr = prefix->word;
        result.val.ipv4prefix.len = prefix->length;
    }
    return result;
}

Value FromConfd(const confd_value_t& value)
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
        return fakes::Ipv4{value.val.ip.s_addr};
    case C_IPV4_AND_PLEN:
        return fakes::Ipv4Plen{value.val.ipv4prefix.ip.s_addr, value.val.ipv4prefix.len};
    default:
        return {};
    }
}

// One read: its session's data and the place that its path names; data is null if the call is to
// return `result` at once.
struct Read {
    const fakes::Data* data = nullptr;
    Place place;
    int result = CONFD_ERR;
};

Read Begin(const char* call, int sock, const std::string& path)
{
    Platform& platform = Platform::Get();
    platform.recorder.Note(std::string("cdb ") + call + " " + path);
    Read read;
    if (const Cdb::Outcome* forced = platform.cdb.Forced(call, path)) {
        if (forced->result < 0) Fail(forced->reason);
        read.result = forced->result;
        return read;
    }
    const fakes::Data* data = platform.cdb.SessionData(sock);
    if (data == nullptr) {
        Fail("no session on socket " + std::to_string(sock));
        return read;
    }
    auto place = Cdb::Resolve(*data, path);
    if (const auto* problem = std::get_if<std::string>(&place)) {
        Fail(*problem);
        return read;
    }
    read.place = std::get<Place>(place);
    if (!Cdb::Exists(*data, read.place)) {
        Fail(path + " does not exist");
        return read;
    }
    read.data = data;
    return read;
}

// Up to n of the values, the rest empty. Values that don't fit are not made at all.
void Deliver(const std::vector<Value>& values, confd_value_t* out, int n)
{
    for (int i = 0; i < n; ++i) {
        const auto at = static_cast<std::size_t>(i);
        out[i] = ToConfd(at < values.size() ? values[at] : Value());
    }
}

}  // namespace

extern "C" {

const char* confd_lasterr(void) { return Platform::Get().lastError.c_str(); }

void confd_free_value(confd_value_t* value)
{
    Platform& platform = Platform::Get();
    platform.released.push_back(value->type);
    if (value->type == C_BUF) platform.unreleased.erase(value->val.buf.ptr);
    CONFD_SET_NOEXISTS(value);
}

int cdb_num_instances(int sock, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const std::string path = Expand(fmt, arguments);
    va_end(arguments);
    const Read read = Begin("cdb_num_instances", sock, path);
    if (read.data == nullptr) return read.result;
    if (read.place.node->kind != SchemaNode::Kind::kList || read.place.isEntry)
        return Fail(path + " is no list");
    return static_cast<int>(Cdb::Keys(*read.data, read.place).size());
}

int cdb_get_objects(int sock, confd_value_t* values, int n, int ix, int nobj, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const std::string path = Expand(fmt, arguments);
    va_end(arguments);
    const Read read = Begin("cdb_get_objects", sock, path);
    if (read.data == nullptr) return read.result;
    if (read.place.node->kind != SchemaNode::Kind::kList || read.place.isEntry)
        return Fail(path + " is no list");
    const std::vector<std::string> keys = Cdb::Keys(*read.data, read.place);
    if (ix < 0 || nobj < 0 || static_cast<std::size_t>(ix) + static_cast<std::size_t>(nobj) > keys.size())
        return Fail(path + " has " + std::to_string(keys.size()) + " entries only");
    const Cdb& cdb = Platform::Get().cdb;
    for (int i = 0; i < nobj; ++i) {
        const std::string entry = path + "{" + keys[static_cast<std::size_t>(ix + i)] + "}";
        Deliver(cdb.Leaves(*read.data, *read.place.node, entry), values + static_cast<std::ptrdiff_t>(i) * n,
                n);
    }
    return static_cast<int>(fakes::LeavesOf(read.place.node->path).size());
}

int cdb_get_object(int sock, confd_value_t* values, int n, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const std::string path = Expand(fmt, arguments);
    va_end(arguments);
    const Read read = Begin("cdb_get_object", sock, path);
    if (read.data == nullptr) return read.result;
    const bool entry = read.place.node->kind == SchemaNode::Kind::kList && read.place.isEntry;
    if (!entry && read.place.node->kind != SchemaNode::Kind::kContainer)
        return Fail(path + " is neither a list entry nor a container");
    Deliver(Platform::Get().cdb.Leaves(*read.data, *read.place.node, read.place.instance), values, n);
    return static_cast<int>(fakes::LeavesOf(read.place.node->path).size());
}

int cdb_get(int sock, confd_value_t* value, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const std::string path = Expand(fmt, arguments);
    va_end(arguments);
    const Read read = Begin("cdb_get", sock, path);
    if (read.data == nullptr) return read.result;
    if (read.place.node->kind != SchemaNode::Kind::kLeaf) return Fail(path + " is no leaf");
    const Value content = Platform::Get().cdb.Leaf(*read.data, *read.place.node, read.place.instance);
    if (std::holds_alternative<std::monostate>(content)) return Fail(path + " does not exist");
    *value = ToConfd(content);
    return CONFD_OK;
}

int maapi_set_elem(int sock, int thandle, confd_value_t* value, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const std::string path = Expand(fmt, arguments);
    va_end(arguments);
    Platform& platform = Platform::Get();
    platform.recorder.Note("maapi maapi_set_elem " + path);
    if (const Cdb::Outcome* forced = platform.cdb.Forced("maapi_set_elem", path))
        return forced->result < 0 ? Fail(forced->reason) : forced->result;
    if (sock != fakes::Confd::kMaapiSocket) return Fail("no MAAPI connection on this socket");
    const auto place = Cdb::Resolve(fakes::Data(), path);
    if (const auto* problem = std::get_if<std::string>(&place)) return Fail(*problem);
    const SchemaNode* node = std::get<Place>(place).node;
    const Value content = FromConfd(*value);
    if (node->kind != SchemaNode::Kind::kLeaf) return Fail(path + " is no leaf");
    if (node->type.index() != content.index()) return Fail("the value's type is not that of " + path);
    if (platform.openTransactions.count(thandle) != 0)
        platform.writes.push_back({sock, thandle, path, content});
    return CONFD_OK;
}

int confd_pp_kpath(char* buffer, int size, const confd_hkeypath_t* keypath)
{
    Platform::Get().recorder.Note("kpath");
    if (std::any_of(buffer, buffer + size, [](char byte) { return byte != 0; }))
        ++Platform::Get().dirtyBuffers;
    if (size > 0) buffer[0] = 0;
    std::string text;
    for (int i = keypath->len - 1; i >= 0; --i) {
        const confd_value_t* position = keypath->v[i];
        if (position[0].type == C_XMLTAG) {
            const SchemaNode* node = fakes::FindTag(position[0].val.xmltag.tag);
            if (node == nullptr)
                return Fail("no element has the tag " + std::to_string(position[0].val.xmltag.tag));
            text += "/" + node->Name();
            continue;
        }
        std::string keys;
        for (int k = 0; k < MAXKEYLEN && position[k].type != C_NOEXISTS; ++k) {
            if (k > 0) keys += " ";
            if (position[k].type == C_BUF) keys += reinterpret_cast<const char*>(position[k].val.buf.ptr);
        }
        text += "{" + keys + "}";
    }
    return std::snprintf(buffer, static_cast<std::size_t>(size), "%s", text.c_str());
}
}
