// SPDX-License-Identifier: Apache-2.0
// A world of its own for each test of the agent: real YANG modules, store, datastores and sockets in a
// directory that is removed with it; the agent's loop in a thread. The agent's time is the test's to advance.

#ifndef AGENT_AGENT_WORLD_H
#define AGENT_AGENT_WORLD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/data/data_schema.h"
#include "agent/process/agent.h"
#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "guard/schema_index.h"
#include "ipc/cdb.pb.h"
#include "netconf/client.h"
#include "netconf/requests.h"
#include "support/frames.h"
#include "support/manual_timers.h"

namespace agent_tests {

/// Of the modules in the tree, loaded once: they never change.
const cdb::Schema& Schema();
const guard::SchemaIndex& Index();
const agent::DataSchema& DataSchema();

/// What is in <config> around the elements of the container sflow. The prefix nc is declared.
std::string Sflow(const std::string& content);
std::string Collector(const std::string& name, const std::string& more = "<ip>192.0.2.1</ip>");
std::string Interface(const std::string& name, const std::string& more = "");

/// A directory that is removed with the object.
class Directory {
public:
    Directory();
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

class World {
public:
    /// `accessFile`: rules of access; empty: the default ones.
    explicit World(agent::AgentOptions options = {}, const std::filesystem::path& accessFile = {},
                   std::size_t mapSize = std::size_t{1} << 24);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    [[nodiscard]] std::filesystem::path NetconfSocket() const { return m_directory.Path() / "netconf.sock"; }
    [[nodiscard]] std::filesystem::path CdbSocket() const { return m_directory.Path() / "cdb.sock"; }
    [[nodiscard]] netconf::Client Connect(const netconf::ClientOptions& options = {}) const;

    /// Runs the function in the agent's loop and waits for it.
    void InLoop(const std::function<void()>& function);
    /// Lets the agent's time pass, after what it does at the moment.
    void Advance(std::chrono::milliseconds time);
    cdb::Store& Store() { return *m_store; }

    /// Ends the agent and all connections, and starts it again on the same store.
    void Restart();

private:
    void Start();
    void Stop();

    Directory m_directory;
    const agent::AgentOptions m_options;
    const std::filesystem::path m_accessFile;
    const std::size_t m_mapSize;
    boost::asio::io_context m_loop;
    support::ManualTimers m_timers;
    std::unique_ptr<cdb::Store> m_store;
    std::unique_ptr<cdb::Datastore> m_datastore;
    std::unique_ptr<agent::Access> m_access;
    std::unique_ptr<agent::Agent> m_agent;
    std::thread m_thread;
};

/// A process of the switch, as cdb.sock sees it.
class Process {
public:
    Process(const World& world, const std::string& name);

    void Send(const ipc::cdb::ClientMessage& message) { m_frames.Send(message); }
    void Subscribe(std::uint32_t id, std::int32_t priority, const std::string& path);
    void RegisterCallpoint(const std::string& name = "sflow-set-sampling-rate");
    void RegisterProvider(const std::string& path = "/state/oam/sflow");
    /// Says that all is registered, and waits for the welcome.
    ipc::cdb::Welcome Ready();

    ipc::cdb::ServerMessage Receive();
    /// The same, for messages of one kind; another one fails the test.
    ipc::cdb::ChangeSet ReceiveChangeSet();
    ipc::cdb::CallpointRequest ReceiveRequest();
    ipc::cdb::Refused ReceiveRefusal();
    void Acknowledge(std::uint64_t commit);
    /// Answers a callpoint's request by setting the entry's default-sampling-rate.
    void Answer(const ipc::cdb::CallpointRequest& request, std::uint32_t rate);
    /// Serves `count` callpoint requests.
    void Serve(int count, std::uint32_t rate = 4096);
    /// Whether cdbd has ended the connection.
    bool AwaitEnd() { return m_frames.AwaitEnd(); }
    support::FrameClient& Frames() { return m_frames; }

private:
    support::FrameClient m_frames;
};

/// The request is carried out without a warning.
void Do(netconf::Client& client, const std::string& operation);
/// The request is refused with one error of this tag.
netconf::RpcError Refused(netconf::Client& client, const std::string& operation, const std::string& tag);
/// The data that get-config returns of a datastore.
std::string Config(netconf::Client& client, const std::string& datastore);

}  // namespace agent_tests

#endif
