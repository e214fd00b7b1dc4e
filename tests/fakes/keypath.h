// SPDX-License-Identifier: Apache-2.0
// Keypaths for tests, written as paths are: Keypath("/config/oam/sflow/collector{c1}/enabled").

#ifndef FAKES_KEYPATH_H
#define FAKES_KEYPATH_H

#include <confd_lib.h>

#include <deque>
#include <string>

namespace fakes {

/// Owns its keypath and the strings in it. Elements that the schema does not have take the tag
/// after a colon: "/config/odd:77". A key that is "a b" makes two values of one position.
class Keypath {
public:
    explicit Keypath(const std::string& path);
    Keypath(const Keypath&) = delete;
    Keypath& operator=(const Keypath&) = delete;

    confd_hkeypath_t* Get() { return &m_keypath; }
    confd_hkeypath_t* operator->() { return &m_keypath; }

    /// Makes the first value of a position a string, bytes after a NUL included.
    void SetText(int position, const std::string& text) { m_keypath.v[position][0] = Text(text); }

private:
    confd_value_t Text(const std::string& text);

    std::deque<std::string> m_texts;  // stay where they are
    confd_hkeypath_t m_keypath{};
};

}  // namespace fakes

#endif
