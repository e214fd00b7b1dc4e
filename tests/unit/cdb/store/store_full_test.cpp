// SPDX-License-Identifier: Apache-2.0
// No space: the commit is refused, and everything is as before.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"
#include "child_process.h"

namespace {

using cdb::Store;
using sample::Key;
using testing::HasSubstr;

constexpr std::size_t kMiB = std::size_t{1} << 20;

/// Commits ever more interfaces until one is refused; its error.
std::optional<cdb::Error> FillUp(Store& store, std::uint64_t& lastGood)
{
    for (std::uint64_t commit = store.LastCommit() + 1; commit < 100; ++commit) {
        auto transaction = store.Begin();
        for (int i = 0; i < 1000; ++i)
            transaction.Put(
                Key(sample::kInterface, {"commit-" + std::to_string(commit) + '-' + std::to_string(i)}),
                sample::RateRow(1));
        transaction.Append(sample::History(commit));
        if (auto error = transaction.Commit()) return error;
        lastGood = commit;
    }
    return std::nullopt;
}

/// What is wrong with the store after it was full; empty: nothing.
std::string WrongWith(Store& store, const std::optional<cdb::Error>& error, std::uint64_t lastGood)
{
    if (!error) return "it was never full";
    if (error->tag != cdb::ErrorTag::kResourceDenied) return "another error: " + error->message;
    if (error->message.find("is full") == std::string::npos)
        return "the message does not say so: " + error->message;
    if (store.LastCommit() != lastGood) return "the last commit's number has changed";
    if (store.History(1).at(0).commit != lastGood) return "the history has changed";
    const auto rows = store.Read().Count(sample::Node(sample::kInterface), {});
    if (rows != lastGood * 1000) return "rows have changed";
    return {};
}

TEST(StoreFull, RefusesACommitThatDoesNotFitTheMap)
{
    const TempDirectory directory;
    const auto store = Store::Open(directory.Path(), {.mapSize = kMiB});
    store->SetSchema(sample::Table());
    std::uint64_t lastGood = 0;
    const auto error = FillUp(*store, lastGood);
    EXPECT_EQ(WrongWith(*store, error, lastGood), "");
    EXPECT_GT(lastGood, 0U);
    EXPECT_THAT(error->message,
                HasSubstr("the commit failed: the store in " + directory.Path().string() + " is full"));
}

/// Changes all rows of 1,000 interfaces, with what undoes that.
std::optional<cdb::Error> ReplaceAll(Store& store)
{
    const auto commit = store.LastCommit() + 1;
    const auto row = [](std::uint64_t number) {
        return cdb::Row{{{"default-sampling-rate", static_cast<std::uint32_t>(number)},
                         {"polling-interval", static_cast<std::uint16_t>(number)},
                         {"sampling-rate", static_cast<std::uint32_t>(number)}}};
    };
    cdb::HistoryEntry entry = sample::History(commit);
    entry.undo.clear();
    auto transaction = store.Begin(commit - 1);
    for (int i = 0; i < 1000; ++i) {
        const auto key = Key(sample::kInterface, {"gigabit-ethernet-1/1/" + std::to_string(i)});
        transaction.Put(key, row(commit));
        entry.undoRows.push_back({store.StoredKey(key), row(commit - 1)});
    }
    transaction.Append(entry);
    return transaction.Commit();
}

TEST(StoreFull, TakesAnyNumberOfBulkChangesInASmallMap)
{
    const TempDirectory directory;
    const auto store = Store::Open(directory.Path(), {.mapSize = 16 * kMiB});
    store->SetSchema(sample::Table());
    for (int round = 0; round < 200; ++round) {
        const auto error = ReplaceAll(*store);
        ASSERT_FALSE(error) << round << ": " << error->message;
    }
    EXPECT_EQ(store->LastCommit(), 200U);
    EXPECT_EQ(store->HistoryUndo(200).value().undoRows.size(), 1000U);
    EXPECT_GT(store->History(1000).size(), 20U);
}

TEST(StoreFull, GoesOnWhenThereIsSpaceAgain)
{
    const TempDirectory directory;
    std::uint64_t lastGood = 0;
    {
        const auto store = Store::Open(directory.Path(), {.mapSize = kMiB});
        store->SetSchema(sample::Table());
        ASSERT_TRUE(FillUp(*store, lastGood));
    }
    const auto store = Store::Open(directory.Path(), {.mapSize = 4 * kMiB});
    const auto before = lastGood;
    const auto error = FillUp(*store, lastGood);
    EXPECT_EQ(WrongWith(*store, error, lastGood), "");
    EXPECT_GT(lastGood, before);
}

/// Runs the filling in a process of its own, after `prepare`; what that found wrong.
std::string FillInChild(const std::filesystem::path& directory, const std::function<std::string()>& prepare)
{
    static_cast<void>(sample::Table());  // compiled here, once
    ChildProcess child([&](int output) {
        std::string verdict = prepare();
        if (verdict.empty()) {
            const auto store = Store::Open(directory);
            store->SetSchema(sample::Table());
            std::uint64_t lastGood = 0;
            const auto error = FillUp(*store, lastGood);
            verdict = WrongWith(*store, error, lastGood);
        }
        return write(output, verdict.data(), verdict.size()) == static_cast<ssize_t>(verdict.size()) ? 0 : 1;
    });
    std::string verdict = child.Output();
    EXPECT_EQ(child.Status(), 0);
    return verdict;
}

// The history may have a quarter of 1 GiB, and the file only 8 MiB.
TEST(StoreFull, DropsHistoryWhereTheDiskIsFull)
{
    const TempDirectory directory;
    static_cast<void>(sample::Table());
    ChildProcess child([&](int output) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{8 * kMiB, 8 * kMiB};
        std::string verdict = setrlimit(RLIMIT_FSIZE, &limit) == 0 ? "" : "setrlimit failed";
        const auto store = Store::Open(directory.Path());
        store->SetSchema(sample::Table());
        std::size_t fewest = 1000;
        for (int round = 0; round < 150 && verdict.empty(); ++round) {
            if (const auto error = ReplaceAll(*store))
                verdict = std::to_string(round) + ": " + error->message;
            if (round > 100) fewest = std::min(fewest, store->History(1000).size());
        }
        if (verdict.empty() && store->LastCommit() != 150) verdict = "the last commit is another one";
        if (verdict.empty() && fewest < 10) verdict = "too much of the history went";
        if (verdict.empty() && store->History(1000).size() == 150) verdict = "nothing went";
        return write(output, verdict.data(), verdict.size()) == static_cast<ssize_t>(verdict.size()) ? 0 : 1;
    });
    EXPECT_EQ(child.Output(), "");
    EXPECT_EQ(child.Status(), 0);
    EXPECT_EQ(Store::Check(directory.Path()).commit, 150U);
}

TEST(StoreFull, RefusesACommitBeyondTheLargestFile)
{
    const TempDirectory directory;
    EXPECT_EQ(FillInChild(directory.Path(),
                          []() -> std::string {
                              std::signal(SIGXFSZ, SIG_IGN);
                              const rlimit limit{kMiB, kMiB};
                              return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? "" : "setrlimit failed";
                          }),
              "");
    EXPECT_GT(Store::Open(directory.Path())->LastCommit(), 0U);
}

bool WriteFile(const char* path, const std::string& text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    return written;
}

/// Puts a file system of 1 MiB at the directory, in a mount namespace of this process's own.
std::string MountSmall(const std::filesystem::path& directory)
{
    const std::string user = "0 " + std::to_string(geteuid()) + " 1";
    const std::string group = "0 " + std::to_string(getegid()) + " 1";
    const auto failed = [](const char* what) {
        return std::string("no namespace: ") + what + ": " + std::strerror(errno);
    };
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return failed("unshare");
    if (!WriteFile("/proc/self/setgroups", "deny") || !WriteFile("/proc/self/uid_map", user) ||
        !WriteFile("/proc/self/gid_map", group))
        return failed("id maps");
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return failed("private mounts");
    if (mount("none", directory.c_str(), "tmpfs", 0, "size=1m") != 0) return failed("tmpfs");
    return {};
}

TEST(StoreFull, RefusesACommitOnAFullDisk)
{
    const TempDirectory directory;
    const std::string verdict = FillInChild(directory.Path(), [&] { return MountSmall(directory.Path()); });
    if (verdict.starts_with("no namespace")) GTEST_SKIP() << verdict;
    EXPECT_EQ(verdict, "");
}

TEST(StoreFull, MakesNoStoreWhereThereIsNoSpaceForOne)
{
    const TempDirectory directory;
    static_cast<void>(sample::Table());
    ChildProcess child([&](int output) {
        std::signal(SIGXFSZ, SIG_IGN);
        constexpr rlim_t kTooSmall = 4096;
        const rlimit limit{kTooSmall, kTooSmall};
        setrlimit(RLIMIT_FSIZE, &limit);
        try {
            Store::Open(directory.Path());
        } catch (const cdb::FatalError& error) {
            return write(output, error.what(), std::strlen(error.what())) > 0 ? 0 : 1;
        }
        return 2;
    });
    EXPECT_THAT(child.Output(), HasSubstr("a store can't be made in " + directory.Path().string()));
    EXPECT_EQ(child.Status(), 0);
    EXPECT_FALSE(std::filesystem::exists(directory.Path() / "data.mdb"));
    EXPECT_TRUE(Store::Open(directory.Path())->Empty());  // and there is nothing in the way of the next one
}

}  // namespace
