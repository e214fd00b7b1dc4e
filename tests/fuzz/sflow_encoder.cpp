// SPDX-License-Identifier: Apache-2.0
// Samples, encodings and room made up from the input, into the encoder of sFlow. What it writes stays
// within its room, a strict decoder reads it, and finds the values that were given, cut to the room.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "support/sflow_decoder.h"
#include "wire/discard.h"
#include "wire/encode.h"
#include "wire/expected_sample.h"
#include "wire/sample_source.h"

namespace {

/// Gives the input four bytes at a time; behind its end, zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_bytes(data, size) {}

    [[nodiscard]] bool Empty() const { return m_bytes.empty(); }

    std::uint32_t operator()()
    {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < 4 && !m_bytes.empty(); ++i, m_bytes = m_bytes.subspan(1)) {
            value |= std::uint32_t{m_bytes.front()} << 8 * i;
        }
        return value;
    }

private:
    std::span<const std::uint8_t> m_bytes;
};

/// The room is of exactly that size, so that the sanitizers see a byte written behind it.
template <typename Decoded, typename Sample>
void Try(const Sample& sample, wire::Encoding encoding, std::size_t room)
{
    std::vector<std::byte> buffer(room);
    const std::size_t size = wire::Encode(sample, encoding, buffer);
    if (size > room) std::abort();
    std::optional<Decoded> decoded;
    if (size != 0) decoded = std::get<Decoded>(support::DecodeSample(std::span(buffer).first(size)));
    if (decoded != Expected(sample, encoding, room)) std::abort();
}

void TryDiscard(const wire::DiscardSample& sample, std::size_t room)
{
    std::vector<std::byte> buffer(room);
    const std::size_t size = wire::Encode(sample, buffer);
    if (size > room) std::abort();
    std::optional<support::DecodedDiscard> decoded;
    if (size != 0)
        decoded = std::get<support::DecodedDiscard>(support::DecodeSample(std::span(buffer).first(size)));
    if (decoded != Expected(sample, room)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    SampleSource source([&input] { return input(); });
    while (!input.Empty()) {
        const wire::Encoding encoding = source.Encoding();
        const std::size_t room = source.Below(1100);
        const std::uint32_t kind = source.Below(16);
        if (kind == 15) {
            TryDiscard(source.Discard(), room);
        } else if (kind % 2 == 0) {
            Try<support::DecodedFlow>(source.Flow(), encoding, room);
        } else {
            Try<support::DecodedCounters>(source.Counters(), encoding, room);
        }
    }
    return 0;
}
