// SPDX-License-Identifier: Apache-2.0
#include "agent/agent_world.h"

#include <cstdlib>
#include <future>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>

#include "ipc/frame.h"
#include "support/proto_text.h"

namespace agent_tests {

const cdb::Schema& Schema()
{
    static const std::unique_ptr<cdb::Schema> schema = cdb::Schema::Load(AGENT_TEST_YANG);
    return *schema;
}

const guard::SchemaIndex& Index()
{
    static const guard::SchemaIndex index(Schema().Context());
    return index;
}

const agent::DataSchema& DataSchema()
{
    static const agent::DataSchema schema(Schema());
    return schema;
}

std::string Sflow(const std::string& content)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\" "
           "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\">"
           "<oam xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow>" +
           content + "</sflow></oam></config>";
}

std::string Collector(const std::string& name, const std::string& more)
{
    return "<collector><name>" + name + "</name>" + more + "</collector>";
}

std::string Interface(const std::string& name, const std::string& more)
{
    return "<interface><name>" + name + "</name>" + more + "</interface>";
}

Directory::Directory()
{
    std::string path = (std::filesystem::temp_directory_path() / "agent-test-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("can't make a directory " + path);
    m_path = path;
}

Directory::~Directory()
{
    std::error_code ignored;  // a directory left behind fails no test
    std::filesystem::remove_all(m_path, ignored);
}

World::World(agent::AgentOptions options, const std::filesystem::path& accessFile, std::size_t mapSize)
    : m_options(std::move(options)), m_accessFile(accessFile), m_mapSize(mapSize)
{
    Start();
}

World::~World() { Stop(); }

void World::Start()
{
    cdb::StoreOptions storeOptions;
    storeOptions.mapSize = m_mapSize;
    m_store = cdb::Store::Open(m_directory.Path() / "store", storeOptions);
    m_datastore = std::make_unique<cdb::Datastore>(Schema(), *m_store);
    m_access = std::make_unique<agent::Access>(
        Schema().Context(), agent::Access::Options{m_accessFile, AGENT_TEST_YANG, m_options.adminGroup});
    agent::AgentOptions options = m_options;
    options.runDirectory = m_directory.Path();
    options.timers = &m_timers;
    m_agent = std::make_unique<agent::Agent>(m_loop, Schema(), *m_store, *m_datastore, *m_access,
                                             std::move(options));
    m_agent->Listen();
    m_thread = std::thread([this] { m_loop.run(); });
}

void World::Stop()
{
    m_loop.stop();
    m_thread.join();
}

void World::Restart()
{
    Stop();
    m_agent.reset();
    m_access.reset();
    m_datastore.reset();
    m_store.reset();
    m_loop.restart();
    Start();
}

netconf::Client World::Connect(const netconf::ClientOptions& options) const
{
    return netconf::Client::Connect(NetconfSocket(), options);
}

void World::InLoop(const std::function<void()>& function)
{
    std::promise<void> done;
    boost::asio::post(m_loop, [&] {
        function();
        done.set_value();
    });
    done.get_future().wait();
}

void World::Advance(std::chrono::milliseconds time)
{
    // A handler whose effect the test has seen may still have to set its timer, in this turn or the next.
    InLoop([] {});
    InLoop([this, time] { m_timers.Advance(time); });
}

Process::Process(const World& world, const std::string& name) : m_frames(world.CdbSocket())
{
    ipc::cdb::ClientMessage message;
    message.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    message.mutable_hello()->set_process(name);
    Send(message);
}

void Process::Subscribe(std::uint32_t id, std::int32_t priority, const std::string& path)
{
    const cdb::SchemaTable& table = Schema().Table();
    const cdb::NodeId node = table.Find(path);
    ipc::cdb::ClientMessage message;
    auto& subscription = *message.mutable_subscribe();
    subscription.set_id(id);
    subscription.set_priority(priority);
    subscription.set_path(path);
    if (node != cdb::kNoNode) subscription.set_ns(static_cast<std::int32_t>(table[node].ns));
    Send(message);
}

void Process::RegisterCallpoint(const std::string& name)
{
    ipc::cdb::ClientMessage message;
    message.mutable_register_callpoint()->set_name(name);
    Send(message);
}

void Process::RegisterProvider(const std::string& path)
{
    ipc::cdb::ClientMessage message;
    message.mutable_register_state_provider()->set_path(path);
    Send(message);
}

ipc::cdb::Welcome Process::Ready()
{
    ipc::cdb::ClientMessage message;
    message.mutable_ready();
    Send(message);
    const auto answer = Receive();
    EXPECT_TRUE(answer.has_welcome()) << support::TextOf(answer);
    return answer.welcome();
}

ipc::cdb::ServerMessage Process::Receive()
{
    ipc::cdb::ServerMessage message;
    if (!m_frames.Receive(message)) throw std::runtime_error("cdbd has ended the connection");
    return message;
}

ipc::cdb::ChangeSet Process::ReceiveChangeSet()
{
    const auto message = Receive();
    EXPECT_TRUE(message.has_change_set()) << support::TextOf(message);
    return message.change_set();
}

ipc::cdb::CallpointRequest Process::ReceiveRequest()
{
    const auto message = Receive();
    EXPECT_TRUE(message.has_callpoint_request()) << support::TextOf(message);
    return message.callpoint_request();
}

ipc::cdb::Refused Process::ReceiveRefusal()
{
    const auto message = Receive();
    EXPECT_TRUE(message.has_refused()) << support::TextOf(message);
    return message.refused();
}

void Process::Acknowledge(std::uint64_t commit)
{
    ipc::cdb::ClientMessage message;
    message.mutable_change_set_ack()->set_commit(commit);
    Send(message);
}

void Process::Answer(const ipc::cdb::CallpointRequest& request, std::uint32_t rate)
{
    ipc::cdb::ClientMessage message;
    auto& reply = *message.mutable_callpoint_reply();
    reply.set_request(request.request());
    reply.set_ok(true);
    auto& write = *reply.add_writes();
    write.set_path(request.path() + "/default-sampling-rate");
    write.mutable_value()->set_uint32(rate);
    Send(message);
}

void Process::Serve(int count, std::uint32_t rate)
{
    for (int i = 0; i < count; ++i) Answer(ReceiveRequest(), rate);
}

namespace {

/// Most worlds have no subscriber, and the committer is warned of that.
bool IsWithoutOtherWarnings(const netconf::Reply& reply)
{
    return reply.errors.empty() ||
           (reply.errors.size() == 1 && reply.errors[0].IsWarning() &&
            reply.errors[0].message.find("stands, but no process") != std::string::npos);
}

}  // namespace

void Do(netconf::Client& client, const std::string& operation)
{
    const netconf::Reply reply = client.Call(operation);
    EXPECT_TRUE(reply.ok && IsWithoutOtherWarnings(reply)) << operation << "\n" << reply.xml;
}

netconf::RpcError Refused(netconf::Client& client, const std::string& operation, const std::string& tag)
{
    const netconf::Reply reply = client.Call(operation);
    EXPECT_FALSE(reply.ok) << operation << "\n" << reply.xml;
    if (reply.errors.size() != 1) {
        ADD_FAILURE() << operation << "\n" << reply.xml;
        return {};
    }
    EXPECT_EQ(reply.errors[0].tag, tag) << reply.xml;
    return reply.errors[0];
}

std::string Config(netconf::Client& client, const std::string& datastore)
{
    return client.Call(netconf::GetConfig(datastore)).data;
}

}  // namespace agent_tests
