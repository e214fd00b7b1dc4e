// SPDX-License-Identifier: Apache-2.0
// Which user may open which socket, and what a process may do that has opened it: as a third user, as an
// operator, as the processes' own user and as another user of their group.

#include <fcntl.h>

#include <cerrno>
#include <ostream>

#include "ipc/cdb.pb.h"
#include "ipc/manager.pb.h"
#include "support/frames.h"
#include "system/other_users.h"

namespace system_tests {
namespace {

using support::ConnectAs;
using support::FrameClient;
using support::OpenAs;

class Trust : public OtherUsersTest {
protected:
    using OtherUsersTest::OtherUsersTest;

    void Start()
    {
        TheWorld().StartCdbd();
        TheWorld().StartManager();
        TheWorld().StartDaemon();
        TheWorld().AwaitLoad();
    }

    int Netconf(const Identity& who) { return ConnectAs(who, TheWorld().NetconfSocket().c_str()); }
    int Cdb(const Identity& who) { return ConnectAs(who, TheWorld().CdbSocket().c_str()); }
    int Manager(const Identity& who) { return ConnectAs(who, TheWorld().ManagerSocket().c_str()); }
    int Data(const Identity& who, int flags)
    {
        return OpenAs(who, (TheWorld().StateDir() / "data.mdb").c_str(), flags);
    }
    int Lock(const Identity& who, int flags)
    {
        return OpenAs(who, (TheWorld().StateDir() / "lock.mdb").c_str(), flags);
    }
};

/// The result for one user at each socket and file: 0 or an errno.
struct Doors {
    const char* name;
    Identity who;
    int netconf = EACCES;
    int cdb = EACCES;
    int manager = EACCES;
    int runDirectory = EACCES;  // to list it
    int stateDirectory = EACCES;
    int dataToRead = EACCES;
    int dataToWrite = EACCES;
    int lockToRead = EACCES;
    int lockToWrite = EACCES;
};

void PrintTo(const Doors& doors, std::ostream* out) { *out << doors.name; }

class TrustAtTheDoors : public Trust, public testing::WithParamInterface<Doors> {
protected:
    int List(const Identity& who, const std::filesystem::path& directory)
    {
        return OpenAs(who, directory.c_str(), O_RDONLY | O_DIRECTORY);
    }
};

TEST_P(TrustAtTheDoors, EachUserOpensWhatIsTheirs)
{
    Start();
    const Doors& doors = GetParam();
    EXPECT_EQ(Netconf(doors.who), doors.netconf);
    EXPECT_EQ(Cdb(doors.who), doors.cdb);
    EXPECT_EQ(Manager(doors.who), doors.manager);
    EXPECT_EQ(List(doors.who, TheWorld().RunDir()), doors.runDirectory);
    EXPECT_EQ(List(doors.who, TheWorld().StateDir()), doors.stateDirectory);
    EXPECT_EQ(Data(doors.who, O_RDONLY), doors.dataToRead);
    EXPECT_EQ(Data(doors.who, O_RDWR), doors.dataToWrite);
    EXPECT_EQ(Lock(doors.who, O_RDONLY), doors.lockToRead);
    EXPECT_EQ(Lock(doors.who, O_RDWR), doors.lockToWrite);
}

INSTANTIATE_TEST_SUITE_P(Users, TrustAtTheDoors,
                         testing::Values(Doors{.name = "Third", .who = kThird},
                                         Doors{.name = "Operator", .who = kOperator, .netconf = 0},
                                         Doors{.name = "MemberOfTheProcesses",
                                               .who = kMember,
                                               .cdb = 0,
                                               .manager = 0,
                                               .runDirectory = 0,
                                               .stateDirectory = 0,
                                               .dataToRead = 0,
                                               .lockToRead = 0,
                                               .lockToWrite = 0},
                                         // In both groups, as its unit says.
                                         Doors{"UserOfTheProcesses", kSwitch, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                         Doors{"Root", {0, 0, {}}, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(Trust, OperatorConfiguresAndNeedsNoOtherDoor)
{
    Start();
    const auto result =
        CliAs(kOperator, "set oam sflow collector c9 ip 192.0.2.9; commit; show configuration");
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("c9"));
}

TEST_F(Trust, RootGivesFilesToTheGroups)
{
    // As root, which is in neither group.
    WorldOptions options = OtherUsers();
    options.through.clear();
    World world(options);
    ::chmod(world.Dir().c_str(), 0711);
    std::filesystem::remove(world.RunDir());
    world.StartCdbd();
    const auto stat = [](const std::filesystem::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status;
    };
    EXPECT_EQ(stat(world.RunDir()).st_mode & 07777U, 0751U);
    EXPECT_EQ(stat(world.RunDir()).st_gid, kSwitchGroup);
    EXPECT_EQ(stat(world.NetconfSocket()).st_gid, kAdminGroup);
    EXPECT_EQ(stat(world.NetconfSocket()).st_mode & 07777U, 0660U);
    EXPECT_EQ(stat(world.CdbSocket()).st_gid, kSwitchGroup);
    EXPECT_EQ(stat(world.CdbSocket()).st_mode & 07777U, 0660U);
    for (const char* name : {"", "data.mdb", "lock.mdb"})
        EXPECT_EQ(stat(world.StateDir() / name).st_gid, kSwitchGroup) << name;
    EXPECT_EQ(ConnectAs(kOperator, world.NetconfSocket().c_str()), 0);
    EXPECT_EQ(ConnectAs(kOperator, world.CdbSocket().c_str()), EACCES);
    EXPECT_EQ(ConnectAs(kMember, world.CdbSocket().c_str()), 0);
}

/// 0 if the registration is refused with a text that has all of these parts.
int RegistersAndIsRefused(const std::filesystem::path& socket, const std::vector<std::string>& parts)
{
    FrameClient peer(socket);
    ipc::cdb::ClientMessage message;
    message.mutable_hello()->set_protocol(1);
    message.mutable_hello()->set_process("impostor");
    peer.Send(message);
    message.mutable_register_callpoint()->set_name("sflow-set-sampling-rate");
    peer.Send(message);
    ipc::cdb::ServerMessage answer;
    if (!peer.Receive(answer) || !answer.has_refused()) return 1;
    for (const std::string& part : parts)
        if (answer.refused().reason().find(part) == std::string::npos) {
            std::cerr << answer.refused().reason() << std::endl;
            return 2;
        }
    return peer.AwaitEnd() ? 0 : 3;
}

class TrustByRole : public Trust {
protected:
    TrustByRole() : Trust({"--allow", "callpoint=" + std::to_string(kSwitch.uid), "--allow", "faults=0"}) {}
};

TEST_F(TrustByRole, RefusesARoleWithUserAndRemedyInAnswerAndLog)
{
    Start();
    const int result = support::AsUser(kMember, [this] {
        return RegistersAndIsRefused(TheWorld().CdbSocket(),
                                     {"uid-61106", "register a callpoint", "--allow callpoint="});
    });
    EXPECT_EQ(result, 0);
    TheWorld().AwaitLog("cdbd", "the user uid-61106 may not register a callpoint");
    // The others' work goes on, callpoint included.
    TheWorld().CliDone("set oam sflow interface eth7 sampling-rate 512; commit");
}

TEST_F(TrustByRole, RefusesFaultsOfWhomItDoesNotBelieve)
{
    Start();
    const int result = support::AsUser(kMember, [this] {
        FrameClient peer(TheWorld().CdbSocket());
        ipc::cdb::ClientMessage message;
        message.mutable_fault_report()->set_text("all is lost");
        peer.Send(message);
        ipc::cdb::ServerMessage answer;
        return peer.Receive(answer) && answer.refused().reason().find("report faults") != std::string::npos
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result, 0);
    EXPECT_THAT(TheWorld().CliDone("show system faults"), Not(HasSubstr("all is lost")));
}

TEST_F(Trust, ManagersSessionIsForTheProcessesOnly)
{
    WorldOptions options = OtherUsers();
    options.managerArguments.insert(options.managerArguments.end(), {"--allow", "session=61101"});
    World world(options);
    for (const auto& directory : {world.Dir(), world.RunDir(), world.StateDir()})
        EXPECT_EQ(::chown(directory.c_str(), kSwitch.uid, kSwitch.gid), 0);
    ::chmod(world.Dir().c_str(), 0711);
    ::chmod(world.RunDir().c_str(), 0751);
    world.StartManager();
    const int result = support::AsUser(kMember, [&world] {
        FrameClient peer(world.ManagerSocket());
        ipc::manager::ClientMessage message;
        message.mutable_hello()->set_protocol(1);
        peer.Send(message);
        ipc::manager::ServerMessage answer;
        return peer.Receive(answer) && answer.has_refused() &&
                       answer.refused().reason().find("have the session with the sFlow manager") !=
                           std::string::npos
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result, 0);
    world.AwaitLog("sflow-mgr", "the user uid-61106 may not have the session");
}

TEST_F(Trust, ConnectionsOfOneUserAreBounded)
{
    TheWorld().StartCdbd();
    const int result = support::AsUser(kMember, [this] {
        std::vector<std::unique_ptr<FrameClient>> clients;
        for (int i = 0; i < 64; ++i) clients.push_back(std::make_unique<FrameClient>(TheWorld().CdbSocket()));
        FrameClient last(TheWorld().CdbSocket());
        ipc::cdb::ServerMessage answer;
        if (!last.Receive(answer) || !answer.has_refused()) return 1;
        return answer.refused().reason().find("has 64 connections") != std::string::npos ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
    // No other user is kept out meanwhile, and those of the dead child have gone.
    EXPECT_EQ(Cdb(kSwitch), 0);
}

TEST_F(Trust, ClientThatSaysNothingIsEnded)
{
    TheWorld().StartCdbd();
    FrameClient silent(TheWorld().CdbSocket());
    EXPECT_TRUE(silent.AwaitEnd());
    TheWorld().AwaitLog("cdbd", "it has not said in time what it wants");
}

}  // namespace
}  // namespace system_tests
