// SPDX-License-Identifier: Apache-2.0
// The process context: who the process is, its server loop and its high-availability hooks.

#ifndef QXOS_CONTEXT_H
#define QXOS_CONTEXT_H

#include <memory>

#include "../qxmw/qxmw.h"
#include "callback.h"

namespace qxos {

// The process's event loop.
class Server {
public:
    Server() = default;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    virtual ~Server() = default;

    // Blocks while events are dispatched; returns 0 when the process is asked to end. An exception
    // out of a handler leaves through here.
    virtual int Run() = 0;
};

class Context {
public:
    // What to call when the node's role in its redundant pair changes. The objects must outlive
    // the context; a null entry is not called.
    struct HaStateChangeCallbacks {
        Callback* goActive;
        Callback* goStandby;
        Callback* reserved[3];
    };

    Context(const qxmw_process_signature_t* signature, const HaStateChangeCallbacks& callbacks);
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    virtual ~Context();

    // The middleware handle; belongs to the context.
    qxmw_t* GetSharedQxmw();

    // The process's loop; belongs to the context.
    Server& GetServer();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
    friend class ContextAccess;  // the platform's own way in
};

// The one context of the process. Owned by the code that installs it.
extern Context* the_context;

}  // namespace qxos

#endif
