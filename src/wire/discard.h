// SPDX-License-Identifier: Apache-2.0
// A discarded packet (sflow.org, "sFlow Dropped Packet Notification Structures"), as plain values and written
// in XDR: the sample of format 5 with the records sampled header and, where there is something to say,
// function, hardware trap and Linux drop reason. The rest of the format is encode.h's.

#ifndef WIRE_DISCARD_H
#define WIRE_DISCARD_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "wire/drop_reason.h"
#include "wire/encode.h"

namespace wire {

struct DiscardSample {
    std::uint32_t sequence = 0;  // of the data source
    std::uint32_t source = 0;    // ifIndex of the data source
    std::uint32_t drops = 0;     // discarded packets of the data source that were not sent, modulo 2^32
    std::uint32_t input = 0;     // ifIndex; 0: not known, or made by this machine
    std::uint32_t output = 0;    // ifIndex; 0: not known
    DropReason reason = DropReason::kUnknown;

    HeaderProtocol protocol = HeaderProtocol::kEthernet;
    std::uint32_t frameLength = 0;  // on the wire, with the FCS
    std::uint32_t stripped = 0;     // of these, bytes that were taken away before: the FCS
    std::span<const std::byte> header;
    /// As in FlowSample.
    std::uint16_t tagProtocol = 0;
    std::uint16_t tagControl = 0;
    std::size_t maxHeader = 0;

    // At most kMaxSymbol bytes of each are sent. A record whose texts are all empty is left out.
    std::string_view function;     // symbol of the function that dropped it
    std::string_view trapGroup;    // of a hardware trap
    std::string_view trap;         // its name
    std::string_view linuxReason;  // the kernel's own name of the reason
};

inline constexpr std::uint32_t kDiscardFormat = 5;  // there is no compact one

enum class DiscardRecord : std::uint32_t {
    kFunction = 1038,
    kHardwareTrap = 1041,
    kLinuxReason = 1042,
};

/// Bytes behind the prefix, the records not counted.
inline constexpr std::size_t kDiscardSize = 32;
/// Bytes of a text at most.
inline constexpr std::size_t kMaxSymbol = 255;
/// Room that any discarded packet needs at most, with a header of 512 bytes.
inline constexpr std::size_t kMaxDiscardSample = 2048;

namespace detail {

/// What a text takes with its length word.
constexpr std::size_t TextSize(std::string_view text) { return kWord + Padded(text.size()); }

/// The texts of a sample as they are sent, and their records' bytes with prefixes.
struct DiscardTexts {
    explicit DiscardTexts(const DiscardSample& sample)
        : function(sample.function.substr(0, kMaxSymbol)),
          trapGroup(sample.trapGroup.substr(0, kMaxSymbol)),
          trap(sample.trap.substr(0, kMaxSymbol)),
          linuxReason(sample.linuxReason.substr(0, kMaxSymbol))
    {
    }

    std::string_view function, trapGroup, trap, linuxReason;
    // What is sent.
    bool hasFunction = false, hasTrap = false, hasReason = false;

    /// Takes as many records as fit in the room, the more telling ones first. Returns their bytes.
    std::size_t Fit(std::size_t room)
    {
        std::size_t size = 0;
        const auto takes = [&](bool present, std::size_t record) {
            const bool taken = present && record <= room - size;
            size += taken ? record : 0;
            return taken;
        };
        hasReason = takes(!linuxReason.empty(), kPrefixSize + TextSize(linuxReason));
        hasFunction = takes(!function.empty(), kPrefixSize + TextSize(function));
        hasTrap =
            takes(!trapGroup.empty() || !trap.empty(), kPrefixSize + TextSize(trapGroup) + TextSize(trap));
        return size;
    }
};

inline void WriteText(XdrWriter& to, std::string_view text)
{
    std::byte* const bytes = to.Opaque(text.size());
    if (!text.empty()) std::memcpy(bytes, text.data(), text.size());
}

inline void WriteTexts(XdrWriter& to, const DiscardTexts& texts)
{
    if (texts.hasFunction) {
        WritePrefix(to, DiscardRecord::kFunction, TextSize(texts.function));
        WriteText(to, texts.function);
    }
    if (texts.hasTrap) {
        WritePrefix(to, DiscardRecord::kHardwareTrap, TextSize(texts.trapGroup) + TextSize(texts.trap));
        WriteText(to, texts.trapGroup);
        WriteText(to, texts.trap);
    }
    if (texts.hasReason) {
        WritePrefix(to, DiscardRecord::kLinuxReason, TextSize(texts.linuxReason));
        WriteText(to, texts.linuxReason);
    }
}

}  // namespace detail

/// Writes the sample with its type and length. Where `out` is smaller than the sample, texts that do not fit
/// are left out, and then the sampled header is cut. Returns the bytes written; 0 if not even a sample
/// without a header and texts fits, which never happens in kMinSampleRoom. `out` must not overlap what the
/// sample refers to.
inline std::size_t Encode(const DiscardSample& sample, std::span<std::byte> out)
{
    constexpr std::size_t kBare = kPrefixSize + kDiscardSize + kPrefixSize + kSampledHeaderSize;
    if (out.size() < kBare) {
        return 0;
    }
    detail::DiscardTexts texts(sample);
    const std::size_t bare = kBare + texts.Fit(out.size() - kBare);
    const std::size_t headerSize = detail::HeaderSize(sample, out.size() - bare);
    const std::size_t size = bare + Padded(headerSize);

    XdrWriter to(out.data());
    to.Word(kDiscardFormat);
    to.Word(static_cast<std::uint32_t>(size - kPrefixSize));
    detail::WriteSource(to, Encoding::kExpanded, sample.sequence, sample.source);
    to.Word(sample.drops);
    to.Word(sample.input);
    to.Word(sample.output);
    to.Word(static_cast<std::uint32_t>(sample.reason));
    to.Word(1 + std::uint32_t{texts.hasFunction} + std::uint32_t{texts.hasTrap} +
            std::uint32_t{texts.hasReason});
    detail::WriteHeader(to, sample, headerSize);
    detail::WriteTexts(to, texts);
    return size;
}

}  // namespace wire

#endif
