// SPDX-License-Identifier: Apache-2.0
// The failure of one call of the client API, and its conversion into the call's result.

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

/// Sets the text that confd_lasterr returns from now on.
void SetLastError(std::string text);

/// Returns the call's result, or CONFD_ERR with the reason kept for confd_lasterr. No exception leaves it:
/// the callers are C functions.
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
