// SPDX-License-Identifier: Apache-2.0
// The functions of the client API: each formats its path, calls the session or the transaction, and keeps
// what went wrong.

#include <confd_cdb.h>
#include <confd_lib.h>
#include <confd_maapi.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "cdb/model/path.h"
#include "platform/embedded/confd/convert.h"
#include "platform/embedded/runtime.h"

namespace embedded {
namespace {

/// A path given as a printf format with its arguments.
class FormattedPath {
public:
    static constexpr std::size_t kMaxLength = 8191;

    FormattedPath(const char* format, std::va_list arguments)
        : m_length(std::vsnprintf(m_text, sizeof m_text, format, arguments))
    {
    }

    /// Throws ClientError for a path that is too long or could not be formatted.
    [[nodiscard]] std::string_view Text() const
    {
        if (m_length < 0) throw ClientError("a path that can't be formatted");
        if (static_cast<std::size_t>(m_length) > kMaxLength)
            throw ClientError("a path of more than " + std::to_string(kMaxLength) + " characters");
        return {m_text, static_cast<std::size_t>(m_length)};
    }

private:
    char m_text[kMaxLength + 1];
    int m_length;
};

/// What confd_lasterr returns.
std::string& TheLastError()
{
    static std::string text;
    return text;
}

/// Returns the call's result, or CONFD_ERR with the reason kept for confd_lasterr. No exception leaves it:
/// the callers are C functions.
template <typename Call>
int Guarded(const Call& call) noexcept
{
    try {
        return call();
    } catch (const std::exception& error) {
        TheLastError() = error.what();
    }
    return CONFD_ERR;
}

ReadSession& SessionOf(int sock) { return TheRuntime().database.Session(sock); }

std::optional<std::uint64_t> NumberOf(const cdb::Value& value)
{
    if (const auto* number = std::get_if<std::uint16_t>(&value)) return *number;
    if (const auto* number = std::get_if<std::uint32_t>(&value)) return *number;
    return std::nullopt;
}

void CheckValue(const cdb::SchemaNode& leaf, const cdb::Value& value, const std::string& path)
{
    const cdb::ValueType type = cdb::TypeOf(value);
    if (type != leaf.type)
        throw ClientError("\"" + path + "\" is of type " + cdb::TypeName(leaf.type) + ", not " +
                          cdb::TypeName(type));
    const auto number = NumberOf(value);
    if (number && (*number < leaf.minimum || *number > leaf.maximum))
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

using embedded::FormattedPath;
using embedded::Guarded;
using embedded::SessionOf;

extern "C" {

void confd_free_value(confd_value_t* value)
{
    if (value->type == C_BUF) std::free(value->val.buf.ptr);
    CONFD_SET_NOEXISTS(value);
}

int confd_pp_kpath(char* buffer, int size, const confd_hkeypath_t* keypath)
{
    if (size > 0) buffer[0] = '\0';
    return Guarded([&] {
        const std::string text = embedded::KeypathText(embedded::TheRuntime().database.Schema(), *keypath);
        if (size > 0) {
            const std::size_t copied = std::min(text.size(), static_cast<std::size_t>(size) - 1);
            std::memcpy(buffer, text.data(), copied);
            buffer[copied] = '\0';
        }
        return static_cast<int>(text.size());
    });
}

const char* confd_lasterr(void) { return embedded::TheLastError().c_str(); }

int cdb_num_instances(int sock, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const FormattedPath path(fmt, arguments);
    va_end(arguments);
    return Guarded([&] { return SessionOf(sock).NumInstances(path.Text()); });
}

int cdb_get_objects(int sock, confd_value_t* values, int n, int ix, int nobj, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const FormattedPath path(fmt, arguments);
    va_end(arguments);
    return Guarded([&] { return SessionOf(sock).GetObjects(values, n, ix, nobj, path.Text()); });
}

int cdb_get_object(int sock, confd_value_t* values, int n, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const FormattedPath path(fmt, arguments);
    va_end(arguments);
    return Guarded([&] { return SessionOf(sock).GetObject(values, n, path.Text()); });
}

int cdb_get(int sock, confd_value_t* value, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const FormattedPath path(fmt, arguments);
    va_end(arguments);
    return Guarded([&] {
        SessionOf(sock).Get(value, path.Text());
        return CONFD_OK;
    });
}

int maapi_set_elem(int sock, int thandle, confd_value_t* value, const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const FormattedPath path(fmt, arguments);
    va_end(arguments);
    return Guarded([&] { return embedded::SetElement(sock, thandle, *value, path.Text()); });
}
}
