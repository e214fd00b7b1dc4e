// SPDX-License-Identifier: Apache-2.0
// What the decoder must find after a sample was encoded: worked out from the sample and the room, without
// the encoder's code. The round-trip tests and the fuzz target of the encoder use it.

#ifndef TESTS_UNIT_WIRE_EXPECTED_SAMPLE_H
#define TESTS_UNIT_WIRE_EXPECTED_SAMPLE_H

#include <cstddef>
#include <optional>

#include "support/sflow_decoder.h"
#include "wire/discard.h"
#include "wire/sample.h"

/// Nothing if the room is too small even for a sample without header. Port formats are those that
/// exist.
std::optional<support::DecodedFlow> Expected(const wire::FlowSample& sample, wire::Encoding encoding,
                                             std::size_t room);

/// Nothing if the room is too small for the generic counters.
std::optional<support::DecodedCounters> Expected(const wire::CountersSample& sample, wire::Encoding encoding,
                                                 std::size_t room);

/// Nothing if the room is too small even for a sample without header and texts.
std::optional<support::DecodedDiscard> Expected(const wire::DiscardSample& sample, std::size_t room);

#endif
