// SPDX-License-Identifier: Apache-2.0
// A shell that shows events while a test goes on.

#ifndef SYSTEM_EVENT_MONITOR_H
#define SYSTEM_EVENT_MONITOR_H

#include <filesystem>
#include <optional>
#include <string>

#include "system/system_test.h"

namespace system_tests {

/// A swcli that shows events, and what it has printed.
class EventMonitor {
public:
    EventMonitor(World& world, const std::string& command) : m_output(world.Dir() / "events.txt")
    {
        std::filesystem::remove(m_output);
        support::Command start{{World::Program("swcli"), "-c", command}, world.Environment("monitor")};
        start.output = m_output;
        start.errors = world.Dir() / "monitor.errors";
        m_process.emplace(start);
    }
    std::string Await(const std::string& text)
    {
        support::Await("the line with " + text, [&] { return Text().find(text) != std::string::npos; });
        return Text();
    }
    std::string Text() const { return support::ReadFile(m_output); }
    support::Process& Process() { return *m_process; }

private:
    std::filesystem::path m_output;
    std::optional<support::Process> m_process;
};

}  // namespace system_tests

#endif
