// SPDX-License-Identifier: Apache-2.0
#include "world.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "cdb/schema/schema.h"
#include "log/log.h"

namespace {

/// Compiled once a process.
const cdb::Schema& TreeSchema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    return *schema;
}

constexpr qxmw_process_signature_t kSignature{"sflow-app"};

}  // namespace

World::World()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "embedded-test-XXXXXX").string();
    m_directory = ::mkdtemp(pattern.data());
    ::setenv("SFLOW_RUN_DIR", m_directory.c_str(), 1);
    ::setenv("SFLOW_LOG", (m_directory / "log").c_str(), 1);
    ::setenv("SFLOW_LOG_LEVEL", "10", 1);
    slog::Open("sflow-app");
    static_cast<void>(Schema());  // compiled here, once, and not in each child
    Write({});
    m_context = std::make_unique<qxos::Context>(&kSignature, qxos::Context::HaStateChangeCallbacks{});
    qxos::the_context = m_context.get();
    m_runtime = &qxos::ContextAccess::RuntimeOf(*m_context);
    auto timers = std::make_unique<support::ManualTimers>();
    m_timers = timers.get();
    m_runtime->timers = std::move(timers);
    m_config.AddPoint(2, "/config/oam/sflow");
    m_config.AddPoint(1, "/config/interface/mgmt/ipv4/address/ip");
    m_cdb = std::make_unique<CdbPeer>(m_runtime->loop, m_runtime->cdbSocket);
    m_manager = std::make_unique<ManagerPeer>(m_runtime->loop, m_runtime->managerSocket);
}

World::~World()
{
    DisposeFramework();
    m_service.reset();
    m_manager.reset();
    m_cdb.reset();
    qxos::the_context = nullptr;
    m_context.reset();
    std::filesystem::remove_all(m_directory);
}

void World::MakeFramework()
{
    m_framework = new qxconfd::AppInterface(m_context->GetSharedQxmw(), nullptr, "sflow-app", {&m_config}, {},
                                            {&m_data}, ELEM_CONFD_PHASE_2, 0);
}

void World::DisposeFramework()
{
    if (auto* framework = std::exchange(m_framework, nullptr)) framework->Dispose();
}

void World::MakeService()
{
    const auto note = [this](const boost::any& what) {
        m_events.push_back(boost::any_cast<std::string>(what));
    };
    m_service = sflow::IService::Build({note, std::string("found")}, {note, std::string("lost")});
}

void World::Connect()
{
    m_cdb->Listen();
    MakeService();
    MakeFramework();
    Settle();
    Welcome();
    Settle();
    m_cdb->Take();
    m_events.clear();
}

void World::OpenSession()
{
    m_manager->Listen();
    Connect();
    ipc::manager::ServerMessage opened;
    opened.mutable_opened()->set_pid(1);
    m_manager->Send(opened);
    Settle();
    m_manager->Take();
    m_events.clear();
}

void World::Settle() { Advance(std::chrono::milliseconds{0}); }

void World::Advance(std::chrono::milliseconds time)
{
    bool more = true;
    while (more) {
        more = m_timers->Advance(std::exchange(time, std::chrono::milliseconds{0}));
        m_runtime->loop.restart();
        more = m_runtime->loop.poll() > 0 || more;
    }
}

void World::Welcome()
{
    ipc::cdb::ServerMessage message;
    message.mutable_welcome()->set_store_dir(m_directory / "state");
    message.mutable_welcome()->set_commit(m_commit);
    m_cdb->Send(message);
}

void World::SendChanges(const cdb::ChangeNode& root, const std::vector<std::uint32_t>& points)
{
    ipc::cdb::ServerMessage message;
    auto& changes = *message.mutable_change_set();
    changes.set_commit(m_commit);
    cdb::ToMessage(root, *changes.mutable_root());
    for (const auto point : points) changes.add_points(point);
    m_cdb->Send(message);
}

void World::Write(const std::vector<std::pair<cdb::RowKey, cdb::Row>>& rows)
{
    ++m_commit;
    InAnotherProcess([&] {
        const auto store = cdb::Store::Open(m_directory / "state");
        store->SetSchema(Schema());
        auto transaction = store->Begin();
        for (const auto& [key, row] : rows) transaction.Put(key, row);
        transaction.Append({m_commit, 0, "test", "test", "", ""});
        return !transaction.Commit().has_value();
    });
}

void World::InAnotherProcess(const std::function<bool()>& write)
{
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            ::_exit(write() ? 0 : 1);
        } catch (const std::exception& error) {
            slog::Error("writing the store: {}", error.what());
            ::_exit(2);
        }
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(status, 0) << "the store could not be written: " << Log();
}

const cdb::Schema& World::Modules() { return TreeSchema(); }

const cdb::SchemaTable& World::Schema() const { return TreeSchema().Table(); }

cdb::NodeId World::Node(const std::string& path) const { return Schema().Find(path); }

cdb::ChangeNode World::Change(const std::string& path, cdb::ChangeOp op,
                              std::vector<cdb::ChangeNode> children, std::vector<std::string> keys) const
{
    return {Node(path), std::move(keys), op, {}, std::move(children)};
}

cdb::ChangeNode World::ValueSet(const std::string& path, cdb::Value value) const
{
    return {Node(path), {}, cdb::ChangeOp::kValueSet, std::move(value), {}};
}

cdb::ChangeNode World::FromRoot(cdb::ChangeNode node) const
{
    for (auto parent = Schema()[node.node].parent; parent != cdb::kNoNode; parent = Schema()[parent].parent)
        node = cdb::ChangeNode{parent, {}, cdb::ChangeOp::kNone, {}, {std::move(node)}};
    return node;
}

cdb::ChangeNode World::Enabling(const std::string& collector, bool enabled) const
{
    return FromRoot(Change("/config/oam/sflow/collector", cdb::ChangeOp::kModified,
                           {ValueSet("/config/oam/sflow/collector/enabled", enabled)}, {collector}));
}

std::string World::Log() const
{
    std::ostringstream text;
    text << std::ifstream(m_directory / "log").rdbuf();
    return text.str();
}
