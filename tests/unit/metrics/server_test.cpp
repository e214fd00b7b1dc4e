// SPDX-License-Identifier: Apache-2.0
// The metrics over HTTP, with real sockets: what is answered, and that a peer's mistakes cost that peer only.

#include "metrics/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <system_error>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

#include "manager/loop_fixture.h"
#include "support/few_files.h"

namespace metrics {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using std::chrono::milliseconds;
using tcp = asio::ip::tcp;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// A connection that sends what it is told to and gathers what comes.
class Browser {
public:
    Browser(asio::io_context& loop, const tcp::endpoint& server) : m_socket(loop)
    {
        m_socket.connect(server);
        m_socket.non_blocking(true);
    }

    /// All of it; false where the server has ended the connection.
    bool Send(std::string_view text)
    {
        error_code error;
        m_socket.non_blocking(false);
        asio::write(m_socket, asio::buffer(text.data(), text.size()), error);
        m_socket.non_blocking(true);
        return !error;
    }
    /// Takes what has come.
    void Look()
    {
        char bytes[65536];
        error_code error;
        while (!m_ended) {
            const std::size_t count = m_socket.read_some(asio::buffer(bytes), error);
            if (error == asio::error::would_block) return;
            if (error) m_ended = true;
            m_received.append(bytes, count);
        }
    }
    [[nodiscard]] const std::string& Received() const { return m_received; }
    [[nodiscard]] bool Ended() const { return m_ended; }
    std::string Take() { return std::exchange(m_received, {}); }
    void EndSending() { m_socket.shutdown(tcp::socket::shutdown_send); }

private:
    tcp::socket m_socket;
    std::string m_received;
    bool m_ended = false;
};

class Metrics : public LoopFixture {
protected:
    [[nodiscard]] tcp::endpoint Where() const
    {
        return {asio::ip::make_address("127.0.0.1"), m_server->Port()};
    }
    std::unique_ptr<Browser> Open() { return std::make_unique<Browser>(m_loop, Where()); }

    /// What comes to the request, until the text or the end is there.
    std::string Answer(Browser& browser, const std::string& request, const std::string& until)
    {
        EXPECT_TRUE(browser.Send(request));
        EXPECT_TRUE(RunUntil([&] {
            browser.Look();
            return browser.Ended() || browser.Received().ends_with(until);
        }));
        return browser.Take();
    }
    /// All that comes on a connection of its own, which the server has to end.
    std::string Whole(const std::string& request)
    {
        const auto browser = Open();
        EXPECT_TRUE(browser->Send(request));
        browser->EndSending();
        EXPECT_TRUE(AwaitEnd(*browser)) << request;
        return browser->Take();
    }
    bool AwaitEnd(Browser& browser)
    {
        return RunUntil([&] {
            browser.Look();
            return browser.Ended();
        });
    }

    std::string m_text = "a 1\n";
    int m_made = 0;
    std::unique_ptr<Server> m_server = std::make_unique<Server>(m_loop, m_timers, "127.0.0.1", 0, [this] {
        ++m_made;
        return m_text;
    });
};

constexpr const char* kGet = "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n";
constexpr const char* kGetAndClose = "GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";

TEST_F(Metrics, AreServed)
{
    EXPECT_EQ(
        "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
        "Connection: close\r\nContent-Length: 4\r\n\r\na 1\n",
        Whole(kGetAndClose));
}

TEST_F(Metrics, AreThoseOfTheMomentOnAConnectionThatStays)
{
    const auto browser = Open();
    EXPECT_THAT(Answer(*browser, kGet, "a 1\n"), StartsWith("HTTP/1.1 200 OK\r\n"));
    m_text = "a 2\n";
    EXPECT_THAT(Answer(*browser, kGet, "a 2\n"), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_FALSE(browser->Ended());
    EXPECT_THAT(Answer(*browser, std::string(kGet) + kGetAndClose, "never"),
                testing::MatchesRegex("HTTP/1.1 200 (.|\r|\n)*a 2\nHTTP/1.1 200 (.|\r|\n)*a 2\n"));
    EXPECT_EQ(4, m_made);
}

TEST_F(Metrics, AreDescribedWithoutBeingSent)
{
    const std::string answer = Whole("HEAD /metrics HTTP/1.1\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("Content-Length: 4\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\n"));
}

TEST_F(Metrics, MayBeLarge)
{
    m_text.assign(8'000'000, 'x');
    const std::string answer = Whole(kGetAndClose);
    EXPECT_THAT(answer.substr(0, 200), HasSubstr("Content-Length: 8000000\r\n"));
    EXPECT_EQ(m_text, answer.substr(answer.size() - m_text.size()));
}

struct RequestRow {
    const char* name;
    std::string request;
    const char* answer;  // how it begins
};

void PrintTo(const RequestRow& row, std::ostream* out) { *out << row.name; }

class Requests : public Metrics, public testing::WithParamInterface<RequestRow> {};

TEST_P(Requests, AreAnsweredWhateverTheyAre)
{
    const std::string answer = Whole(GetParam().request);
    EXPECT_THAT(answer, StartsWith(GetParam().answer));
    EXPECT_EQ(GetParam().answer == std::string(), answer.empty()) << answer;
    EXPECT_THAT(Whole(kGetAndClose), EndsWith("a 1\n"));
}

const RequestRow kRequestRows[] = {
    {"OldVersion", "GET /metrics HTTP/1.0\r\n\r\n", "HTTP/1.0 200 OK\r\n"},
    {"WithAQuery", "GET /metrics?name=x HTTP/1.0\r\n\r\n", "HTTP/1.0 200 OK\r\n"},
    {"OtherPath", "GET / HTTP/1.0\r\n\r\n", "HTTP/1.0 404 Not Found\r\n"},
    {"PathBelow", "GET /metrics/x HTTP/1.0\r\n\r\n", "HTTP/1.0 404 Not Found\r\n"},
    {"PathThatClimbs", "GET /../../etc/passwd HTTP/1.0\r\n\r\n", "HTTP/1.0 404 Not Found\r\n"},
    {"Post", "POST /metrics HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", "HTTP/1.1 405 Method Not Allowed\r\n"},
    {"PostInChunks", "POST /metrics HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n",
     "HTTP/1.1 405 Method Not Allowed\r\n"},
    {"Delete", "DELETE /metrics HTTP/1.0\r\n\r\n", "HTTP/1.0 405 Method Not Allowed\r\n"},
    {"GetWithABody", "GET /metrics HTTP/1.1\r\nContent-Length: 70000\r\n\r\n" + std::string(70000, 'x'),
     "HTTP/1.1 200 OK\r\n"},
    {"NoHttp", "hello\r\n\r\n", "HTTP/1.1 400 Bad Request\r\n"},
    {"Tls", std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11), "HTTP/1.1 400 Bad Request\r\n"},
    {"Zeros", std::string(100, '\0'), "HTTP/1.1 400 Bad Request\r\n"},
    {"BadVersion", "GET /metrics HTTP/9.9\r\n\r\n", "HTTP/1.1 400 Bad Request\r\n"},
    {"BadLength", "GET /metrics HTTP/1.1\r\nContent-Length: -1\r\n\r\n", "HTTP/1.1 400 Bad Request\r\n"},
    {"LongHeader", "GET /metrics HTTP/1.1\r\nX: " + std::string(9000, 'x') + "\r\n\r\n",
     "HTTP/1.1 431 Request Header Fields Too Large\r\n"},
    {"LongTarget", "GET /" + std::string(100000, 'x') + " HTTP/1.1\r\n\r\n",
     "HTTP/1.1 431 Request Header Fields Too Large\r\n"},
    {"EndsAtOnce", "", ""},
    {"EndsEarly", "GET /metrics HTTP/1.1\r\nHo", ""},
};

INSTANTIATE_TEST_SUITE_P(Table, Requests, testing::ValuesIn(kRequestRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(Metrics, SurviveAnyBytes)
{
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        std::string bytes = round % 2 == 0 ? "" : kGet;
        for (int changes = 0; changes < 5 && !bytes.empty(); ++changes)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        for (std::size_t more = random() % 64; more > 0; --more) bytes += static_cast<char>(random());
        Whole(bytes);
    }
    EXPECT_THAT(Whole(kGetAndClose), EndsWith("a 1\n"));
}

TEST_F(Metrics, EndAConnectionThatIsSlowToAsk)
{
    const auto browser = Open();
    const auto other = Open();
    EXPECT_TRUE(browser->Send("GET /metr"));
    EXPECT_THAT(Answer(*other, kGet, "a 1\n"), EndsWith("a 1\n"));
    m_timers.Advance(Server::kReadLimit - milliseconds{1});
    EXPECT_TRUE(browser->Send("i"));
    EXPECT_THAT(Answer(*other, kGet, "a 1\n"), EndsWith("a 1\n"));
    browser->Look();
    EXPECT_FALSE(browser->Ended());
    m_timers.Advance(milliseconds{1});
    EXPECT_TRUE(AwaitEnd(*browser));
    EXPECT_EQ("", browser->Received());
    EXPECT_THAT(Answer(*other, kGet, "a 1\n"), EndsWith("a 1\n"));
}

TEST_F(Metrics, EndAConnectionThatDoesNotTakeItsAnswer)
{
    m_text.assign(std::size_t{64} << 20, 'x');
    const auto browser = Open();
    EXPECT_TRUE(browser->Send(kGet));
    EXPECT_TRUE(RunUntil([&] { return m_made == 1; }));
    m_timers.Advance(Server::kWriteLimit);
    EXPECT_TRUE(AwaitEnd(*browser));
    EXPECT_LT(browser->Received().size(), m_text.size());
    m_text = "a 3\n";
    EXPECT_THAT(Whole(kGetAndClose), EndsWith("a 3\n"));
}

TEST_F(Metrics, HaveRoomForSoManyAtOnce)
{
    std::vector<std::unique_ptr<Browser>> browsers;
    for (std::size_t i = 0; i < Server::kMaxConnections; ++i) {
        browsers.push_back(Open());
        EXPECT_THAT(Answer(*browsers.back(), kGet, "a 1\n"), EndsWith("a 1\n"));
    }
    const auto tooMany = Open();
    EXPECT_TRUE(AwaitEnd(*tooMany));
    EXPECT_EQ("", tooMany->Received());
    browsers.pop_back();
    EXPECT_TRUE(RunUntil([&] {
        const auto next = Open();
        static_cast<void>(next->Send(kGetAndClose));
        static_cast<void>(AwaitEnd(*next));
        return next->Received().ends_with("a 1\n");
    }));
    EXPECT_THAT(Answer(*browsers.front(), kGet, "a 1\n"), EndsWith("a 1\n"));
}

TEST_F(Metrics, AreServedAgainOnceThereAreFilesForConnections)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    testing::internal::CaptureStderr();
    for (int row = 0; row < 2; ++row) {
        const auto browser = Open();
        EXPECT_TRUE(browser->Send("GET /metrics HTTP/1.0\r\n\r\n"));
        {
            const support::FewFiles none(0);
            for (int tries = 0; tries < 3; ++tries) {
                EXPECT_TRUE(RunUntil([&] { return m_timers.Waiting() == 1; }));
                m_timers.Advance(milliseconds(100));
            }
            EXPECT_TRUE(RunUntil([&] { return m_timers.Waiting() == 1; }));
        }
        m_timers.Advance(milliseconds(100));
        EXPECT_TRUE(AwaitEnd(*browser));
        EXPECT_THAT(browser->Take(), EndsWith("\r\n\r\na 1\n"));
        browser->EndSending();
        EXPECT_TRUE(RunUntil([&] { return m_timers.Waiting() == 0; })) << "the connection's own";
    }
    const std::string log = testing::internal::GetCapturedStderr();
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = log.find("can't take a connection", at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(2U, lines) << "one a row: " << log;
}

TEST_F(Metrics, EndWithTheirServer)
{
    const auto idle = Open();
    EXPECT_THAT(Answer(*idle, kGet, "a 1\n"), EndsWith("a 1\n"));
    m_text.assign(std::size_t{64} << 20, 'x');
    const auto busy = Open();
    EXPECT_TRUE(busy->Send(kGet));
    EXPECT_TRUE(RunUntil([&] { return m_made == 2; }));
    const auto where = Where();
    m_server.reset();
    EXPECT_TRUE(AwaitEnd(*idle));
    EXPECT_TRUE(AwaitEnd(*busy));
    tcp::socket late(m_loop);
    error_code error;
    late.connect(where, error);
    EXPECT_EQ(asio::error::connection_refused, error);
}

TEST_F(Metrics, AreServedByVersion6Too)
{
    std::unique_ptr<Server> server;
    try {
        server = std::make_unique<Server>(m_loop, m_timers, "::1", 0, [] { return "b 6\n"; });
    } catch (const std::system_error& error) {
        GTEST_SKIP() << "no IPv6 here: " << error.what();
    }
    Browser browser(m_loop, {asio::ip::make_address("::1"), server->Port()});
    EXPECT_THAT(Answer(browser, kGet, "b 6\n"), EndsWith("b 6\n"));
}

TEST_F(Metrics, SayWhereTheyCanNotBeServed)
{
    try {
        const Server second(m_loop, m_timers, "127.0.0.1", m_server->Port(), [] { return ""; });
        FAIL() << "two listen at one port";
    } catch (const std::system_error& error) {
        EXPECT_EQ(std::errc::address_in_use, error.code());
        EXPECT_THAT(error.what(), HasSubstr("127.0.0.1 port " + std::to_string(m_server->Port())));
    }
    for (const char* address : {"0.0.0.0", "::", "192.0.2.1", "localhost", ""})
        EXPECT_THROW(Server(m_loop, m_timers, address, 0, [] { return ""; }), std::invalid_argument)
            << address;
}

}  // namespace
}  // namespace metrics
