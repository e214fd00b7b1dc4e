// The manager's connection to the configuration database: answers its questions about the state of
// sFlow and takes the operator's requests. Connects again for ever; the manager does not depend on it.

#ifndef MANAGER_STATE_PROVIDER_H
#define MANAGER_STATE_PROVIDER_H

#include <functional>
#include <string>
#include <string_view>

#include "ipc/link.h"

namespace ipc::cdb {
class ActionRequest;
class StateRequest;
class ServerMessage;
}  // namespace ipc::cdb

namespace manager {

class StateProvider {
public:
    struct Handlers {
        /// The state, as JSON. `configuration` is what is configured of sFlow, as JSON; empty where the
        /// database has not sent it.
        std::function<std::string(std::string_view configuration)> state;
        /// Asks for everything anew. Empty when that is under way, else why it can't be.
        std::function<std::string()> resync;
    };

    /// Connects from the loop once Start has been called. `loop` and `timers` must outlive it.
    StateProvider(boost::asio::io_context& loop, ipc::Timers& timers, std::string socketPath,
                  Handlers handlers);

    void Start() { m_link.Start(); }
    void Stop() { m_link.Stop(); }

private:
    void Introduce();
    void OnFrame(std::string_view frame);
    void OnMessage(const ipc::cdb::ServerMessage& message);
    void OnRefused(const std::string& reason);
    void AnswerState(const ipc::cdb::StateRequest& request);
    void AnswerAction(const ipc::cdb::ActionRequest& request);

    const Handlers m_handlers;
    bool m_refusalLogged = false;
    ipc::Link m_link;  // last: its handlers use the others
};

}  // namespace manager

#endif
