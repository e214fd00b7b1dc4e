// SPDX-License-Identifier: Apache-2.0
// What the manager may still do once it has started as root with --user, and that this is enough: interfaces
// that appear later are sampled and counted, collectors come and go, and it ends in order.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iomanip>
#include <map>
#include <sstream>

#include "endurance/endurance_test.h"

namespace endurance {
namespace {

// The latter two for the program that sees dropped packets, which may be wanted later.
constexpr std::uint64_t kNetAdmin = 1ULL << 12, kNetRaw = 1ULL << 13, kPerfmon = 1ULL << 38,
                        kBpf = 1ULL << 39;
constexpr const char* kNobody = "65534";

struct Kept {
    const char* source;
    std::uint64_t capabilities;
};
void PrintTo(const Kept& kept, std::ostream* out) { *out << kept.source; }

class Privileges : public EnduranceTest, public testing::WithParamInterface<Kept> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (IsSkipped()) return;
        if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
        // The directory is not the user's, as /run is not.
        Start(GetParam().source, {.arguments = {"--user", "nobody"}});
        if (IsSkipped() || HasFatalFailure()) return;
        std::filesystem::permissions(World().Dir(), std::filesystem::perms(0755));
    }

    /// The fields of /proc/PID/status, blanks made one.
    [[nodiscard]] std::map<std::string, std::string> Status()
    {
        std::istringstream lines(
            support::ReadFile("/proc/" + std::to_string(World().Manager().Pid()) + "/status"));
        std::map<std::string, std::string> fields;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line.substr(line.find(':') + 1));
            std::string& value = fields[line.substr(0, line.find(':'))];
            for (std::string word; words >> word;) value += (value.empty() ? "" : " ") + word;
        }
        return fields;
    }
};

std::string Four(const std::string& value) { return value + " " + value + " " + value + " " + value; }

TEST_P(Privileges, AreThoseThatLaterInterfacesNeedAndNoMore)
{
    std::map<std::string, std::string> status;
    Await("the filter of system calls, which comes last",
          [&] { return (status = Status())["Seccomp"] == "2"; });
    std::ostringstream kept;
    kept << std::hex << std::setw(16) << std::setfill('0') << GetParam().capabilities;
    const std::string none(16, '0');
    EXPECT_EQ(status["CapEff"], kept.str());
    EXPECT_EQ(status["CapPrm"], kept.str());
    EXPECT_EQ(status["CapBnd"], none);
    EXPECT_EQ(status["CapInh"], none);
    EXPECT_EQ(status["CapAmb"], none);
    EXPECT_EQ(status["NoNewPrivs"], "1");
    EXPECT_EQ(status["Uid"], Four(kNobody));
    EXPECT_EQ(status["Gid"], Four(kNobody));
    EXPECT_TRUE(status["Groups"].empty() || status["Groups"] == kNobody) << status["Groups"];

    struct stat file {};
    ASSERT_EQ(::stat(World().Socket().c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0660U);
    EXPECT_EQ(file.st_uid, 65534U);
    EXPECT_EQ(file.st_gid, 65534U);
    EXPECT_EQ(ConnectAs(65534, World().Socket()), 0);
    EXPECT_EQ(ConnectAs(1, World().Socket()), EACCES);
}

TEST_P(Privileges, SufficeForAllThatComesLater)
{
    DecodingCollector first, second;
    Configure(first, {"p1", "later"});
    const auto before = Received("p1");
    BackgroundTraffic traffic("h1", NumberedFrames(1, 2), 1000, 0);
    Network::Veth("later", "other");
    Await("the later interface", [&] { return World().Numbers().OfInterface("later", "sampled") == 1; });
    const auto later = Network::Index("later");
    support::Injector other("other");
    Await("samples of it", [&] {
        other.Send(SamplingWorld::Frame(3, 4));
        return first.LastSequence(later) > 0;
    });
    Service().UpdateInterface(
        {.name = "later", .flowCollector = "a", .counterCollector = "b", .direction = 3});
    World().AddCollector("b", second);
    Service().UpdateInterface({.name = "later", .direction = 3, .interval = 1});
    Await("its counters", [&] { return !second.Counters(later).empty(); });
    support::Injector self("later");
    const auto seen = first.Flows(later).size();
    Await("samples of what leaves", [&] {
        self.Send(SamplingWorld::Frame(4, 3));
        const Flows flows = first.Flows(later);
        return flows.size() > seen && flows.back().output.value == later;
    });
    Network::Ip("link delete later");
    Await("its end", [&] { return World().Numbers().OfInterface("later", "present") == 0; });
    traffic.Stop();
    DecodingCollector::AwaitQuiet({&first});
    EXPECT_EQ(FaultInWhole(first.Flows(Network::Index("p1")), Received("p1") - before, CountsPool()), "");
    EXPECT_THAT(World().Log(), testing::Not(HasSubstr(" 13 "))) << "no error";
    EXPECT_EQ(World().Manager().Terminate(), 0);
}

INSTANTIATE_TEST_SUITE_P(, Privileges,
                         testing::Values(Kept{kTcx, kNetAdmin | kPerfmon | kBpf},
                                         Kept{kClsact, kNetAdmin | kPerfmon | kBpf},
                                         Kept{kPacketSocket, kNetAdmin | kNetRaw | kPerfmon | kBpf}),
                         [](const auto& row) { return TestName(row.param.source); });

}  // namespace
}  // namespace endurance
