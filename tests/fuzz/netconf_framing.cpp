// SPDX-License-Identifier: Apache-2.0
// Any bytes, in pieces of any size, into the reader of NETCONF messages. The first byte of the input chooses
// the framing (its lowest bit) and the size of the pieces. However they are cut, the messages must be
// those that the whole gives, and so must what is wrong with them.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "netconf/framing.h"

namespace {

constexpr std::size_t kLimit = 4096;  // small, so that it is reached

using Outcome = std::pair<std::vector<std::string>, std::string>;  // messages, problem

Outcome Read(netconf::Framing framing, std::string_view bytes, std::size_t piece)
{
    Outcome outcome;
    netconf::MessageReader reader(kLimit);
    reader.SetFraming(framing);
    while (!bytes.empty() && reader.Problem().empty()) {
        reader.Append(bytes.substr(0, piece));
        bytes.remove_prefix(std::min(piece, bytes.size()));
        while (auto message = reader.Next()) {
            if (message->size() > kLimit) std::abort();
            outcome.first.push_back(std::move(*message));
        }
    }
    outcome.second = reader.Problem();
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto framing = (data[0] & 1U) != 0 ? netconf::Framing::kChunked : netconf::Framing::kEndOfMessage;
    const std::size_t piece = (std::size_t{data[0]} >> 1U) + 1;
    if (Read(framing, bytes, piece) != Read(framing, bytes, bytes.size() + 1)) std::abort();
    return 0;
}
