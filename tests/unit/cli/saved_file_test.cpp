// SPDX-License-Identifier: Apache-2.0
// Files that a person asks for.

#include "cli/data/saved_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "cli/data/error.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class SavedFile : public testing::Test {
protected:
    SavedFile()
    {
        std::string name = (fs::temp_directory_path() / "saved_file.XXXXXX").string();
        directory = ::mkdtemp(name.data());
    }
    ~SavedFile() override { fs::remove_all(directory); }

    [[nodiscard]] std::string At(const std::string& name) const { return (directory / name).string(); }

    static void Save(const std::string& path, const std::string& text)
    {
        cli::SavedFile file(path);
        file.Write(text);
        file.Place();
    }

    static std::string Content(const std::string& path)
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    static unsigned ModeOf(const std::string& path)
    {
        struct stat file {};
        return ::stat(path.c_str(), &file) == 0 ? file.st_mode & 07777U : 0;
    }

    static std::string RefusalOf(const std::string& path)
    {
        try {
            const cli::SavedFile file(path);
        } catch (const cli::Error& error) {
            return error.what();
        }
        return "no error";
    }

    [[nodiscard]] auto Files() const { return std::distance(fs::directory_iterator(directory), {}); }

    fs::path directory;
};

TEST_F(SavedFile, IsThereAsAWholeOrAsItWas)
{
    Save(At("a"), "one\n");
    {
        cli::SavedFile file(At("a"));
        file.Write("two\n");
    }
    EXPECT_EQ(Content(At("a")), "one\n");
    EXPECT_EQ(Files(), 1);
    Save(At("a"), "three\n");
    EXPECT_EQ(Content(At("a")), "three\n");
    EXPECT_EQ(Files(), 1);
}

TEST_F(SavedFile, KeepsTheModeThatAFileHas)
{
    const mode_t before = ::umask(027);
    Save(At("new"), "");
    ::umask(before);
    EXPECT_EQ(ModeOf(At("new")), 0640U);
    ASSERT_EQ(::chmod(At("new").c_str(), 0600), 0);
    Save(At("new"), "text");
    EXPECT_EQ(ModeOf(At("new")), 0600U);
}

TEST_F(SavedFile, IsWrittenBehindASymbolicLink)
{
    Save(At("target"), "old");
    fs::create_symlink("target", At("link"));
    Save(At("link"), "new");
    EXPECT_TRUE(fs::is_symlink(At("link")));
    EXPECT_EQ(Content(At("target")), "new");
}

TEST_F(SavedFile, ReplacesNoPipeNoDeviceAndNoDirectory)
{
    ASSERT_EQ(::mkfifo(At("pipe").c_str(), 0600), 0);
    EXPECT_THAT(RefusalOf(At("pipe")), HasSubstr("can't write " + At("pipe") + ": it is there and is no"));
    EXPECT_TRUE(fs::is_fifo(At("pipe")));
    fs::create_symlink("/dev/null", At("null"));
    EXPECT_THAT(RefusalOf(At("null")), HasSubstr("is no regular file"));
    EXPECT_THAT(RefusalOf(directory.string()), HasSubstr("Is a directory"));
    EXPECT_THAT(RefusalOf(At("no/such")), HasSubstr("can't write " + At("no/such") + ": No such file"));
    EXPECT_EQ(Files(), 2);
}

TEST_F(SavedFile, ThatIsNotAllThereIsRefused)
{
    cli::SavedFile file(At("a"));
    file.Write("text");
    fs::remove_all(directory);  // nothing is left to take the place of
    EXPECT_THROW(file.Place(), cli::Error);
}

}  // namespace
