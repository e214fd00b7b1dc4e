// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>
#include <system_error>

#include "channel_fixture.h"

namespace {

class SocketTest : public testing::Test {
protected:
    SocketTest()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ipc-test-XXXXXX").string();
        m_directory = ::mkdtemp(pattern.data());
    }
    ~SocketTest() override { std::filesystem::remove_all(m_directory); }

    [[nodiscard]] std::string Path() const { return m_directory / "test.sock"; }

    [[nodiscard]] std::string ErrorOfListen(const std::string& path)
    {
        try {
            ipc::Listen(m_loop, path, 0600);
        } catch (const std::system_error& error) {
            return error.what();
        }
        return "";
    }

    boost::asio::io_context m_loop;
    support::ManualTimers m_timers;
    std::filesystem::path m_directory;
};

TEST_F(SocketTest, ListensWithThePermissionsGiven)
{
    const auto acceptor = ipc::Listen(m_loop, Path(), 0660);
    struct stat status {};
    ASSERT_EQ(::stat(Path().c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
}

TEST_F(SocketTest, ReplacesASocketThatNobodyListensOn)
{
    {
        const auto gone = ipc::Listen(m_loop, Path(), 0600);
    }
    ASSERT_TRUE(std::filesystem::exists(Path()));
    auto acceptor = ipc::Listen(m_loop, Path(), 0600);
    EXPECT_TRUE(ipc::SendBlocking(Path(), Named("hello"), std::chrono::seconds(5)));
}

TEST_F(SocketTest, RefusesAPathThatAnotherProcessListensOn)
{
    const auto first = ipc::Listen(m_loop, Path(), 0600);
    const std::string error = ErrorOfListen(Path());
    EXPECT_NE(error.find(Path()), std::string::npos) << error;
    EXPECT_NE(error.find("another process listens there already"), std::string::npos) << error;
    EXPECT_TRUE(ipc::SendBlocking(Path(), Named("still there"), std::chrono::seconds(5)));
}

TEST_F(SocketTest, LeavesAFileThatIsNoSocketAlone)
{
    std::ofstream(Path()) << "precious";
    EXPECT_NE(ErrorOfListen(Path()).find("a file that is no socket is there"), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(Path()), 8U);
}

TEST_F(SocketTest, NamesThePathThatCannotBeListenedOn)
{
    EXPECT_NE(ErrorOfListen(m_directory / "missing" / "s").find("missing/s"), std::string::npos);
    EXPECT_NE(ErrorOfListen("/" + std::string(200, 'x')).find("1 to 107 bytes"), std::string::npos);
}

TEST_F(SocketTest, SendsOneFrameAndGoes)
{
    auto acceptor = ipc::Listen(m_loop, Path(), 0600);
    ASSERT_TRUE(ipc::SendBlocking(Path(), Named("fault"), std::chrono::seconds(5)));
    auto channel = ipc::Channel::Create(acceptor.accept(), m_timers);
    std::vector<std::string> events;
    channel->Start({[&](std::string_view frame) { events.emplace_back(frame); },
                    [&](std::string_view reason) { events.emplace_back(reason); }});
    m_loop.run_for(std::chrono::seconds(5));
    EXPECT_EQ(events, (std::vector<std::string>{Named("fault").SerializeAsString(), "closed by the peer"}));
}

TEST_F(SocketTest, GivesUpSendingWithNobodyThere)
{
    EXPECT_FALSE(ipc::SendBlocking(Path(), Named("fault"), std::chrono::seconds(1)));
}

TEST_F(SocketTest, GivesUpSendingToAPeerThatTakesNothing)
{
    auto acceptor = ipc::Listen(m_loop, Path(), 0600);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(ipc::SendBlocking(Path(), Named(std::string(std::size_t{16} << 20, 'x')),
                                   std::chrono::milliseconds(50)));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

}  // namespace
