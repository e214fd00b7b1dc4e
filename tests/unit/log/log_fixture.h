// SPDX-License-Identifier: Apache-2.0
// A log file of its own for each test, and the environment that names it.

#ifndef TESTS_UNIT_LOG_LOG_FIXTURE_H
#define TESTS_UNIT_LOG_LOG_FIXTURE_H

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

class LogFixture : public testing::Test {
protected:
    LogFixture()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "log-test-XXXXXX").string();
        m_directory = ::mkdtemp(pattern.data());
        ::setenv("SFLOW_LOG", File().c_str(), 1);
        ::unsetenv("SFLOW_LOG_LEVEL");
    }
    ~LogFixture() override
    {
        ::unsetenv("SFLOW_LOG");
        ::unsetenv("SFLOW_LOG_LEVEL");
        std::filesystem::remove_all(m_directory);
    }

    [[nodiscard]] std::string File() const { return m_directory / "log"; }

    /// The lines of the file with their time stamps, which must be well-formed, cut off.
    [[nodiscard]] std::vector<std::string> Lines() const
    {
        static const std::regex stamp(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z )");
        constexpr std::size_t kStampLength = 28;
        std::vector<std::string> lines;
        std::ifstream file(File());
        for (std::string line; std::getline(file, line);) {
            const std::string head = line.substr(0, kStampLength);
            EXPECT_TRUE(std::regex_match(head, stamp)) << head;
            lines.push_back(line.substr(head.size()));
        }
        return lines;
    }

    std::filesystem::path m_directory;
};

#endif
