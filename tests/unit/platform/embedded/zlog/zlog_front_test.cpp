// SPDX-License-Identifier: Apache-2.0
#include <zlog.h>
#include <zlog_front.h>

#include "log/log_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class ZlogFrontTest : public LogFixture {
protected:
    template <typename... Args>
    void Log(int level, const char* format, Args... args)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        zlog(m_category, "src/daemon/sflow_app", 20, "Run", 3, 87, level, format, args...);
#pragma GCC diagnostic pop
    }
    zlog_category_t* m_category = zlog_front_open("sflow-app");
};

TEST_F(ZlogFrontTest, WritesOneLineACall)
{
    Log(12, "SFlow App Run");
    Log(13, "%s: rate = %d (0x%x)", "eth1", 4096, 0x10200c0);
    EXPECT_EQ(Lines(), (::Lines{"sflow-app 12 src/daemon/sflow_app:Run:87 SFlow App Run",
                                "sflow-app 13 src/daemon/sflow_app:Run:87 eth1: rate = 4096 (0x10200c0)"}));
}

TEST_F(ZlogFrontTest, WritesTextsOfAnyLengthWhole)
{
    for (const std::size_t length : {0U, 1U, 1023U, 1024U, 1025U, 100'000U}) {
        SCOPED_TRACE(length);
        std::filesystem::remove(File());
        m_category = zlog_front_open("sflow-app");
        const std::string text(length, 'k');
        Log(12, "%s", text.c_str());
        EXPECT_EQ(Lines(), (::Lines{"sflow-app 12 src/daemon/sflow_app:Run:87 " + text}));
    }
}

TEST_F(ZlogFrontTest, AnswersWhichLevelsAreWritten)
{
    ::setenv("SFLOW_LOG_LEVEL", "11", 1);
    m_category = zlog_front_open("sflow-app");
    EXPECT_EQ(zlog_level_enabled(m_category, 10), 0);
    EXPECT_NE(zlog_level_enabled(m_category, 11), 0);
    Log(10, "not written");
    EXPECT_EQ(Lines(), ::Lines{});
}

TEST_F(ZlogFrontTest, WritesNothingForNoCategory)
{
    EXPECT_EQ(zlog_level_enabled(nullptr, 13), 0);
    m_category = nullptr;
    Log(13, "not written");
    EXPECT_EQ(Lines(), ::Lines{});
}

TEST_F(ZlogFrontTest, HasOneCategory) { EXPECT_EQ(zlog_front_open("sflow-app"), m_category); }

}  // namespace
