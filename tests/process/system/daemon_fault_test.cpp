// SPDX-License-Identifier: Apache-2.0
// The daemon in front of a database that breaks its promises. A real cdbd never offers such a store,
// so this test plays cdbd: a store written by hand, and the first messages of its socket.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <list>
#include <utility>

#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "ipc/cdb.pb.h"
#include "support/frames.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

using support::FrameClient;

// A listening socket of the test's own.
class Listener {
public:
    explicit Listener(const std::filesystem::path& path)
        : m_descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const auto text = path.string();
        std::copy(text.begin(), text.end(), address.sun_path);
        if (bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(m_descriptor, 8) != 0)
            throw std::runtime_error("can't listen on " + text);
    }
    ~Listener() { close(m_descriptor); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // The next connection's socket.
    int Accept() { return accept4(m_descriptor, nullptr, nullptr, SOCK_CLOEXEC); }

private:
    int m_descriptor;
};

class DaemonFault : public SystemTest {
protected:
    // Two rows: an interface, and a flow collector of it that no list of collectors has.
    void WriteBrokenStore()
    {
        const auto schema = cdb::Schema::Load(World::Tree() / "yang");
        const auto& table = schema->Table();
        const auto store = cdb::Store::Open(TheWorld().StateDir());
        store->SetSchema(table);
        auto transaction = store->Begin();
        transaction.Put({table.Find("/config/oam/sflow/interface"), {"eth1"}}, {});
        transaction.Put(
            {table.Find("/config/oam/sflow/interface/flow-sampling-collector"), {"eth1", "nobody"}}, {});
        transaction.Append({1, 0, "test", "test", "", ""});
        ASSERT_FALSE(transaction.Commit().has_value());
    }

    // The next message of this kind; drops others.
    static ipc::cdb::ClientMessage Await(FrameClient& peer, ipc::cdb::ClientMessage::BodyCase kind)
    {
        ipc::cdb::ClientMessage message;
        while (peer.Receive(message))
            if (message.body_case() == kind) return message;
        throw std::runtime_error("the daemon went away");
    }

    // The next connection whose first message is as wanted. Others stay open without an answer: the manager
    // connects too, and at any moment.
    template <typename Wanted>
    std::pair<FrameClient&, ipc::cdb::ClientMessage> AcceptFrom(Listener& database, const Wanted& wanted)
    {
        for (;;) {
            FrameClient& peer = m_connections.emplace_back(database.Accept());
            ipc::cdb::ClientMessage first;
            if (peer.Receive(first) && wanted(first)) return {peer, first};
        }
    }

    std::list<FrameClient> m_connections;
};

TEST_F(DaemonFault, EndsTheDaemonWithOneAndIsReported)
{
    WriteBrokenStore();
    Listener database(TheWorld().CdbSocket());
    TheWorld().StartManager();
    TheWorld().StartDaemon();

    auto& daemon =
        AcceptFrom(database, [](const auto& first) { return first.hello().process() == "sflow-app"; }).first;
    Await(daemon, ipc::cdb::ClientMessage::kReady);
    ipc::cdb::ServerMessage welcome;
    welcome.mutable_welcome()->set_store_dir(TheWorld().StateDir());
    welcome.mutable_welcome()->set_commit(1);
    daemon.Send(welcome);

    const auto fault = AcceptFrom(database, [](const auto& first) {
                           return first.has_fault_report();
                       }).second.fault_report();
    EXPECT_EQ("sflow-app", fault.process());
    EXPECT_EQ(TheWorld().Daemon().Pid(), fault.pid());
    EXPECT_EQ(1, fault.kind());
    EXPECT_EQ("GetInterfaceCollectors", fault.function());
    EXPECT_EQ("src/daemon/sflow_config_handler", fault.file());
    EXPECT_GT(fault.line(), 0);
    EXPECT_NE("", fault.text());
    EXPECT_EQ(1, TheWorld().Daemon().Wait());
    EXPECT_THAT(TheWorld().Log("sflow-app"), HasSubstr("Could not find collector 'nobody'"));
}

}  // namespace

}  // namespace system_tests
