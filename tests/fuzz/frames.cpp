// SPDX-License-Identifier: Apache-2.0
// Any bytes, in pieces of any size, into the reader of frames. The first byte of the input is the size of
// the pieces. However they are cut, the frames must be those that the whole gives.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/frame_impl.h"

namespace {

struct Outcome {
    std::vector<std::string> frames;
    bool oversized = false;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

Outcome Read(std::string_view bytes, std::size_t piece)
{
    Outcome outcome;
    ipc::FrameReader reader;
    while (!bytes.empty() && !outcome.oversized) {
        const std::size_t taken = std::min({piece, bytes.size(), reader.FreeSize()});
        if (taken == 0) std::abort();  // no room: a receiver would wait for ever
        std::memcpy(reader.FreeSpace(), bytes.data(), taken);
        reader.Received(taken);
        bytes.remove_prefix(taken);
        while (const auto frame = reader.Next()) outcome.frames.emplace_back(*frame);
        outcome.oversized = reader.Oversized();
        if (!outcome.oversized) reader.MakeRoom();
    }
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::size_t piece = std::size_t{data[0]} + 1;
    if (Read(bytes, piece) != Read(bytes, bytes.size() + 1)) std::abort();
    return 0;
}
