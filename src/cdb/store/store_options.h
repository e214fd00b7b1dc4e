// SPDX-License-Identifier: Apache-2.0
// How a store is opened, and its figures.

#ifndef CDB_STORE_STORE_OPTIONS_H
#define CDB_STORE_STORE_OPTIONS_H

#include <cstddef>
#include <cstdint>

namespace cdb {

struct StoreOptions {
    std::size_t mapSize = std::size_t{1} << 30;        // the store's largest size in bytes; only reserved
    std::size_t historyLimit = 500;                    // commits
    std::size_t historyBytes = std::size_t{64} << 20;  // of payload; at most a quarter of mapSize
    std::uint32_t historyDays = 0;                     // older commits are dropped; 0: none for its age
    std::size_t checkpointLimit = 100;
    std::size_t faultLimit = 1000;
    bool remake = false;  // makes an empty store if one has lost its data file, instead of refusing it
};

/// The content and the sizes of a store.
struct StoreFigures {
    std::uint64_t commit = 0;
    std::uint64_t rows = 0;
    std::uint64_t historyEntries = 0;
    std::uint64_t historyBytes = 0;
    std::uint64_t faults = 0;
    std::uint64_t pageSize = 0;
    std::uint64_t pages = 0;  // of the file
    std::uint64_t freePages = 0;
    std::uint64_t mapSize = 0;
};

/// What a store takes, as can be told at any time at little cost.
struct StoreSize {
    std::uint64_t commit = 0;  // the last one
    std::uint64_t bytes = 0;   // of the file
    std::uint64_t limit = 0;   // of the file
    std::uint64_t historyEntries = 0;
    std::uint64_t historyBytes = 0;
};

}  // namespace cdb

#endif
