// SPDX-License-Identifier: Apache-2.0
// State that the parts of the embedded platform share in one process: the loop, the paths of the sockets, the
// database that the client API reads, and the gate between the database framework and the sFlow service
// client. Owned by the process context; found through qxos::the_context.

#ifndef PLATFORM_EMBEDDED_RUNTIME_H
#define PLATFORM_EMBEDDED_RUNTIME_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <qxos/context.h>
#include <boost/asio/io_context.hpp>

#include "base/directories.h"
#include "base/timers.h"
#include "cdb/model/value.h"
#include "platform/embedded/confd/database.h"

namespace embedded {

/// Open while the connection to cdbd is up and its initial load has been handed over: only then may
/// the service client have a session with the manager.
class Gate {
public:
    class Listener {
    public:
        Listener() = default;
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;
        virtual void GateOpened() = 0;
        /// `tell`: whether the process is notified that the session is lost.
        virtual void GateClosed(bool tell) = 0;

    protected:
        ~Listener() = default;
    };

    [[nodiscard]] bool IsOpen() const { return m_open; }
    void Add(Listener& listener) { m_listeners.push_back(&listener); }
    void Remove(Listener& listener) { std::erase(m_listeners, &listener); }
    void Open()
    {
        if (!std::exchange(m_open, true)) ForEach([](Listener& listener) { listener.GateOpened(); });
    }

    void Close(bool tell)
    {
        if (std::exchange(m_open, false)) ForEach([tell](Listener& listener) { listener.GateClosed(tell); });
    }

private:
    template <typename Call>
    void ForEach(Call call) const
    {
        const auto listeners = m_listeners;  // a copy: the calls may add or remove listeners
        for (Listener* listener : listeners) call(*listener);
    }

    bool m_open = false;
    std::vector<Listener*> m_listeners;
};

/// A database transaction that a callback of this process may write into.
struct Transaction {
    int handle = 0;
    std::vector<std::pair<std::string, cdb::Value>> writes;
};

/// The socket number of the connection's transactions.
inline constexpr int kMaapiSocket = 1;

struct Runtime {
    std::string process;
    std::string cdbSocket = base::RunDirectory() + "/cdb.sock";
    std::string managerSocket = base::RunDirectory() + "/manager.sock";
    boost::asio::io_context loop{};
    /// Tests replace it before anything else is built.
    std::unique_ptr<base::Timers> timers = base::MakeTimers(loop);
    Database database{};
    Gate gate{};
    Transaction* transaction = nullptr;  // set while a callpoint's callback runs, else null
};

/// The runtime of the installed context. Throws std::logic_error if none is installed.
Runtime& TheRuntime();

}  // namespace embedded

namespace qxos {

/// Gives the other parts of the embedded platform and their tests access to a process context.
class ContextAccess {
public:
    static embedded::Runtime& RuntimeOf(Context& context);
    static const Context::HaStateChangeCallbacks& CallbacksOf(Context& context);
};

}  // namespace qxos

#endif
