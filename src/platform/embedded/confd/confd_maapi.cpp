// SPDX-License-Identifier: Apache-2.0
// Writes into the transaction of a callback, checked at once against the schema.

#include <confd_maapi.h>

#include "cdb/model/path.h"
#include "platform/embedded/confd/convert.h"
#include "platform/embedded/confd/format.h"
#include "platform/embedded/runtime.h"

namespace embedded {
namespace {

std::uint64_t NumberOf(const cdb::Value& value)
{
    if (const auto* number = std::get_if<std::uint16_t>(&value)) return *number;
    if (const auto* number = std::get_if<std::uint32_t>(&value)) return *number;
    return 0;
}

bool IsNumber(cdb::ValueType type)
{
    return type == cdb::ValueType::kUint16 || type == cdb::ValueType::kUint32;
}

void CheckValue(const cdb::SchemaNode& leaf, const cdb::Value& value, const std::string& path)
{
    const cdb::ValueType type = cdb::TypeOf(value);
    if (type != leaf.type)
        throw ClientError("\"" + path + "\" is of type " + cdb::TypeName(leaf.type) + ", not " +
                          cdb::TypeName(type));
    if (IsNumber(type) && (NumberOf(value) < leaf.minimum || NumberOf(value) > leaf.maximum))
        throw ClientError("\"" + path + "\" is from " + std::to_string(leaf.minimum) + " to " +
                          std::to_string(leaf.maximum) + ", not " + cdb::ToText(value));
}

void CheckLeaf(const cdb::SchemaTable& schema, const cdb::Path& path, const std::string& text)
{
    const auto& leaf = schema[path.Node()];
    if (leaf.kind != cdb::NodeKind::kLeaf) throw ClientError("\"" + text + "\" is no leaf");
    if (leaf.isKey) throw ClientError("\"" + text + "\" is a key, which is set by creating the entry");
    for (const auto& step : path.steps)
        if (step.index) throw ClientError("\"" + text + "\" has an index; a write needs the keys");
}

int SetElement(int sock, int thandle, const confd_value_t& given, std::string_view text)
{
    Runtime& runtime = TheRuntime();
    if (sock != kMaapiSocket)
        throw ClientError("socket " + std::to_string(sock) + " is not the connection's MAAPI socket");
    if (runtime.transaction == nullptr || runtime.transaction->handle != thandle)
        throw ClientError("no callback of the transaction " + std::to_string(thandle) + " is under way");
    const cdb::SchemaTable& schema = runtime.database.Schema();
    const auto path = cdb::ParsePath(schema, text);
    if (!path) throw ClientError(path.error());
    std::string pathText(text);
    CheckLeaf(schema, *path, pathText);
    cdb::Value value = FromConfd(given);
    CheckValue(schema[path->Node()], value, pathText);
    runtime.transaction->writes.emplace_back(std::move(pathText), std::move(value));
    return CONFD_OK;
}

}  // namespace
}  // namespace embedded

extern "C" {

int maapi_set_elem(int sock, int thandle, confd_value_t* value, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const embedded::FormattedPath path(fmt, arguments);
    va_end(arguments);
    return embedded::Guarded([&] { return embedded::SetElement(sock, thandle, *value, path.Text()); });
}
}
