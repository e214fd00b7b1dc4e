// SPDX-License-Identifier: Apache-2.0
// The store on disk: a second cdbd, a damaged or newer format, a full disk, --init on a used one.

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "system/system_test.h"

namespace system_tests {

namespace {

class StoreFiles : public SystemTest {
protected:
    // Every regular file of the store with its content, but for those that only say who uses it.
    std::map<std::string, std::string> Files()
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(TheWorld().StateDir()))
            if (entry.is_regular_file() && entry.path().filename() != "lock.mdb" &&
                entry.path().extension() != ".lock")
                files[entry.path()] = support::ReadFile(entry.path());
        return files;
    }

    std::filesystem::path DataFile()
    {
        for (const auto& [path, content] : Files())
            if (std::filesystem::path(path).filename() == "data.mdb") return path;
        throw std::runtime_error("the store has no data file");
    }

    // cdbd on the store as it is: it ends with 1, says why, and has changed nothing.
    std::string RefusedStart()
    {
        const auto before = Files();
        const auto result = TheWorld().Run({World::Program("cdbd")});
        EXPECT_EQ(1, result.status) << result.errors;
        EXPECT_TRUE(before == Files()) << "the store was changed";
        return result.errors + TheWorld().Log("run");
    }
};

TEST_F(StoreFiles, SecondProcessIsRefusedWithTheFirstsId)
{
    TheWorld().Start(scenario::Usual());
    auto environment = TheWorld().Environment("second");
    const auto other = TheWorld().Dir() / "run2";
    std::filesystem::create_directories(other);
    environment["SFLOW_RUN_DIR"] = other;
    const auto result = support::Run(TheWorld().Dir(), {World::Program("cdbd")}, environment);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors + TheWorld().Log("second"), HasSubstr(std::to_string(TheWorld().Cdbd().Pid())));
    Commit(Rate("eth1", 70));
    AwaitSettled();
}

TEST_F(StoreFiles, SecondProcessOnTheSameSocketsIsRefused)
{
    TheWorld().Start(scenario::Usual());
    auto environment = TheWorld().Environment("second");
    environment["SFLOW_STATE_DIR"] = TheWorld().Dir() / "state2";
    std::filesystem::create_directories(TheWorld().Dir() / "state2");
    const auto result = support::Run(TheWorld().Dir(), {World::Program("cdbd")}, environment);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors + TheWorld().Log("second"), HasSubstr(".sock"));
    Commit(Rate("eth1", 71));
    AwaitSettled();
}

TEST_F(StoreFiles, InitOnAUsedStoreIsRefused)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    const auto before = Files();
    const auto result = TheWorld().Initialize(scenario::Switch(""));
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors + TheWorld().Log("run"), HasSubstr(TheWorld().StateDir().string()));
    EXPECT_TRUE(before == Files());
    TheWorld().StartCdbd();
    EXPECT_THAT(Running(), HasSubstr("eth1"));
}

TEST_F(StoreFiles, InitWithAnInvalidFileLeavesTheStoreEmpty)
{
    const auto result = TheWorld().Initialize(scenario::Switch(R"("interface":[{"name":"eth1",
        "flow-sampling-collector":[{"name":"nobody"}]}])"));
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors + TheWorld().Log("run"), HasSubstr("nobody"));
    EXPECT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
}

TEST_F(StoreFiles, InitNamesInterfacesWhoseDefaultNoCallpointSet)
{
    const auto result = TheWorld().Initialize(scenario::Usual());
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.errors + TheWorld().Log("run"), HasSubstr("eth1"));
}

TEST_F(StoreFiles, OverwrittenWithGarbageIsRefused)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    support::WriteFile(DataFile(), std::string(40000, 'x'));
    EXPECT_THAT(RefusedStart(), HasSubstr(TheWorld().StateDir().string()));
}

TEST_F(StoreFiles, CutShortIsRefused)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    std::filesystem::resize_file(DataFile(), std::filesystem::file_size(DataFile()) / 2);
    EXPECT_THAT(RefusedStart(), HasSubstr(TheWorld().StateDir().string()));
}

TEST_F(StoreFiles, ThatCantBeWrittenIsRefused)
{
    auto environment = TheWorld().Environment("run");
    environment["SFLOW_STATE_DIR"] = "/proc/no-such-place";
    const auto result = support::Run(TheWorld().Dir(), {World::Program("cdbd")}, environment);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors + TheWorld().Log("run"), HasSubstr("/proc/no-such-place"));
}

// A store on a file system of its own that is soon full. Needs a mount namespace: as an ordinary user
// one within a user namespace.
class FullDisk : public testing::Test {
protected:
    // Empty if this process may mount from here on, else why not.
    static std::string MayMount()
    {
        const auto user = getuid();
        const auto group = getgid();
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
            support::WriteFile("/proc/self/setgroups", "deny");
            support::WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
            support::WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
        } else if (unshare(CLONE_NEWNS) != 0) {
            return std::string("this machine gives no mount namespace: ") + std::strerror(errno);
        }
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return std::string("the mounts can't be made private: ") + std::strerror(errno);
        return {};
    }
};

TEST_F(FullDisk, RefusesTheCommitAndLeavesRunningAsItWas)
{
    const auto why = MayMount();
    if (!why.empty()) GTEST_SKIP() << why;
    const support::TempDir disk;
    if (mount("tmpfs", disk.Path().c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "no tmpfs in the namespace: " << std::strerror(errno);
    {
        World world({.cdbdArguments = {}, .logLevel = 10, .stateDir = disk.Path()});
        world.Start(scenario::Usual());
        auto client = netconf::Client::Connect(world.NetconfSocket());
        std::string before;
        netconf::Reply reply;
        for (unsigned round = 0; round < 200; ++round) {
            before = client.Call(netconf::GetConfig("running")).data;
            std::string collectors;
            for (unsigned i = 0; i < 500; ++i)
                collectors += "<collector><name>c" + std::to_string(round) + "-" + std::to_string(i) +
                              "</name><ip>198.51.100.1</ip></collector>";
            ASSERT_TRUE(client.Call(netconf::EditConfig(scenario::SflowXml(collectors))).ok);
            reply = client.Call(netconf::Commit());
            if (!reply.ok) break;
        }
        ASSERT_FALSE(reply.ok) << "the disk never became full";
        EXPECT_EQ("resource-denied", reply.errors.at(0).tag) << reply.xml;
        EXPECT_EQ(before, client.Call(netconf::GetConfig("running")).data);
        ASSERT_TRUE(client.Call(netconf::DiscardChanges()).ok);

        // What was committed before is there after a restart, and the daemon has it.
        world.Cdbd().Kill();
        world.StartCdbd();
        auto again = netconf::Client::Connect(world.NetconfSocket());
        EXPECT_EQ(before, again.Call(netconf::GetConfig("running")).data);
    }
    umount(disk.Path().c_str());
}

}  // namespace

}  // namespace system_tests
