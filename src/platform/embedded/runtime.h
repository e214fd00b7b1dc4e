// SPDX-License-Identifier: Apache-2.0
// State that the parts of the embedded platform share in one process: the loop, the paths of the sockets, the
// database that the client API reads, and the gate between the database framework and the sFlow service
// client. Owned by the process context; found through qxos::the_context.

#ifndef PLATFORM_EMBEDDED_RUNTIME_H
#define PLATFORM_EMBEDDED_RUNTIME_H

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>

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
    void Open();
    void Close(bool tell);

private:
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
    explicit Runtime(std::string processName);

    std::string process;
    std::string cdbSocket;
    std::string managerSocket;
    std::chrono::milliseconds stuckLimit{10'000};  // a manager that takes no bytes for this time is lost
    boost::asio::io_context loop;
    std::unique_ptr<base::Timers> timers;  // tests replace it before anything else is built
    Database database;
    Gate gate;
    Transaction* transaction = nullptr;  // set while a callpoint's callback runs, else null
};

/// The runtime of the installed context. Throws std::logic_error if none is installed.
Runtime& TheRuntime();

}  // namespace embedded

#endif
