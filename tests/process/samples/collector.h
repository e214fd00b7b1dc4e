// SPDX-License-Identifier: Apache-2.0
// A collector of the test that complains, at its end, about everything that no datagram of this agent may
// have, whatever the test is about: a size beyond the collector's, a gap in a sequence, another agent's
// address, records out of order, time that goes back.

#ifndef SAMPLES_COLLECTOR_H
#define SAMPLES_COLLECTOR_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "support/decoding_collector.h"

namespace samples_tests {

class Collector : public support::DecodingCollector {
public:
    /// In the namespace of the calling thread. It complains about datagrams that are larger.
    explicit Collector(std::size_t datagramSize = 1400, const std::string& address = "127.0.0.1")
        : DecodingCollector(address), m_size(datagramSize)
    {
    }
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;
    ~Collector();

    /// One of the datagrams that have not come yet may begin new sequences: all of them.
    void AllowRestart() { m_mayRestartFrom = Arrivals().size(); }

private:
    void Judge();
    void JudgeSample(const support::DecodedSample& sample);
    void JudgeSequence(char kind, std::uint32_t source, std::uint32_t sequence);

    std::size_t m_size;
    std::optional<std::size_t> m_mayRestartFrom;                          // the datagram's place
    std::map<std::pair<char, std::uint32_t>, std::uint32_t> m_sequences;  // last of each kind and source
};

}  // namespace samples_tests

#endif
