// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/writer.h"

#include <algorithm>

#include "log/log.h"

namespace cdb {
namespace {

constexpr int kRounds = 4;                 // of making room: a sixteenth of the history is left after them
constexpr std::size_t kShareOfTheMap = 4;  // the history takes at most this fraction of the map
constexpr std::int64_t kDayUs = std::int64_t{86'400} * 1'000'000;

}  // namespace

Error SlotTaken(const std::string& what)
{
    return {.tag = ErrorTag::kInUse,
            .message = what + " failed: another write to the store is under way; try again"};
}

StoreWriter::StoreWriter(std::shared_ptr<Environment> environment, const StoreOptions& options)
    : m_environment(std::move(environment)),
      m_limits{.entries = options.historyLimit,
               .bytes = std::min(options.historyBytes, options.mapSize / kShareOfTheMap),
               .ageUs = options.historyDays * kDayUs}
{
}

std::optional<Error> StoreWriter::Do(const std::string& what, const Apply& apply)
{
    for (int round = 0;; ++round) {
        WriteTransaction write(*m_environment, what);
        apply(write);
        auto error = write.Commit();
        if (!write.Full() || round == kRounds || !MakeRoom()) return error;
    }
}

bool StoreWriter::MakeRoom()
{
    std::size_t dropped = 0;
    // LMDB reuses the pages that a transaction has freed only in the next transaction but one; the second
    // write here serves only that.
    for (const bool drop : {true, false}) {
        WriteTransaction write(*m_environment, "making room");
        if (drop) dropped = history::DropHalf(write, *m_environment);
        if (drop && dropped == 0) return false;
        if (!drop) history::WriteAgain(write, *m_environment);
        if (write.Commit()) return false;
    }
    slog::Notice("the store in {} is full: the oldest {} commits of its history were dropped",
                 m_environment->Directory().string(), dropped);
    return true;
}

}  // namespace cdb
