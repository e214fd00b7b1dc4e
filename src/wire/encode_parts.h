// SPDX-License-Identifier: Apache-2.0
// What flow samples and counters samples begin with. Include encode.h, not this file.

#ifndef WIRE_ENCODE_PARTS_H
#define WIRE_ENCODE_PARTS_H

#include <cstddef>
#include <cstdint>

#include "wire/sample.h"
#include "wire/xdr.h"

namespace wire::detail {

/// The format of a sample or record, and its bytes behind these two words.
template <typename Format>
void WritePrefix(XdrWriter& to, Format format, std::size_t size)
{
    to.Word(static_cast<std::uint32_t>(format));
    to.Word(static_cast<std::uint32_t>(size));
}

/// The sequence number and the data source. Compact, the source is one word: class 0, which is that of an
/// ifIndex, in the upper 8 bits, the index in the lower 24. Expanded, it is two.
inline void WriteSource(XdrWriter& to, Encoding encoding, std::uint32_t sequence, std::uint32_t source)
{
    to.Word(sequence);
    if (encoding == Encoding::kCompact) {
        to.Word(source & (kFirstExpandedIndex - 1));
    } else {
        to.Word(0);
        to.Word(source);
    }
}

}  // namespace wire::detail

#endif
