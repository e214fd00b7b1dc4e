// SPDX-License-Identifier: Apache-2.0
// examples/ansible: its playbook on two switches, each in a network namespace of its own with an SSH server
// of its own. The collector is this test.

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/datagram_socket.h"
#include "support/network.h"
#include "system/ssh_server.h"
#include "system/system_test.h"

namespace system_tests {
namespace {

using support::Network;

const std::string kCollector = "10.0.0.1";
const std::string kAfter = "AddCollector c1 10.0.0.1 6343 1400";
const std::string kBack = "AddCollector c1 198.51.100.1 6343 1400";

// Of Debian's package.
constexpr const char* kConnection =
    "/usr/lib/python3/dist-packages/ansible_collections/ansible/netcommon/plugins/connection/netconf.py";
// A run starts some fifty interpreters, one after the other.
constexpr std::chrono::minutes kRun{8};

/// One switch, at 10.0.NUMBER.2 as the controller sees it.
class Switch {
public:
    explicit Switch(int number) : m_address("10.0." + std::to_string(number) + ".2")
    {
        const std::string ours = "to-switch-" + std::to_string(number);
        const std::string gateway = "10.0." + std::to_string(number) + ".1";
        Network::Ip("link add " + ours + " type veth peer name mgmt netns " + std::to_string(m_host.Pid()) +
                    "\nlink set " + ours + " up\naddress add " + gateway + "/24 dev " + ours + "\n");
        m_host.Within([&] {
            Network::Ip("address add " + m_address +
                        "/24 dev mgmt\nlink set mgmt up\nroute add default via " + gateway + "\n");
            m_world.Start(scenario::Usual());
        });
        m_ssh.emplace(m_world, m_address);
    }

    std::string Check() { return m_ssh->Check(); }
    void Listen()
    {
        m_host.Within([this] { m_ssh->Start(); });
    }
    World& TheWorld() { return m_world; }
    SshServer& Ssh() { return *m_ssh; }

    [[nodiscard]] std::string InInventory() const
    {
        return "{ansible_host: " + m_address + ", ansible_port: " + std::to_string(m_ssh->Port()) +
               ", ansible_user: " + SshServer::User() +
               ", ansible_private_key_file: " + m_ssh->Key().string() + "}\n";
    }

    netconf::Client Connect() { return netconf::Client::Connect(m_world.NetconfSocket()); }
    std::string Running() { return m_world.CliDone("show configuration running oam sflow collector c1"); }

private:
    Network::Host m_host;
    std::string m_address;
    World m_world;
    std::optional<SshServer> m_ssh;
};

class Fleet : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        if (const auto why = SshServer::Missing(); !why.empty()) GTEST_SKIP() << why;
        if (!std::filesystem::exists(kConnection)) GTEST_SKIP() << "the package ansible is not installed";
        m_network.emplace();
        Network::Ip("address add " + kCollector + "/32 dev lo\n");
        for (const int number : {1, 2}) {
            auto& each = m_switches.emplace_back(std::make_unique<Switch>(number));
            if (const auto why = each->Check(); !why.empty()) GTEST_SKIP() << why;
            each->Listen();
        }
        // The shipped inventory, with the addresses of here and with host keys that are new.
        std::string inventory = support::ReadFile(Playbook().parent_path() / "inventory.yml");
        const auto hosts = inventory.find("    switch-1:");
        inventory.replace(hosts, inventory.find("  vars:") - hosts,
                          "    switch-1: " + One().InInventory() + "    switch-2: " + Two().InInventory());
        const std::string user = "    ansible_user: alice\n";
        inventory.replace(inventory.find(user), user.size(), "    ansible_host_key_checking: false\n");
        support::WriteFile(m_dir.Path() / "inventory.yml", inventory);
    }

    static std::filesystem::path Playbook() { return World::Tree() / "examples/ansible/collector.yml"; }
    Switch& One() { return *m_switches.at(0); }
    Switch& Two() { return *m_switches.at(1); }

    [[nodiscard]] std::vector<std::string> Command(const std::vector<std::string>& options) const
    {
        std::vector<std::string> command{"env",
                                         "HOME=" + m_dir.Path().string(),
                                         "ANSIBLE_NOCOLOR=1",
                                         "ansible-playbook",
                                         "-i",
                                         m_dir.Path() / "inventory.yml",
                                         Playbook(),
                                         "-e",
                                         "address=" + kCollector,
                                         "-e",
                                         "confirm_within=600"};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
    RunResult Play(const std::vector<std::string>& options = {})
    {
        const auto output = m_dir.Path() / "output", errors = m_dir.Path() / "errors";
        Process ansible(
            {.argv = Command(options), .environment = {}, .output = output, .errors = errors, .input = {}});
        const auto status = ansible.Wait(kRun);
        return {status, support::ReadFile(output), support::ReadFile(errors)};
    }

    // The end of what Ansible prints says for each switch how many tasks have changed something and failed.
    static void ExpectRecap(const RunResult& result, const std::string& changed, const std::string& failed)
    {
        EXPECT_EQ(failed == "0" ? 0 : 2, result.status);
        for (const std::string name : {"switch-1", "switch-2"})
            EXPECT_THAT(result.output, testing::ContainsRegex(name + " .* changed=" + changed +
                                                              " .* failed=" + failed + " "));
    }
    void ExpectNeither()
    {
        for (const auto& each : m_switches) {
            EXPECT_THAT(each->Running(), HasSubstr("198.51.100.1"));
            auto session = each->Connect();  // no lock, and no edit, is left behind
            EXPECT_TRUE(session.Call(netconf::Lock("candidate")).ok);
        }
    }

    // What Ansible prints of a run that ends with a failure before anything is confirmed.
    std::string Fails(const std::vector<std::string>& options = {})
    {
        const auto result = Play(options);
        EXPECT_EQ(2, result.status);
        EXPECT_THAT(result.output, Not(HasSubstr("TASK [Confirm]")));
        return result.output;
    }

    support::TempDir m_dir;
    std::vector<std::unique_ptr<Switch>> m_switches;

private:
    std::optional<Network> m_network;
};

TEST_F(Fleet, AllSwitchesChangeAndASecondRunChangesNothing)
{
    support::DatagramSocket collector({.address = kCollector, .port = 6343});
    ExpectRecap(Play({"--check"}), "1", "0");
    ExpectNeither();
    const auto first = Play();
    ExpectRecap(first, "1", "0");
    for (const auto& each : m_switches)
        EXPECT_THAT(each->TheWorld().ManagerJournal().Until(kAfter), ElementsAre(kAfter)) << first.output;
    // One from each; what is sent to test it has no flow samples that come first.
    std::set<std::uint32_t> from;
    support::Await("a datagram from each switch", [&] {
        if (const auto one = collector.Receive()) from.insert(one->from);
        return from.size() == 2;
    });
    ExpectRecap(Play(), "0", "0");
    for (const auto& each : m_switches) EXPECT_THAT(each->TheWorld().ManagerJournal().Next(), ElementsAre());
}

TEST_F(Fleet, NoSwitchChangesWhereOneRefuses)
{
    auto other = Two().Connect();
    ASSERT_TRUE(other.Call(netconf::Lock("candidate")).ok);
    EXPECT_THAT(Fails(), AllOf(HasSubstr("fatal: [switch-2]"), HasSubstr("lock"),
                               HasSubstr("session " + std::to_string(other.SessionId()))));
    ASSERT_TRUE(other.Call(netconf::Unlock("candidate")).ok);
    ExpectNeither();
    EXPECT_THAT(Fails({"-e", R"({"udp_port": "{{ 0 if inventory_hostname == 'switch-2' else 6343 }}"})"}),
                AllOf(HasSubstr("fatal: [switch-2]"), HasSubstr("no value for leaf"),
                      Not(HasSubstr("fatal: [switch-1]"))));
    ExpectNeither();
    for (const auto& each : m_switches) EXPECT_THAT(each->TheWorld().ManagerJournal().Next(), ElementsAre());
}

TEST_F(Fleet, NoSwitchKeepsACollectorThatDoesNotListen)
{
    EXPECT_THAT(Fails(), HasSubstr("no program listens at that port"));
    for (const auto& each : m_switches)
        EXPECT_THAT(each->TheWorld().ManagerJournal().Until(kBack), ElementsAre(kAfter, kBack));
    ExpectNeither();
}

// Asks before each task, so that the test is between two of them.
class Stepwise {
public:
    Stepwise(const std::vector<std::string>& command, const std::filesystem::path& dir)
        : m_output(dir / "steps")
    {
        const auto input = dir / "answers";
        if (mkfifo(input.c_str(), 0600) != 0) throw std::runtime_error("no pipe");
        m_input.open(input, std::ios::in | std::ios::out);  // both ends, so that opening waits for no other
        m_process.emplace(support::Command{.argv = command,
                                           .environment = {},
                                           .output = m_output,
                                           .errors = dir / "step-errors",
                                           .input = input});
    }
    /// Has the tasks done up to this one, which is asked about.
    void Before(const std::string& task)
    {
        while (!Asked("TASK: " + task + " (N)")) {
            m_input << "y" << std::endl;
            ++m_answered;
        }
    }
    support::ExitStatus Finish()
    {
        m_input << "c" << std::endl;
        return m_process->Wait(kRun);
    }
    [[nodiscard]] std::string Output() const { return support::ReadFile(m_output); }

private:
    // Waits for the next question.
    bool Asked(const std::string& what)
    {
        const std::string question = "(N)o/(y)es/(c)ontinue: ";
        std::string output;
        std::size_t at = 0;
        support::Await(
            "a question",
            [&] {
                output = Output();
                at = 0;
                // What is answered stands there twice.
                for (int each = 0; each < 2 * m_answered && at != std::string::npos; ++each)
                    at = output.find(question, at == 0 ? 0 : at + 1);
                return at != std::string::npos && (at = output.find(question, at + 1)) != std::string::npos;
            },
            kRun);
        return output.find(what, m_answered == 0 ? 0 : output.rfind('\n', at)) != std::string::npos;
    }

    std::filesystem::path m_output;
    std::fstream m_input;
    std::optional<Process> m_process;
    int m_answered = 0;
};

TEST_F(Fleet, SwitchThatGoesAwayUnconfirmedRollsBackAndSoDoAllOthers)
{
    const support::DatagramSocket collector({.address = kCollector, .port = 6343});
    Stepwise steps(Command({"--step"}), m_dir.Path());
    steps.Before("Confirm");
    for (const auto& each : m_switches) EXPECT_THAT(each->Running(), HasSubstr(kCollector));
    Two().TheWorld().Cdbd().Kill();
    EXPECT_EQ(2, steps.Finish());
    EXPECT_THAT(steps.Output(), HasSubstr("not confirmed by switch-2; no switch keeps the change"));
    Two().TheWorld().StartCdbd();
    ExpectNeither();
    EXPECT_THAT(One().TheWorld().CliDone("show history"), HasSubstr("not confirmed by"));
    for (const auto& each : m_switches)
        EXPECT_THAT(each->TheWorld().ManagerJournal().Until(kBack), testing::Contains(kAfter));
}

}  // namespace
}  // namespace system_tests
