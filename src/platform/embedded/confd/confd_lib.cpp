// SPDX-License-Identifier: Apache-2.0
// Functions for the whole client API: release of values, keypaths as text, the last error.

#include <confd_lib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/embedded/confd/convert.h"
#include "platform/embedded/confd/error.h"
#include "platform/embedded/runtime.h"

namespace embedded {
namespace {

std::string& LastError()
{
    static std::string text;
    return text;
}

}  // namespace

void SetLastError(std::string text) { LastError() = std::move(text); }

}  // namespace embedded

extern "C" {

void confd_free_value(confd_value_t* value)
{
    if (value->type == C_BUF) std::free(value->val.buf.ptr);
    CONFD_SET_NOEXISTS(value);
}

int confd_pp_kpath(char* buffer, int size, const confd_hkeypath_t* keypath)
{
    if (size > 0) buffer[0] = '\0';
    return embedded::Guarded([&] {
        const std::string text = embedded::KeypathText(embedded::TheRuntime().database.Schema(), *keypath);
        if (size > 0) {
            const std::size_t copied = std::min(text.size(), static_cast<std::size_t>(size) - 1);
            std::memcpy(buffer, text.data(), copied);
            buffer[copied] = '\0';
        }
        return static_cast<int>(text.size());
    });
}

const char* confd_lasterr(void) { return embedded::LastError().c_str(); }
}
