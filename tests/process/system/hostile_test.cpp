// SPDX-License-Identifier: Apache-2.0
// Bytes that no well-meaning peer sends, on all three sockets, while everything else goes on.

#include "ipc/cdb.pb.h"
#include "ipc/manager.pb.h"
#include "support/frames.h"
#include "support/proto_text.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

using support::FrameClient;
using support::FrameLength;

class Hostile : public SystemTest {
protected:
    Hostile() { TheWorld().Start(scenario::Usual()); }

    // Nothing was harmed: same processes, and a commit goes all the way.
    void ExpectUnharmed()
    {
        static unsigned rate = 1000;
        EXPECT_TRUE(TheWorld().Cdbd().Running());
        EXPECT_TRUE(TheWorld().Manager().Running());
        EXPECT_TRUE(TheWorld().Daemon().Running());
        Commit(Rate("eth1", ++rate));
        const auto call = "UpdateInterface eth1 - - " + std::to_string(rate) + " 2 128 20";
        EXPECT_THAT(TheWorld().ManagerJournal().Until(call), ElementsAre(call));
    }
};

TEST_F(Hostile, OversizedFrameEndsItsConnectionOnly)
{
    for (const auto& socket : {TheWorld().CdbSocket(), TheWorld().ManagerSocket()}) {
        FrameClient peer(socket);
        peer.SendBytes(FrameLength((64U << 20U) + 1));
        EXPECT_TRUE(peer.AwaitEnd()) << socket;
        FrameClient longest(socket);
        longest.SendBytes(FrameLength(0xffffffffU));
        EXPECT_TRUE(longest.AwaitEnd()) << socket;
    }
    ExpectUnharmed();
}

TEST_F(Hostile, MalformedFrameEndsItsConnectionOnly)
{
    for (const auto& socket : {TheWorld().CdbSocket(), TheWorld().ManagerSocket()}) {
        for (const std::string& content :
             {std::string("\xff\xff\xff\xff\xff"), std::string(64, '\x07'), std::string()}) {
            FrameClient peer(socket);
            peer.SendBytes(FrameLength(static_cast<std::uint32_t>(content.size())) + content);
            EXPECT_TRUE(peer.AwaitEnd()) << socket << " took " << content.size() << " bytes";
        }
    }
    ExpectUnharmed();
}

TEST_F(Hostile, FramesBeforeHelloAreRefused)
{
    FrameClient subscriber(TheWorld().CdbSocket());
    ipc::cdb::ClientMessage ready;
    ready.mutable_ready();
    subscriber.Send(ready);
    EXPECT_TRUE(subscriber.AwaitEnd());

    FrameClient service(TheWorld().ManagerSocket());
    ipc::manager::ClientMessage operation;
    operation.mutable_unset_interface()->set_interface("eth1");
    service.Send(operation);
    EXPECT_TRUE(service.AwaitEnd());
    ExpectUnharmed();
}

TEST_F(Hostile, UnknownProtocolVersionIsRefusedWithAReason)
{
    FrameClient peer(TheWorld().CdbSocket());
    ipc::cdb::ClientMessage hello;
    hello.mutable_hello()->set_protocol(99);
    hello.mutable_hello()->set_process("test");
    peer.Send(hello);
    ipc::cdb::ServerMessage answer;
    ASSERT_TRUE(peer.Receive(answer));
    EXPECT_TRUE(answer.has_refused()) << support::TextOf(answer);
    EXPECT_THAT(answer.refused().reason(), HasSubstr("99"));
    ExpectUnharmed();
}

TEST_F(Hostile, AnswersNobodyAskedForAreIgnoredOrEndTheConnection)
{
    FrameClient peer(TheWorld().CdbSocket());
    ipc::cdb::ClientMessage message;
    message.mutable_hello()->set_protocol(1);
    message.mutable_hello()->set_process("test");
    message.mutable_hello()->set_pid(1);
    peer.Send(message);
    message.mutable_ready();
    peer.Send(message);
    message.mutable_change_set_ack()->set_commit(12345);
    peer.Send(message);
    message.mutable_callpoint_reply()->set_request(12345);
    peer.Send(message);
    message.mutable_state_reply()->set_request(12345);
    peer.Send(message);
    message.mutable_ha_reply()->set_request(12345);
    peer.Send(message);
    ExpectUnharmed();
}

TEST_F(Hostile, ConnectionThatSaysNothingHoldsNobodyUp)
{
    FrameClient cdb(TheWorld().CdbSocket());
    FrameClient manager(TheWorld().ManagerSocket());
    FrameClient netconf(TheWorld().NetconfSocket());
    cdb.SendBytes(FrameLength(100) + "half");
    manager.SendBytes("\0\0");
    netconf.SendBytes("<hello");
    ExpectUnharmed();
}

TEST_F(Hostile, GarbageOnNetconfEndsThatSessionOnly)
{
    for (const std::string& bytes :
         {std::string("GET / HTTP/1.0\r\n\r\n]]>]]>"),
          std::string("<hello xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'/>]]>]]>"),
          std::string("\0\1\2\3]]>]]>", 10),
          std::string("<!DOCTYPE a [<!ENTITY b 'c'>]><hello>&b;</hello>]]>]]>")}) {
        FrameClient peer(TheWorld().NetconfSocket());
        peer.SendBytes(bytes);
        EXPECT_TRUE(peer.AwaitEnd()) << bytes;
    }
    ExpectUnharmed();
}

// A whole message in one chunk.
std::string Chunked(const std::string& message)
{
    return "\n#" + std::to_string(message.size()) + "\n" + message + "\n##\n";
}

TEST_F(Hostile, MalformedChunkEndsThatSessionOnly)
{
    for (const char* bytes : {"\n#0\n", "\n#abc\n", "\n#99999999999\n", "\n#-1\n", "no chunk at all\n##\n"}) {
        auto client = Connect();
        client.SendRaw(Chunked("<rpc"));
        const auto answer = client.ReceiveMessage();
        EXPECT_THAT(answer, HasSubstr("malformed-message")) << answer;
        FrameClient peer(TheWorld().NetconfSocket());
        peer.SendBytes(
            "<hello xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><capabilities>"
            "<capability>urn:ietf:params:netconf:base:1.1</capability></capabilities></hello>]]>]]>");
        peer.SendBytes(bytes);
        EXPECT_TRUE(peer.AwaitEnd()) << bytes;
    }
    ExpectUnharmed();
}

TEST_F(Hostile, OversizedNetconfMessageEndsThatSessionOnly)
{
    FrameClient peer(TheWorld().NetconfSocket());
    peer.SendBytes(
        "<hello xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><capabilities>"
        "<capability>urn:ietf:params:netconf:base:1.1</capability></capabilities></hello>]]>]]>");
    const std::string chunk = "\n#1048576\n" + std::string(1U << 20U, ' ');
    bool open = true;
    for (int i = 0; i < 66 && open; ++i) open = peer.SendBytes(chunk);
    EXPECT_TRUE(peer.AwaitEnd());
    ExpectUnharmed();
}

TEST_F(Hostile, DeeplyNestedElementsAreRefused)
{
    auto client = Connect();
    std::string nested;
    for (int i = 0; i < 20000; ++i) nested += "<a>";
    client.SendRaw(
        Chunked("<rpc message-id=\"1\" xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" + nested));
    try {
        EXPECT_THAT(client.ReceiveMessage(), HasSubstr("rpc-error"));
    } catch (const netconf::ConnectionError&) {
        // Ending the session is an answer too.
    }
    ExpectUnharmed();
}

TEST_F(Hostile, ManyConnectionsAreServedOrRefusedButHarmNobody)
{
    std::vector<std::unique_ptr<FrameClient>> peers;
    for (int i = 0; i < 200; ++i) {
        peers.push_back(std::make_unique<FrameClient>(TheWorld().NetconfSocket()));
        peers.push_back(std::make_unique<FrameClient>(TheWorld().CdbSocket()));
        peers.push_back(std::make_unique<FrameClient>(TheWorld().ManagerSocket()));
    }
    peers.clear();
    ExpectUnharmed();
}

}  // namespace

}  // namespace system_tests
