// SPDX-License-Identifier: Apache-2.0
// The content of a middleware handle. Used by the context, which owns its process's handle, and by the
// middleware functions.

#ifndef PLATFORM_EMBEDDED_QXMW_HANDLE_H
#define PLATFORM_EMBEDDED_QXMW_HANDLE_H

#include <qxmw/qxmw.h>

#include <string>

struct qxmw {
    std::string process;
};

#endif
