// SPDX-License-Identifier: Apache-2.0
// The database's strings. Used by every unit that reads a keypath or a value.

#ifndef DAEMON_SFLOW_TEXT_H
#define DAEMON_SFLOW_TEXT_H

#include <string>

// The bytes up to the first NUL. A platform's strings are of char or of unsigned char.
template <typename Byte>
std::string Text(const Byte* bytes)
{
    static_assert(sizeof(Byte) == 1, "a string's bytes");
    return reinterpret_cast<const char*>(bytes);
}

#endif
