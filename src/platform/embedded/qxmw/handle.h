// SPDX-License-Identifier: Apache-2.0
// What a middleware handle holds. Used by the context, which owns the one of its process, and by the
// middleware functions.

#ifndef PLATFORM_EMBEDDED_QXMW_HANDLE_H
#define PLATFORM_EMBEDDED_QXMW_HANDLE_H

#include <qxmw/qxmw.h>

#include <string>

struct qxmw {
    std::string process;
};

#endif
