// SPDX-License-Identifier: Apache-2.0
// A store that is damaged, foreign or newer is refused with a reason, and left as it is.

#include <lmdb.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/rows/codec.h"
#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

namespace fs = std::filesystem;

using cdb::Store;
using sample::Key;
using testing::HasSubstr;

constexpr std::size_t kPage = 4096;
constexpr int kInterfaces = 400;

std::string Content(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Overwrite(const fs::path& file, const std::string& content)
{
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

std::string InterfaceName(int number) { return "interface-" + std::to_string(number); }

/// The content of a file that holds interfaces over many pages, and free pages too.
std::string SoundFile()
{
    const TempDirectory directory;
    const auto store = Store::Open(directory.Path());
    store->SetSchema(sample::Table());
    for (std::uint64_t commit = 1; commit <= 3; ++commit) {
        auto transaction = store->Begin();
        for (int i = 0; i < kInterfaces; ++i)
            transaction.Put(Key(sample::kInterface, {InterfaceName(i)}),
                            sample::RateRow(static_cast<std::uint32_t>(i)));
        transaction.Append(sample::History(commit));
        EXPECT_EQ(transaction.Commit(), std::nullopt);
    }
    EXPECT_EQ(store->AddFaults({cdb::Fault{}}), std::nullopt);
    return Content(directory.Path() / "data.mdb");
}

const std::string& SoundContent()
{
    static const std::string content = SoundFile();
    return content;
}

/// What opening a directory with that data file says; empty if it opens.
std::string ComplaintOfStore(const fs::path& directory)
{
    try {
        Store::Open(directory);
    } catch (const cdb::FatalError& error) {
        return error.what();
    }
    return {};
}

struct Damage {
    const char* name;
    std::function<std::string(std::string)> apply;
    std::string complaint;
};

TEST(StoreDamage, IsRefusedWithAReasonAndLeftAsItIs)
{
    const std::vector<Damage> table = {
        {"empty", [](std::string) { return std::string(); }, "damaged or no database"},
        {"text", [](std::string) { return std::string(100000, 'x'); }, "damaged or no database"},
        {"a few bytes", [](std::string) { return std::string("hello\n"); }, "damaged or no database"},
        {"the first page only", [](std::string file) { return file.substr(0, kPage); }, "damaged"},
        {"cut in the middle", [](std::string file) { return file.substr(0, file.size() / 2); }, "is damaged"},
        {"zeros over the first pages",
         [](std::string file) { return file.replace(0, 2 * kPage, 2 * kPage, '\0'); },
         "damaged or no database"},
        {"zeros after the first pages",
         [](std::string file) { return file.replace(2 * kPage, file.size(), file.size() - 2 * kPage, '\0'); },
         "is not a store of this program"},
        {"a byte of a row changed",
         [](std::string file) {
             // Every copy of it, the free pages' included.
             for (auto at = file.find("sampling-rate"); at != std::string::npos;
                  at = file.find("sampling-rate", at))
                 file[at] = 'S';
             return file;
         },
         "has changed since it was written; restore the directory from a copy"},
    };
    for (const auto& row : table) {
        const TempDirectory directory;
        const auto file = directory.Path() / "data.mdb";
        const std::string content = row.apply(SoundContent());
        Overwrite(file, content);
        EXPECT_THAT(ComplaintOfStore(directory.Path()), HasSubstr(row.complaint)) << row.name;
        EXPECT_THAT(ComplaintOfStore(directory.Path()), HasSubstr(directory.Path().string())) << row.name;
        EXPECT_TRUE(Content(file) == content) << row.name << ": the file has been changed";
    }
}

TEST(StoreDamage, NamesTheRow)
{
    const TempDirectory directory;
    std::string content = SoundContent();
    // A value follows its key: the name's NUL, the head, then the payload with the leaf's name.
    const std::string key = InterfaceName(77) + '\0';
    for (auto at = content.find(key); at != std::string::npos; at = content.find(key, at + 1))
        content[at + key.size() + 10] = '?';
    Overwrite(directory.Path() / "data.mdb", content);
    EXPECT_THAT(
        ComplaintOfStore(directory.Path()),
        HasSubstr("is damaged: its row /config/oam/sflow/interface{interface-77} has changed since it was "
                  "written"));
}

// What undoes a commit is not read at the start, for it may be long; its damage is reported when it is read.
TEST(StoreDamage, OfAnUndoIsSeenByThoseWhoNeedIt)
{
    const TempDirectory directory;
    const auto file = directory.Path() / "data.mdb";
    {
        const auto store = Store::Open(directory.Path());
        store->SetSchema(sample::Table());
        for (std::uint64_t commit = 1; commit <= 2; ++commit) {
            auto transaction = store->Begin();
            transaction.Append({commit, 0, "", "", "", std::string(20'000, static_cast<char>('a' + commit))});
            ASSERT_EQ(transaction.Commit(), std::nullopt);
        }
    }
    std::string content = Content(file);
    // Wherever it stands: a page that is in use no more may have it too.
    const std::string part(1000, 'b');
    for (auto at = content.find(part); at != std::string::npos; at = content.find(part, at + 1000))
        content[at + 500] = 'x';
    Overwrite(file, content);
    {
        const auto store = Store::Open(directory.Path());
        EXPECT_EQ(store->History(5).size(), 2U);
        EXPECT_EQ(store->HistoryUndo(2).value().undo, std::string(20'000, 'c'));
        const auto found = store->HistoryUndo(1);
        ASSERT_FALSE(found.has_value());
        EXPECT_THAT(found.error().message, HasSubstr("what undoes commit 1 can't be read"));
    }
    EXPECT_THAT([&] { Store::Check(directory.Path()); },
                testing::ThrowsMessage<cdb::FatalError>(HasSubstr("has changed since it was written")));
}

// The head of a value's page says how many pages come free when the value goes.
TEST(StoreDamage, OfAnUndosPageIsRefused)
{
    const TempDirectory directory;
    const auto file = directory.Path() / "data.mdb";
    {
        const auto store = Store::Open(directory.Path());
        auto transaction = store->Begin();
        transaction.Append({1, 0, "", "", "", std::string(20'000, 'a')});
        ASSERT_EQ(transaction.Commit(), std::nullopt);
    }
    std::string content = Content(file);
    const auto page = content.find(std::string(4000, 'a')) / kPage * kPage;
    for (const std::size_t at : {std::size_t{0}, std::size_t{10}, std::size_t{12}}) {
        std::string damaged = content;
        damaged[page + at] = static_cast<char>(damaged[page + at] + 7);
        Overwrite(file, damaged);
        EXPECT_THAT(ComplaintOfStore(directory.Path()),
                    HasSubstr("is damaged: a page of its undo of commit 1 has another head"))
            << at;
    }
    Overwrite(file, content);
    EXPECT_EQ(ComplaintOfStore(directory.Path()), "");
}

/// Changes the store's own records with LMDB itself.
void Change(const fs::path& directory, const std::string& key, const std::optional<std::string>& value)
{
    MDB_env* environment = nullptr;
    MDB_txn* transaction = nullptr;
    MDB_dbi meta = 0;
    MDB_val name{key.size(), const_cast<char*>(key.data())};
    ASSERT_EQ(mdb_env_create(&environment), 0);
    ASSERT_EQ(mdb_env_set_maxdbs(environment, 8), 0);
    ASSERT_EQ(mdb_env_open(environment, directory.c_str(), 0, 0600), 0);
    ASSERT_EQ(mdb_txn_begin(environment, nullptr, 0, &transaction), 0);
    ASSERT_EQ(mdb_dbi_open(transaction, "meta", MDB_CREATE, &meta), 0);
    if (value) {
        MDB_val content{value->size(), const_cast<char*>(value->data())};
        ASSERT_EQ(mdb_put(transaction, meta, &name, &content, 0), 0);
    } else {
        ASSERT_EQ(mdb_del(transaction, meta, &name, nullptr), 0);
    }
    ASSERT_EQ(mdb_txn_commit(transaction), 0);
    mdb_env_close(environment);
}

TEST(StoreDamage, OfItsOwnRecordsIsRefusedByWriterAndReader)
{
    namespace codec = cdb::codec;
    const std::string damagedSchema = codec::Seal("schema", "\xff\xff\xff");
    const struct {
        const char* name;
        std::string key;
        std::optional<std::string> value;
        std::string complaint;
    } table[] = {
        {"a newer format", "format", codec::FormatMark(2),
         "has the format 2, but this program knows the format 1 only; use the version that wrote it"},
        {"another program's", "format", "version 1", "is not a store of this program"},
        {"no format", "format", std::nullopt, "is not a store of this program"},
        {"no schema", "schema", std::nullopt, "is damaged: its schema can't be read"},
        {"an unreadable schema", "schema", damagedSchema, "is damaged: its schema can't be read"},
        {"a damaged schema", "schema", std::string("\1abcdefgh"),
         "is damaged: its record \"schema\" can't be read"},
    };
    for (const auto& row : table) {
        const TempDirectory directory;
        Overwrite(directory.Path() / "data.mdb", SoundContent());
        Change(directory.Path(), row.key, row.value);
        const std::string content = Content(directory.Path() / "data.mdb");
        EXPECT_THAT(ComplaintOfStore(directory.Path()), HasSubstr(row.complaint)) << row.name;
        try {
            cdb::StoreReader::Open(directory.Path());
            ADD_FAILURE() << row.name << " was read";
        } catch (const cdb::FatalError& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.complaint)) << row.name;
        }
        EXPECT_TRUE(Content(directory.Path() / "data.mdb") == content)
            << row.name << ": the file has been changed";
    }
}

TEST(StoreDamage, OfAForeignDatabaseIsRefused)
{
    const TempDirectory directory;
    Change(directory.Path(), "their key", "their value");
    EXPECT_THAT(ComplaintOfStore(directory.Path()),
                HasSubstr("is not a store of this program; move it away or name another directory"));
}

/// Everything that a reader could see of the sound file, or why not.
std::string Verdict(const fs::path& directory)
{
    std::unique_ptr<Store> store;
    try {
        store = Store::Open(directory);
    } catch (const cdb::FatalError& error) {
        return "refused";
    }
    const auto snapshot = store->Read();
    if (snapshot.Count(sample::Node(sample::kInterface), {}) != kInterfaces) return "rows are missing";
    for (int i = 0; i < kInterfaces; ++i)
        if (snapshot.Get(Key(sample::kInterface, {InterfaceName(i)})) !=
            sample::RateRow(static_cast<std::uint32_t>(i)))
            return "a row is wrong";
    return "sound";
}

// Any page overwritten with any bytes: the store is refused, or the page was a free one and everything is
// there. No process dies of it, and no wrong row is read.
TEST(StoreDamage, OfAnyPageIsSeenOrHarmless)
{
    std::mt19937 random(17);
    std::uniform_int_distribution<int> byte(0, 255);
    const TempDirectory directory;
    const auto file = directory.Path() / "data.mdb";
    int refused = 0;
    for (std::size_t page = 0; page < SoundContent().size() / kPage; ++page)
        for (int kind = 0; kind < 3; ++kind) {
            std::string content = SoundContent();
            const auto at = page * kPage;
            if (kind == 0)
                for (std::size_t i = 0; i < kPage; ++i) content[at + i] = static_cast<char>(byte(random));
            if (kind == 1) content.replace(at, kPage, kPage, '\0');
            if (kind == 2) content.replace(at, kPage, content.substr((page * 7 + 3) % 20 * kPage, kPage));
            Overwrite(file, content);
            const std::string verdict = Verdict(directory.Path());
            if (verdict == "refused") ++refused;
            EXPECT_TRUE(verdict == "refused" || verdict == "sound")
                << "page " << page << ", kind " << kind << ": " << verdict;
        }
    EXPECT_GT(refused, 20);
}

}  // namespace
