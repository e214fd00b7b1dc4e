// SPDX-License-Identifier: Apache-2.0
// The result of a function that may fail: a value, or what went wrong. The form of C++23's std::expected,
// from Debian's libexpected-dev; with that standard, these two names are all that changes.

#ifndef BASE_EXPECTED_H
#define BASE_EXPECTED_H

#include <utility>

#include <tl/expected.hpp>

namespace base {

using tl::expected;
using tl::unexpected;

/// What went wrong, to be returned; a literal becomes what the result's error type is made of.
template <typename Error>
auto Unexpected(Error&& error)
{
    return tl::make_unexpected(std::forward<Error>(error));
}

}  // namespace base

#endif
