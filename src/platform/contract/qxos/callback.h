// SPDX-License-Identifier: Apache-2.0
// A callback object that a process hands to the platform.

#ifndef QXOS_CALLBACK_H
#define QXOS_CALLBACK_H

#include <boost/any.hpp>

namespace qxos {

class Callback {
public:
    explicit Callback(const boost::any& payload) : m_payload(payload) {}
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;
    virtual ~Callback() = default;

    // Called on the server loop's thread when the event happens that the callback is registered
    // for. The result tells the platform whether the process took note.
    virtual bool Invoke() = 0;

protected:
    boost::any m_payload;
};

}  // namespace qxos

#endif
