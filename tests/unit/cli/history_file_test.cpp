// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/history_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HistoryFileTest : public testing::Test {
protected:
    HistoryFileTest()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "historyXXXXXX").string();
        dir = ::mkdtemp(pattern.data());
        path = (dir / "history").string();
    }
    ~HistoryFileTest() override { std::filesystem::remove_all(dir); }

    [[nodiscard]] unsigned Mode() const
    {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0U;
    }

    std::filesystem::path dir;
    std::string path;
};

TEST_F(HistoryFileTest, KeepsLinesForItsUserAlone)
{
    const cli::HistoryFile file(path);
    EXPECT_THAT(file.Read(), IsEmpty());
    file.Add("show sflow");
    cli::HistoryFile(path).Add("set oam \xc3\xa9");
    EXPECT_THAT(file.Read(), ElementsAre("show sflow", "set oam \xc3\xa9"));
    EXPECT_EQ(Mode(), 0600U);
    ::chmod(path.c_str(), 0644);
    file.Add("exit");
    EXPECT_EQ(Mode(), 0600U);
}

TEST_F(HistoryFileTest, IsBounded)
{
    const cli::HistoryFile file(path);
    constexpr std::size_t kMost = cli::HistoryFile::kMostLines;
    {
        std::ofstream text(path);
        for (std::size_t i = 0; i <= 2 * kMost; ++i) text << "line " << i << '\n';
    }
    const auto lines = file.Read();
    EXPECT_EQ(lines.size(), kMost);
    EXPECT_EQ(lines.back(), "line 2000");
    EXPECT_EQ(std::filesystem::file_size(path), [&] {
        std::size_t size = 0;
        for (const std::string& line : lines) size += line.size() + 1;
        return size;
    }());
    EXPECT_EQ(Mode(), 0600U);
    {
        std::ofstream text(path);
        for (int i = 0; i < 3; ++i) text << std::string(std::size_t{1} << 20, 'x') << '\n';
        text << "last\n";
    }
    EXPECT_THAT(file.Read(), ElementsAre("last"));
}

TEST_F(HistoryFileTest, DoesWithoutAFileThatCantBeHad)
{
    const cli::HistoryFile none("");
    none.Add("x");
    EXPECT_THAT(none.Read(), IsEmpty());
    const cli::HistoryFile away((dir / "no" / "history").string());
    away.Add("x");
    EXPECT_THAT(away.Read(), IsEmpty());
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const cli::HistoryFile pipe(path);
    pipe.Add("x");
    EXPECT_THAT(pipe.Read(), IsEmpty());
    const std::string target = (dir / "target").string();
    const std::string link = (dir / "link").string();
    std::filesystem::create_symlink(target, link);
    cli::HistoryFile(link).Add("x");
    EXPECT_FALSE(std::filesystem::exists(target));
}

}  // namespace
