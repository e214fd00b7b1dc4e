// SPDX-License-Identifier: Apache-2.0
// The store's directory: a new one, one whose data file is gone, and one in which a process died while it
// made it.

#include <fstream>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

namespace fs = std::filesystem;

using cdb::Store;
using testing::AllOf;
using testing::HasSubstr;

void Commit(Store& store)
{
    store.SetSchema(sample::Table());
    auto transaction = store.Begin();
    transaction.Append(sample::History(store.LastCommit() + 1));
    ASSERT_EQ(transaction.Commit(), std::nullopt);
}

std::set<std::string> FilesIn(const fs::path& directory)
{
    std::set<std::string> names;
    for (const auto& file : fs::directory_iterator(directory)) names.insert(file.path().filename());
    return names;
}

const std::set<std::string> kWhole{"data.mdb", "lock.mdb", "store.id", "writer.lock"};

class StorePlace : public testing::Test {
protected:
    StorePlace()
    {
        Commit(*Store::Open(m_directory.Path()));
        fs::copy_file(At("data.mdb"), m_elsewhere.Path() / "data.mdb");
    }

    [[nodiscard]] fs::path At(const std::string& name) const { return m_directory.Path() / name; }

    void Remove(const std::vector<std::string>& names)
    {
        for (const auto& name : names) fs::remove_all(At(name));
    }

    void ExpectLost()
    {
        const auto before = FilesIn(m_directory.Path());
        EXPECT_THAT(
            [this] { Store::Open(m_directory.Path()); },
            testing::ThrowsMessage<cdb::FatalError>(AllOf(
                HasSubstr("the store in " + m_directory.Path().string() + " has lost its file data.mdb"),
                HasSubstr("--init"), HasSubstr("--import"))));
        auto after = FilesIn(m_directory.Path());
        after.erase("writer.lock");
        EXPECT_FALSE(after.contains("data.mdb"));
        EXPECT_FALSE(after.contains("new"));
        for (const auto& name : before) EXPECT_TRUE(name == "writer.lock" || after.contains(name)) << name;
    }

    TempDirectory m_directory;
    TempDirectory m_elsewhere;
};

TEST_F(StorePlace, ThatHasLostItsDataFileIsRefused)
{
    for (const auto& gone : std::vector<std::vector<std::string>>{{"data.mdb"},
                                                                  {"data.mdb", "store.id"},
                                                                  {"data.mdb", "lock.mdb", "writer.lock"},
                                                                  {"data.mdb", "lock.mdb", "store.id"}}) {
        Commit(*Store::Open(m_directory.Path(), {.remake = true}));
        ASSERT_EQ(FilesIn(m_directory.Path()), kWhole);
        Remove(gone);
        ExpectLost();
        ExpectLost();  // being refused makes it no other one
    }
}

TEST_F(StorePlace, ThatIsEmptyOrHasOthersFilesOnlyIsNew)
{
    const TempDirectory directory;
    std::ofstream(directory.Path() / "notes.txt") << "hello";
    fs::create_directory(directory.Path() / "lost+found");
    EXPECT_TRUE(Store::Open(directory.Path())->Empty());
    Remove({"data.mdb", "lock.mdb", "writer.lock", "store.id"});
    EXPECT_TRUE(Store::Open(m_directory.Path())->Empty());
}

TEST_F(StorePlace, ThatIsLostStaysSoUntilItHasContentAgain)
{
    Remove({"data.mdb"});
    EXPECT_TRUE(Store::Open(m_directory.Path(), {.remake = true})->Empty());  // and nothing is loaded into it
    ExpectLost();
    Commit(*Store::Open(m_directory.Path(), {.remake = true}));
    EXPECT_EQ(Store::Open(m_directory.Path())->LastCommit(), 1U);
}

TEST_F(StorePlace, TakesADataFileAlone)
{
    Remove({"lock.mdb", "writer.lock", "store.id"});
    EXPECT_EQ(Store::Open(m_directory.Path())->LastCommit(), 1U);
    EXPECT_EQ(FilesIn(m_directory.Path()), kWhole);
}

// What is there after each step of making a store, where the process dies before the next one.
TEST_F(StorePlace, ComesUpAfterAProcessDiedWhileMakingIt)
{
    const struct {
        const char* name;
        std::vector<std::string> directories;
        std::vector<std::string> files;
        bool whole;  // data.mdb in place
    } table[] = {
        {"the directory is made", {}, {}, false},
        {"aside is made", {"new"}, {}, false},
        {"the lock is taken", {"new"}, {"writer.lock"}, false},
        {"the store has begun", {"new"}, {"writer.lock", "new/data.mdb", "new/lock.mdb"}, false},
        {"it is in place", {"new"}, {"writer.lock", "new/lock.mdb"}, true},
        {"it is marked", {"new"}, {"writer.lock", "new/lock.mdb", "store.id"}, true},
        {"aside is empty", {"new"}, {"writer.lock", "store.id"}, true},
        {"all is done", {}, {"writer.lock", "store.id"}, true},
    };
    for (const auto& row : table) {
        const TempDirectory directory;
        for (const auto& name : row.directories) fs::create_directory(directory.Path() / name);
        for (const auto& name : row.files) std::ofstream(directory.Path() / name) << "half a file";
        if (row.whole) fs::copy_file(m_elsewhere.Path() / "data.mdb", directory.Path() / "data.mdb");
        const auto store = Store::Open(directory.Path());
        EXPECT_EQ(store->LastCommit(), row.whole ? 1U : 0U) << row.name;
        Commit(*store);
        EXPECT_EQ(FilesIn(directory.Path()), kWhole) << row.name;
    }
}

TEST_F(StorePlace, IsCheckedWithoutBeingChanged)
{
    EXPECT_THAT([&] { Store::Check(m_elsewhere.Path() / "none"); },
                testing::ThrowsMessage<cdb::FatalError>(HasSubstr("there is no store in")));
    EXPECT_FALSE(fs::exists(m_elsewhere.Path() / "none"));
    const auto figures = Store::Check(m_directory.Path());
    EXPECT_EQ(figures.commit, 1U);
    EXPECT_EQ(figures.historyEntries, 1U);
    EXPECT_GT(figures.pages, figures.freePages);
    const auto store = Store::Open(m_directory.Path());
    EXPECT_THAT([&] { Store::Check(m_directory.Path()); },
                testing::ThrowsMessage<cdb::FatalError>(HasSubstr("is in use by process")));
}

}  // namespace
