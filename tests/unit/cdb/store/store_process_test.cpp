// SPDX-License-Identifier: Apache-2.0
// Several processes on one store: one writes, others read, and any of them may be killed.

#include <unistd.h>

#include <cstring>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"
#include "child_process.h"

namespace {

using cdb::Store;
using cdb::StoreReader;
using sample::Key;

constexpr int kRows = 20;
constexpr char kCommitted = 'c';

bool Say(int output, char word) { return write(output, &word, 1) == 1; }

std::string EntryName(int number) { return "eth" + std::to_string(number); }

/// Commits without end, each time the same number into every row, and reports each commit.
int WriteForEver(const std::filesystem::path& directory, int output)
{
    const auto store = Store::Open(directory);
    store->SetSchema(sample::Table());
    for (std::uint64_t commit = store->LastCommit() + 1;; ++commit) {
        auto transaction = store->Begin();
        for (int i = 0; i < kRows; ++i)
            transaction.Put(Key(sample::kInterface, {EntryName(i)}),
                            sample::RateRow(static_cast<std::uint32_t>(commit)));
        transaction.Append(sample::History(commit));
        if (transaction.Commit()) return 2;
        if (!Say(output, kCommitted)) return 3;
    }
}

/// Expects the rows, the number and the history of one whole commit, and returns its number.
std::uint64_t ExpectWholeCommit(const StoreReader::Snapshot& snapshot)
{
    const auto commit = snapshot.Commit();
    const auto entries = sample::ScanAll(snapshot, sample::kInterface);
    EXPECT_EQ(entries.size(), commit == 0 ? 0U : static_cast<std::size_t>(kRows));
    for (const auto& entry : entries)
        EXPECT_EQ(entry.row, sample::RateRow(static_cast<std::uint32_t>(commit)));
    return commit;
}

TEST(StoreProcesses, LeaveAWholeCommitOrNoneWhenTheWriterIsKilled)
{
    const TempDirectory directory;
    static_cast<void>(sample::Table());  // compiled here, once
    std::mt19937 random(23);
    std::uint64_t reached = 0;
    for (int round = 0; round < 15; ++round) {
        ChildProcess writer([&](int output) { return WriteForEver(directory.Path(), output); });
        // Killed after some commits, at whatever point of the next one it has come to by then.
        const int commits = std::uniform_int_distribution<int>(1, 12)(random);
        for (int i = 0; i < commits; ++i) ASSERT_EQ(writer.ReadOne(), kCommitted);
        writer.Kill();
        const auto said = static_cast<std::uint64_t>(commits) + writer.Output().size();
        ASSERT_EQ(writer.Status(), 256 + SIGKILL);

        const auto store = Store::Open(directory.Path());
        const auto commit = ExpectWholeCommit(store->Read());
        EXPECT_GE(commit, reached + said);      // what was reported is there
        EXPECT_LE(commit, reached + said + 1);  // and at most one that was not
        EXPECT_EQ(store->History(1).at(0).commit, commit);
        reached = commit;
    }
}

TEST(StoreProcesses, ReadWholeCommitsWhileOneWrites)
{
    const TempDirectory directory;
    static_cast<void>(sample::Table());
    ChildProcess writer([&](int output) { return WriteForEver(directory.Path(), output); });
    ASSERT_EQ(writer.ReadOne(), kCommitted);
    const auto reader = StoreReader::Open(directory.Path());
    EXPECT_EQ(reader->Schema(), sample::Table());
    std::uint64_t last = 0;
    for (int reports = 0; reports < 60; ++reports) {
        const auto commit = ExpectWholeCommit(reader->Read());
        EXPECT_GE(commit, last);
        last = commit;
        ASSERT_EQ(writer.ReadOne(), kCommitted);
    }
    EXPECT_GT(last, 1U);
}

TEST(StoreProcesses, KeepASecondWriterOutAndNameTheFirst)
{
    const TempDirectory directory;
    static_cast<void>(sample::Table());
    ChildProcess first([&](int output) { return WriteForEver(directory.Path(), output); });
    ASSERT_EQ(first.ReadOne(), kCommitted);
    try {
        Store::Open(directory.Path());
        ADD_FAILURE() << "a second writer was let in";
    } catch (const cdb::FatalError& error) {
        EXPECT_EQ(error.what(), "the store in " + directory.Path().string() + " is in use by process " +
                                    std::to_string(first.Id()) + "; stop that one first");
    }
    first.Kill();
    ASSERT_EQ(first.Status(), 256 + SIGKILL);
    EXPECT_GT(Store::Open(directory.Path())->LastCommit(), 0U);  // the lock died with its holder
}

TEST(StoreProcesses, KeepASecondWriterOutInTheSameProcess)
{
    const TempDirectory directory;
    const auto first = Store::Open(directory.Path());
    EXPECT_THROW(Store::Open(directory.Path()), cdb::FatalError);
    EXPECT_TRUE(first->Empty());
}

TEST(StoreProcesses, AreNotHeldUpByAReaderThatWasKilled)
{
    const TempDirectory directory;
    const auto path = directory.Path();
    static_cast<void>(sample::Table());
    {
        const auto store = Store::Open(path, {.historyLimit = 1});
        store->SetSchema(sample::Table());
    }
    ChildProcess reader([&](int output) {
        const auto opened = StoreReader::Open(path);
        const auto snapshot = opened->Read();
        Say(output, 'r');
        pause();
        return 0;
    });
    ASSERT_EQ(reader.ReadOne(), 'r');
    reader.Kill();
    ASSERT_EQ(reader.Status(), 256 + SIGKILL);

    const auto store = Store::Open(path, {.historyLimit = 1});
    std::uint64_t commit = 0;
    const auto run = [&](int count) {
        for (int i = 0; i < count; ++i) {
            auto transaction = store->Begin();
            transaction.Put(Key(sample::kInterface, {"eth1"}), sample::RateRow(1));
            transaction.Append(sample::History(++commit));
            ASSERT_EQ(transaction.Commit(), std::nullopt);
        }
    };
    run(50);
    const auto size = std::filesystem::file_size(path / "data.mdb");
    run(200);
    EXPECT_EQ(std::filesystem::file_size(path / "data.mdb"), size);  // its place was cleared
}

}  // namespace
