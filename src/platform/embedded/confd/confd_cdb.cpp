// SPDX-License-Identifier: Apache-2.0
// The reads of the client API: formats the path and calls the session.

#include <confd_cdb.h>

#include "platform/embedded/confd/format.h"
#include "platform/embedded/confd/read_session.h"
#include "platform/embedded/runtime.h"

using embedded::FormattedPath;
using embedded::Guarded;

namespace {

embedded::ReadSession& SessionOf(int sock) { return embedded::TheRuntime().database.Session(sock); }

}  // namespace

extern "C" {

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
}
