// SPDX-License-Identifier: Apache-2.0
// sflow-mgr as a process: what it refuses to start with, and how it ends.

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "support/process.h"
#include "support/world.h"

namespace {

using support::Await;
using testing::HasSubstr;

class Program : public testing::Test {
protected:
    using Words = std::vector<std::string>;

    [[nodiscard]] std::filesystem::path RunDir() const { return m_dir.Path() / "run" / "dir"; }
    [[nodiscard]] std::filesystem::path Socket() const { return RunDir() / "manager.sock"; }

    [[nodiscard]] std::map<std::string, std::string> Environment() const
    {
        return {{"SFLOW_RUN_DIR", RunDir()}, {"SFLOW_LOG", "-"}, {"SFLOW_LOG_LEVEL", "10"}};
    }

    [[nodiscard]] support::RunResult Run(const Words& words,
                                         const std::map<std::string, std::string>& more = {})
    {
        auto environment = Environment();
        for (const auto& [name, value] : more) environment[name] = value;
        Words argv = m_before;
        argv.push_back(support::World::Program("sflow-mgr"));
        argv.insert(argv.end(), words.begin(), words.end());
        return support::Run(m_dir.Path(), argv, environment);
    }

    [[nodiscard]] std::unique_ptr<support::Process> Start(const Words& words = {})
    {
        support::Command command{.argv = {support::World::Program("sflow-mgr")},
                                 .environment = Environment()};
        command.argv.insert(command.argv.end(), words.begin(), words.end());
        command.errors = m_dir.Path() / "errors";
        auto process = std::make_unique<support::Process>(command);
        Await("sflow-mgr to listen", [&] { return support::Accepts(Socket()); });
        return process;
    }

    [[nodiscard]] std::string Errors() const { return support::ReadFile(m_dir.Path() / "errors"); }

    /// Programs that Run starts have no privileges from here on: packets can't be sampled.
    void WithoutPrivileges() { m_before = {"setpriv", "--bounding-set=-all", "--inh-caps=-all"}; }

    support::TempDir m_dir;

private:
    Words m_before;
};

TEST_F(Program, MakesItsDirectoryAndEndsNormally)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto manager = Start();
        manager->Signal(signal);
        EXPECT_EQ(0, manager->Wait());
        EXPECT_FALSE(std::filesystem::exists(Socket()));
    }
}

TEST_F(Program, StartsAgainAfterItWasKilled)
{
    Start()->Kill();
    EXPECT_TRUE(std::filesystem::exists(Socket()));
    EXPECT_EQ(0, Start()->Terminate());
}

TEST_F(Program, NamesTheManagerThatHasTheSocket)
{
    const auto first = Start();
    const auto second = Run({});
    EXPECT_EQ(1, second.status);
    EXPECT_THAT(second.errors, HasSubstr("process " + std::to_string(first->Pid())));
    EXPECT_THAT(second.errors, HasSubstr(Socket()));
    EXPECT_EQ(0, first->Terminate());
}

TEST_F(Program, SaysOnStandardErrorWhyItDoesNotStartWhereverTheLogIs)
{
    const auto log = m_dir.Path() / "log";
    WithoutPrivileges();
    const auto result = Run({"--require-sampling"}, {{"SFLOW_LOG", log}});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("--require-sampling: packets can't be sampled here"));
    EXPECT_THAT(support::ReadFile(log), HasSubstr("--require-sampling: packets can't be sampled here"));
}

TEST_F(Program, RefusesWhatItCannotDo)
{
    struct Row {
        Words words;
        std::string fault;
    };
    const std::string nowhere = m_dir.Path() / "no" / "journal";
    WithoutPrivileges();
    for (const Row& row :
         {Row{{"--require-sampling"}, "--require-sampling"}, Row{{"--journal", nowhere}, nowhere},
          Row{{"--user", "nobody-of-that-name"}, "nobody-of-that-name"},
          Row{{"--bogus"}, "no such option: --bogus"}}) {
        const auto result = Run(row.words);
        EXPECT_EQ(1, result.status) << row.fault;
        EXPECT_THAT(result.errors, HasSubstr(row.fault));
        EXPECT_FALSE(support::Accepts(Socket())) << row.fault;
    }
}

TEST_F(Program, NamesASocketThatItCannotMake)
{
    const auto result = Run({}, {{"SFLOW_RUN_DIR", "/proc/nobody/here"}});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("/proc/nobody/here"));
}

TEST_F(Program, ShowsHelpAndVersion)
{
    const auto help = Run({"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_THAT(help.output, HasSubstr("usage: sflow-mgr"));
    const auto version = Run({"--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_THAT(version.output, testing::MatchesRegex("sflow-mgr [0-9.]+\n"));
}

TEST_F(Program, BecomesTheUserOnceItsSocketIsOpen)
{
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    std::filesystem::permissions(m_dir.Path(), std::filesystem::perms::all);
    const auto journal = m_dir.Path() / "journal";
    const auto manager = Start({"--journal", journal, "--user", "nobody"});
    Await("the filter of system calls, which comes last", [&] {
        return support::ReadFile("/proc/" + std::to_string(manager->Pid()) + "/status").find("Seccomp:\t2") !=
               std::string::npos;
    });
    const auto status = support::ReadFile("/proc/" + std::to_string(manager->Pid()) + "/status");
    // CAP_NET_ADMIN (bit 12) and CAP_BPF (39), or CAP_NET_RAW (13), serve interfaces that come later, CAP_BPF
    // and CAP_PERFMON (38) a collector that wants to hear of dropped packets later.
    EXPECT_THAT(status, testing::AnyOf(HasSubstr("CapEff:\t000000c000001000"),
                                       HasSubstr("CapEff:\t000000c000003000")));
    EXPECT_THAT(status, HasSubstr("CapBnd:\t0000000000000000"));
    EXPECT_THAT(status, HasSubstr("NoNewPrivs:\t1"));
    EXPECT_THAT(status, HasSubstr("Uid:\t65534\t65534\t65534"));
    EXPECT_EQ(0, manager->Terminate());
    EXPECT_TRUE(std::filesystem::exists(journal));
}

}  // namespace
