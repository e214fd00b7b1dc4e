// SPDX-License-Identifier: Apache-2.0
// The failure of one call of the client API, and the one place where failures become results.

#ifndef PLATFORM_EMBEDDED_CONFD_ERROR_H
#define PLATFORM_EMBEDDED_CONFD_ERROR_H

#include <confd_lib.h>

#include <stdexcept>
#include <string>

namespace embedded {

class ClientError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What confd_lasterr returns from now on.
void SetLastError(std::string text);

/// The call's result, or CONFD_ERR with its reason kept for confd_lasterr. No exception passes: the
/// callers are C functions.
template <typename Call>
int Guarded(const Call& call) noexcept
{
    try {
        return call();
    } catch (const std::exception& error) {
        SetLastError(error.what());
    }
    return CONFD_ERR;
}

}  // namespace embedded

#endif
