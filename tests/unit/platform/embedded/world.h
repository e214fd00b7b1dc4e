// SPDX-License-Identifier: Apache-2.0
// One process of the embedded platform in a test: its own run directory and store, a context with
// timers that the test advances, and a scripted cdbd and sflow-mgr on the same loop. Everything
// happens inside Settle, which runs until nothing more is to do.

#ifndef TESTS_UNIT_PLATFORM_EMBEDDED_WORLD_H
#define TESTS_UNIT_PLATFORM_EMBEDDED_WORLD_H

#include <confd_cdb.h>
#include <qxconfd/app_interface.h>
#include <qxos/context.h>
#include <sflow/i_service.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cdb/model/change_set.h"
#include "cdb/store/store.h"
#include "handlers.h"
#include "ipc/cdb.pb.h"
#include "ipc/manager.pb.h"
#include "peer.h"
#include "platform/embedded/runtime.h"
#include "support/manual_timers.h"

namespace cdb {
class Schema;
}

inline const std::string kCollector = "/config/oam/sflow/collector";
inline const std::string kInterface = "/config/oam/sflow/interface";

class World : public testing::Test {
protected:
    using CdbPeer = Peer<ipc::cdb::ClientMessage, ipc::cdb::ServerMessage>;
    using ManagerPeer = Peer<ipc::manager::ClientMessage, ipc::manager::ServerMessage>;

    World();
    ~World() override;

    /// The framework over the two recording handlers.
    void MakeFramework();
    void DisposeFramework();

    /// The service client, whose notices are recorded as "found" and "lost".
    void MakeService();

    /// Framework and service, connected to cdbd with the initial load done; what has been recorded and
    /// received until then is dropped.
    void Connect();
    /// And with a session at the manager.
    void OpenSession();

    void Settle();
    void Advance(std::chrono::milliseconds time);

    void Welcome();
    void SendChanges(const cdb::ChangeNode& root, const std::vector<std::uint32_t>& points);

    /// Writes rows to the running datastore, as one commit.
    void Write(const std::vector<std::pair<cdb::RowKey, cdb::Row>>& rows);

    /// Runs what writes the store in a process of its own: this one reads the store, and no process
    /// may have it open twice. `write` returns whether it has worked.
    void InAnotherProcess(const std::function<bool()>& write);

    static const cdb::Schema& Modules();
    [[nodiscard]] const cdb::SchemaTable& Schema() const;
    [[nodiscard]] cdb::NodeId Node(const std::string& path) const;

    /// A node for a change set, by its schema path.
    [[nodiscard]] cdb::ChangeNode Change(const std::string& path, cdb::ChangeOp op,
                                         std::vector<cdb::ChangeNode> children = {},
                                         std::vector<std::string> keys = {}) const;
    [[nodiscard]] cdb::ChangeNode ValueSet(const std::string& path, cdb::Value value) const;
    /// The node and the plain containers above it.
    [[nodiscard]] cdb::ChangeNode FromRoot(cdb::ChangeNode node) const;
    /// The change of one collector's "enabled", from the root.
    [[nodiscard]] cdb::ChangeNode Enabling(const std::string& collector, bool enabled) const;

    /// What has been written to the log, level by level text only.
    [[nodiscard]] std::string Log() const;

    std::filesystem::path m_directory;
    std::uint64_t m_commit = 0;
    std::unique_ptr<qxos::Context> m_context;
    support::ManualTimers* m_timers = nullptr;  // the context's
    embedded::Runtime* m_runtime = nullptr;
    Events m_events;
    RecordingConfig m_config{m_events};
    RecordingData m_data{m_events};
    std::unique_ptr<CdbPeer> m_cdb;
    std::unique_ptr<ManagerPeer> m_manager;
    std::unique_ptr<sflow::IService> m_service;
    qxconfd::AppInterface* m_framework = nullptr;
};

#endif
