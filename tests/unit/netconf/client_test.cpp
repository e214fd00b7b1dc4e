// SPDX-License-Identifier: Apache-2.0
// The client, against a server whose every byte the test chooses.

#include "netconf/client.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <variant>

#include "netconf/requests.h"

namespace {

using netconf::Client;
using netconf::ClientOptions;
using netconf::ConnectionError;
using netconf::Framing;
using netconf::MessageReader;
using netconf::Reply;
using netconf::RpcError;
using testing::HasSubstr;

/// The other end of a socket pair; its script runs in a thread of its own.
class Server {
public:
    template <typename Script>
    explicit Server(Script script)
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
        m_clientEnd = ends[0];
        m_end = ends[1];
        m_thread = std::thread([this, script] { script(*this); });
    }
    ~Server()
    {
        m_thread.join();
        CloseEnd();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    [[nodiscard]] base::UniqueFd ClientEnd() const { return base::UniqueFd(m_clientEnd); }
    void CloseEnd()
    {
        if (m_end >= 0) ::close(std::exchange(m_end, -1));
    }

    void SayHello(std::vector<std::string> capabilities)
    {
        Send(netconf::ToXml({std::move(capabilities), 5}), Framing::kEndOfMessage);
    }
    void Send(const std::string& message, Framing framing)
    {
        SendRaw(netconf::FrameHeader(framing, message.size()) + message +
                std::string(netconf::FrameTrailer(framing)));
    }
    void SendRaw(const std::string& bytes)
    {
        EXPECT_EQ(::send(m_end, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    std::string Receive()
    {
        for (;;) {
            if (auto message = m_reader.Next()) return *message;
            char buffer[4096];
            const ssize_t count = ::recv(m_end, buffer, sizeof buffer, 0);
            if (count <= 0) return "(closed)";
            m_reader.Append({buffer, static_cast<std::size_t>(count)});
        }
    }
    void SetFraming(Framing framing) { m_reader.SetFraming(framing); }

private:
    int m_clientEnd = -1;
    int m_end = -1;
    MessageReader m_reader;
    std::thread m_thread;
};

const std::string kBase10(netconf::kBase10);
const std::string kBase11(netconf::kBase11);

std::string ReplyWith(const std::string& content)
{
    return "<rpc-reply xmlns=\"" + std::string(netconf::kBaseNamespace) + "\" message-id=\"1\">" + content +
           "</rpc-reply>";
}

Reply Parsed(const std::string& content) { return netconf::ParseReply(ReplyWith(content)).value(); }

TEST(Client, CallsInChunksWhereBothKnowThem)
{
    std::string request;
    Server server([&request](Server& self) {
        self.SayHello({kBase10, kBase11});
        self.Receive();
        self.SetFraming(Framing::kChunked);
        request = self.Receive();
        self.Send(ReplyWith("<data><x xmlns=\"urn:x\">1</x></data>"), Framing::kChunked);
    });
    Client client(server.ClientEnd(), "test");
    EXPECT_EQ(client.SessionId(), 5U);
    EXPECT_EQ(client.UsedFraming(), Framing::kChunked);
    const Reply reply = client.Call(netconf::GetConfig("running"));
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.data, "<x xmlns=\"urn:x\">1</x>");
    EXPECT_EQ(request,
              "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"1\">"
              "<get-config><source><running/></source></get-config></rpc>");
}

TEST(Client, UsesTheOldFramingWithAnOldServer)
{
    Server server([](Server& self) {
        self.SayHello({kBase10});
        self.Receive();
        self.Receive();
        self.Send(ReplyWith("<ok/>"), Framing::kEndOfMessage);
    });
    Client client(server.ClientEnd(), "test");
    EXPECT_EQ(client.UsedFraming(), Framing::kEndOfMessage);
    EXPECT_TRUE(client.Call(netconf::Commit()).ok);
}

TEST(Client, NamesAServerThatCloses)
{
    Server server([](Server& self) {
        self.SayHello({kBase10});
        self.Receive();
        self.Receive();
        self.CloseEnd();
    });
    Client client(server.ClientEnd(), "test");
    EXPECT_THAT([&] { client.Call("<get/>"); },
                testing::ThrowsMessage<ConnectionError>("test: the server has closed the session"));
}

TEST(Client, WaitsNoLongerThanItIsTold)
{
    Server server([](Server& self) {
        self.SayHello({kBase10});
        while (self.Receive() != "(closed)") continue;
    });
    ClientOptions options;
    options.callTimeout = std::chrono::milliseconds(30);
    Client client(server.ClientEnd(), "test", options);
    EXPECT_THAT([&] { client.Call("<get/>"); },
                testing::ThrowsMessage<ConnectionError>("test: no answer in time"));
}

/// Answers the calls with data 1, 2, ..., the first one only when `held` says so.
void AnswerLate(Server& self, std::shared_future<void> held)
{
    self.SayHello({kBase10});
    self.Receive();
    for (int number = 1; self.Receive() != "(closed)"; ++number) {
        if (number == 1) held.wait();
        self.Send(ReplyWith("<data>" + std::to_string(number) + "</data>"), Framing::kEndOfMessage);
    }
}

TEST(Client, AStoppedCallLeavesAReplyThatTheNextOnePassesOver)
{
    std::promise<void> held;
    Server server([late = held.get_future().share()](Server& self) { AnswerLate(self, late); });
    Client client(server.ClientEnd(), "test");
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const base::UniqueFd stop(ends[0]);
    const base::UniqueFd stopper(ends[1]);
    client.StopAt(stop.Get());
    ASSERT_EQ(::write(stopper.Get(), "x", 1), 1);
    EXPECT_THAT([&] { client.Call("<get/>"); },
                testing::ThrowsMessage<netconf::Stopped>("test: stopped before the reply came"));
    // Nor does one that has little time.
    client.StopAt(-1);
    EXPECT_EQ(client.CallWithin("<get/>", std::chrono::milliseconds(1)), std::nullopt);
    held.set_value();
    EXPECT_EQ(client.Call("<get/>").data, "2");
    EXPECT_EQ(client.CallWithin("<get/>", std::chrono::seconds(60))->data, "3");
}

TEST(Client, ACallWithoutTimeLeavesAReplyThatTheNextOnePassesOver)
{
    std::promise<void> held;
    Server server([late = held.get_future().share()](Server& self) { AnswerLate(self, late); });
    Client client(server.ClientEnd(), "test");
    EXPECT_EQ(client.CallWithin("<get/>", std::chrono::milliseconds(1)), std::nullopt);
    held.set_value();
    EXPECT_EQ(client.Call("<get/>").data, "2");
}

TEST(Client, RefusesAServerItCannotTalkTo)
{
    Server server([](Server& self) {
        self.SayHello({"urn:other"});
        while (self.Receive() != "(closed)") continue;
    });
    EXPECT_THAT([&] { Client(server.ClientEnd(), "test"); },
                testing::ThrowsMessage<ConnectionError>(HasSubstr("no version of NETCONF")));
}

TEST(Client, NamesTheSocketThatIsNotThere)
{
    EXPECT_THAT([] { Client::Connect("/nonexistent/netconf.sock"); },
                testing::ThrowsMessage<ConnectionError>(HasSubstr("/nonexistent/netconf.sock")));
}

TEST(Client, GivesUpOnBrokenFraming)
{
    Server server([](Server& self) {
        self.SayHello({kBase11});
        self.Receive();
        self.SetFraming(Framing::kChunked);
        self.Receive();
        self.SendRaw("rubbish");
    });
    Client client(server.ClientEnd(), "test");
    EXPECT_THAT([&] { client.Call("<get/>"); },
                testing::ThrowsMessage<ConnectionError>(HasSubstr("framing is broken")));
}

TEST(Reply, ReadsTheErrorsThatTheServerWrites)
{
    RpcError error;
    error.type = "protocol";
    error.tag = "lock-denied";
    error.appTag = "too-late";
    error.path = "/a:b[c='<&\"']";
    error.message = "no & \"never\"";
    error.info = {{"session-id", "3"}, {"bad-element", "x"}};
    std::string xml;
    AppendXml(error, xml);
    const Reply reply = Parsed(xml);
    EXPECT_FALSE(reply.ok);
    EXPECT_EQ(reply.errors, std::vector{error});
}

TEST(Reply, IsOkWithWarningsOnly)
{
    RpcError warning;
    warning.tag = "operation-failed";
    warning.severity = "warning";
    warning.message = "late";
    std::string xml;
    AppendXml(warning, xml);
    const Reply reply = Parsed(xml);
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.errors, std::vector{warning});
}

TEST(Reply, KeepsDataAsItWasSent)
{
    EXPECT_EQ(Parsed("<data/>").data, "");
    EXPECT_EQ(Parsed("<data></data>").data, "");
    EXPECT_EQ(Parsed("<data><a xmlns='u'>x &amp; y</a></data>").data, "<a xmlns='u'>x &amp; y</a>");
}

TEST(Reply, SaysWhatIsNoReply)
{
    EXPECT_EQ(netconf::ParseReply("<x/>").error(), "the server's message is no <rpc-reply>");
    EXPECT_EQ(netconf::ParseReply("<x").error(), "the reply can't be read: line 1, column 1: unclosed token");
    EXPECT_EQ(netconf::ParseReply(
                  "<rpc-reply xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><data><a xmlns=''/><a/></data>"
                  "</rpc-reply>")
                  .error(),
              "the element <a> of the server's message has no namespace");
}

TEST(Replies, HaveTheCommitsNumberAndOutputs)
{
    const auto parse = [](const std::string& attributes, const std::string& content) {
        return netconf::ParseReply("<rpc-reply xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" " +
                                   attributes + ">" + content + "</rpc-reply>")
            .value();
    };
    const std::string declared = "xmlns:h=\"urn:switch:yang:switch-history\" ";
    EXPECT_EQ(parse(declared + "h:commit=\"18446744073709551615\"", "<ok/>").commit, UINT64_MAX);
    EXPECT_EQ(parse(declared + "h:commit=\"-1\"", "<ok/>").commit, std::nullopt);
    EXPECT_EQ(parse("commit=\"7\"", "<ok/>").commit, std::nullopt);
    EXPECT_EQ(parse("xmlns:h=\"urn:other\" h:commit=\"7\"", "<ok/>").commit, std::nullopt);
    const auto reply = parse("", "<before xmlns=\"urn:x\"><a>1</a></before><after xmlns=\"urn:x\"/>");
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.output.size(), 1U);
    EXPECT_EQ(reply.output.at("before"), "<a>1</a>");
    EXPECT_EQ(reply.data, "");
}

TEST(Requests, EscapeTheirArguments)
{
    EXPECT_EQ(netconf::Commit("a<b"),
              "<commit><comment xmlns=\"urn:switch:yang:switch-system\">a&lt;b</comment></commit>");
    EXPECT_EQ(netconf::EditConfig("<c/>", {"replace", "set", "rollback-on-error"}),
              "<edit-config><target><candidate/></target><default-operation>replace</default-operation>"
              "<test-option>set</test-option><error-option>rollback-on-error</error-option>"
              "<config><c/></config></edit-config>");
    EXPECT_EQ(netconf::Get(""), "<get><filter type=\"subtree\"></filter></get>");
    EXPECT_EQ(netconf::KillSession(7), "<kill-session><session-id>7</session-id></kill-session>");
}

}  // namespace
