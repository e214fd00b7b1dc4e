// SPDX-License-Identifier: Apache-2.0
// What a test and the library preloaded into the process under test share: a file that both map. See
// write_faults.h.

#ifndef SUPPORT_WRITE_FAULTS_BLOCK_H
#define SUPPORT_WRITE_FAULTS_BLOCK_H

#include <array>
#include <atomic>
#include <cstdint>

namespace support {

/// Names the file, for the library.
inline constexpr char kWriteFaultsVariable[] = "WRITE_FAULTS";

/// What becomes of a call.
enum class WriteOutcome : std::uint32_t {
    kDone,            // as if the library were not there
    kEndAfter,        // it is carried out, and the process ends
    kEndInTheMiddle,  // half of its bytes are written, and the process ends
    kFail,            // it is not carried out and fails
    kFailAfterwards,  // it is carried out and fails all the same, as where the disk fails after the cache
                      // took it
    kShort,           // half of its bytes are written, and it says so
};

struct WriteFaultsBlock {
    std::atomic<bool> armed;  // calls count while it is
    std::atomic<std::uint32_t> calls;
    std::atomic<std::uint32_t> first;  // the call that it is about, counted from 1
    std::atomic<bool> lasting;         // the later ones too
    std::atomic<WriteOutcome> outcome;
    std::atomic<int> error;
    std::array<char, 256> directory;  // the calls that count are about files in it
};
static_assert(std::atomic<WriteOutcome>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

}  // namespace support

#endif
