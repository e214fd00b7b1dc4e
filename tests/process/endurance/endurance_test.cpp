// SPDX-License-Identifier: Apache-2.0
// What the suites of this folder share (see the header).

#include "endurance/endurance_test.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <iostream>
#include <iterator>
#include <sstream>

#include "support/frames.h"
#include "support/process.h"

namespace endurance {

std::string TestName(const std::string& source)
{
    std::string name;
    bool capital = true;
    for (const char c : source) {
        if (c != '-') name += capital ? static_cast<char>(std::toupper(c)) : c;
        capital = c == '-';
    }
    return name;
}

std::string AnySource() { return support::WhyNotSource(kTcx).empty() ? kTcx : kPacketSocket; }

int ConnectAs(unsigned user, const std::filesystem::path& socket)
{
    const sockaddr_un address = support::UnixAddress(socket);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(user) != 0 || ::setuid(user) != 0) ::_exit(kNotThatUser);
        const int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
        const bool done = ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::_exit(done ? 0 : errno);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

void EnduranceTest::SetUp()
{
    if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
}

void EnduranceTest::Start(const std::string& source, ManagerOptions options)
{
    m_pool = source == kPacketSocket ? Pool::kShared : Pool::kExact;
    options.arguments.insert(options.arguments.end(), {"--source", source});
    m_world.emplace(std::move(options));
    if (const auto why = support::WhyNotSource(source); !why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(World().Numbers().Source(), source) << World().Log();
}

void EnduranceTest::TearDown()
{
    if (m_world && HasFailure()) std::cerr << "sflow-mgr says:\n" << World().Log();
    m_world.reset();
}

void EnduranceTest::Configure(const DecodingCollector& collector, const std::vector<std::string>& interfaces,
                              std::uint32_t rate)
{
    Service().SetAgentAddress("192.0.2.1");
    World().AddCollector("a", collector);
    for (const std::string& name : interfaces)
        Service().UpdateInterface({.name = name, .flowCollector = "a", .rate = rate});
    Service().Loaded();
    World().AwaitApplied();
}

void EnduranceTest::AwaitSamples(DecodingCollector& collector, std::uint32_t ifIndex, std::uint32_t more)
{
    const std::uint32_t before = collector.LastSequence(ifIndex);
    Await("samples of interface " + std::to_string(ifIndex),
          [&] { return collector.LastSequence(ifIndex) >= before + more; });
}

std::size_t EnduranceTest::ResidentKilobytes()
{
    const auto status = support::ReadFile("/proc/" + std::to_string(World().Manager().Pid()) + "/status");
    std::istringstream words(status.substr(status.find("VmRSS:") + 6));
    std::size_t kilobytes = 0;
    words >> kilobytes;
    return kilobytes;
}

void EnduranceTest::ExpectResidentAtMost(std::size_t kilobytes)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static_cast<void>(kilobytes);
#else
    EXPECT_LE(ResidentKilobytes(), kilobytes);
#endif
}

std::size_t EnduranceTest::Descriptors()
{
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(World().Manager().Pid()) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace endurance
