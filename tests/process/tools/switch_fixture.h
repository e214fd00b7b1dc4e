// SPDX-License-Identifier: Apache-2.0
// tools/switch on directories of the test's own.

#ifndef TESTS_PROCESS_TOOLS_SWITCH_FIXTURE_H
#define TESTS_PROCESS_TOOLS_SWITCH_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/process.h"
#include "support/world.h"

class SwitchFixture : public testing::Test {
protected:
    using Words = std::vector<std::string>;

    static std::filesystem::path Tool(const std::string& name)
    {
        return support::World::Tree() / "tools" / name;
    }
    static std::filesystem::path Programs() { return support::World::Program("cdbd").parent_path(); }

    [[nodiscard]] const std::filesystem::path& Dir() const { return m_dir.Path(); }
    [[nodiscard]] std::filesystem::path RunDir() const { return Dir() / "run"; }

    [[nodiscard]] std::map<std::string, std::string> Environment() const
    {
        return {{"SFLOW_RUN_DIR", RunDir()},
                {"SFLOW_STATE_DIR", Dir() / "state"},
                {"SFLOW_LOG", ""},
                {"SFLOW_YANG_DIR", support::World::Tree() / "yang"}};
    }

    /// "tools/switch up" with the programs of this build; its output goes to files of that name.
    [[nodiscard]] std::unique_ptr<support::Process> Up(
        const std::string& name, const Words& more = {},
        std::map<std::string, std::string> environment = {}) const
    {
        environment.merge(Environment());
        support::Command command{.argv = {Tool("switch"), "up", "--bin", Programs()},
                                 .environment = std::move(environment)};
        command.argv.insert(command.argv.end(), more.begin(), more.end());
        command.output = Dir() / (name + ".out");
        command.errors = Dir() / (name + ".err");
        return std::make_unique<support::Process>(command);
    }

    [[nodiscard]] std::string Output(const std::string& name) const
    {
        return support::ReadFile(Dir() / (name + ".out"));
    }
    [[nodiscard]] std::string Errors(const std::string& name) const
    {
        return support::ReadFile(Dir() / (name + ".err"));
    }

    void AwaitReady(const std::string& name, support::Process& process) const
    {
        support::Await(name + " to be ready; it says " + Errors(name), [&] {
            if (!process.Running()) throw std::runtime_error(name + " has ended: " + Errors(name));
            return Output(name) == "ready\n";
        });
    }

    /// A switch that is ready.
    [[nodiscard]] std::unique_ptr<support::Process> Ready(const std::string& name,
                                                          const Words& more = {}) const
    {
        auto process = Up(name, more);
        AwaitReady(name, *process);
        return process;
    }

    /// The process ids of its children, by their programs' names.
    static std::map<std::string, pid_t> Children(const support::Process& process)
    {
        const std::string id = std::to_string(process.Pid());
        std::ifstream list("/proc/" + id + "/task/" + id + "/children");
        std::map<std::string, pid_t> children;
        for (pid_t child = 0; list >> child;) {
            std::string name;
            std::getline(std::ifstream("/proc/" + std::to_string(child) + "/comm") >> std::ws, name);
            children[name] = child;
        }
        return children;
    }

    /// Whether a process still does anything (a zombie does not).
    static bool Lives(pid_t process)
    {
        std::ifstream file("/proc/" + std::to_string(process) + "/stat");
        std::string line;
        if (!std::getline(file, line)) return false;
        const auto end = line.rfind(')');
        return end == std::string::npos || line.compare(end, 3, ") Z") != 0;
    }

    [[nodiscard]] support::RunResult Cli(const std::string& commands) const
    {
        return support::Run(Dir(), {support::World::Program("swcli"), "-c", commands}, Environment());
    }

private:
    support::TempDir m_dir;
};

#endif
