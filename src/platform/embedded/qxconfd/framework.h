// SPDX-License-Identifier: Apache-2.0
// The framework behind qxconfd::AppInterface: the connection to cdbd, its registrations, and the handling of
// cdbd's messages. The handlers are called here and in delivery and callpoints.

#ifndef PLATFORM_EMBEDDED_QXCONFD_FRAMEWORK_H
#define PLATFORM_EMBEDDED_QXCONFD_FRAMEWORK_H

#include <qxconfd/app_interface.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/link.h"
#include "platform/embedded/qxconfd/callpoints.h"
#include "platform/embedded/qxconfd/delivery.h"
#include "platform/embedded/runtime.h"

namespace ipc::cdb {
class ChangeSet;
class ClientMessage;
class HaTransition;
class Refused;
class ServerMessage;
class Welcome;
}  // namespace ipc::cdb

namespace qxconfd {

class AppInterface::Impl final : public QxConfdInterface {
public:
    struct Handlers {
        std::vector<ConfigHandler*> config;
        std::vector<ActionHandler*> action;
        std::vector<DataHandler*> data;
    };

    /// `runtime` must outlive it.
    Impl(embedded::Runtime& runtime, std::string application, Handlers handlers, ELEM_CONFD_PHASE_ET phase);
    ~Impl() override;

    bool IsConnected() const override { return m_connected; }
    int MaapiSocket() const override { return embedded::kMaapiSocket; }
    int OpenCdbSession(cdb_db_type database, bool subscriptionLock) override;
    void CloseCdbSession(int socket) noexcept override { m_runtime.database.CloseSession(socket); }

private:
    void Register();
    void RegisterPoints();
    void OnFrame(std::string_view frame);
    void Dispatch(ipc::cdb::ServerMessage& message);
    void OnWelcome(const ipc::cdb::Welcome& welcome);
    void LoadInitially();
    void OnRefused(const ipc::cdb::Refused& refused);
    void OnChangeSet(std::unique_ptr<ipc::cdb::ChangeSet> message);
    void OnHaTransition(const ipc::cdb::HaTransition& transition);
    void OnClosed(std::string_view reason);
    void GiveUp(const std::string& reason);
    void Disconnect(const std::string& reason);
    [[nodiscard]] std::vector<BaseHandler*> AllHandlers() const;

    embedded::Runtime& m_runtime;
    const std::string m_application;
    const Handlers m_handlers;
    const ELEM_CONFD_PHASE_ET m_phase;
    embedded::Callpoints m_callpoints;
    std::vector<embedded::PointOfHandler> m_points;  // of this connection; a point's id is its index
    bool m_connected = false;
    std::string m_lastRefusal;
    ipc::Link m_link;  // last: destroyed first, so that it calls nothing destroyed
};

}  // namespace qxconfd

#endif
