// SPDX-License-Identifier: Apache-2.0
// The counter reader on the kernel: both kinds of counters behind one interface.

#include "net/counters/counters.h"

#include <algorithm>

#include "net/counters/counters_ethernet.h"
#include "net/counters/counters_links.h"

namespace net {
namespace {

class KernelCounterReader final : public CounterReader {
public:
    std::span<const LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) override
    {
        if (ifIndexes.empty()) return {};
        m_wanted.assign(ifIndexes.begin(), ifIndexes.end());
        std::ranges::sort(m_wanted);
        m_wanted.erase(std::ranges::unique(m_wanted).begin(), m_wanted.end());
        return m_links.Read(m_wanted);
    }

    std::optional<EthernetCounters> ReadEthernet(std::uint32_t ifIndex) override
    {
        return m_ethernet.Read(ifIndex);
    }

    void Forget(std::uint32_t ifIndex) override { m_ethernet.Forget(ifIndex); }

private:
    LinkCountersReader m_links;
    EthernetCountersReader m_ethernet;
    std::vector<std::uint32_t> m_wanted;
};

}  // namespace

std::unique_ptr<CounterReader> MakeCounterReader() { return std::make_unique<KernelCounterReader>(); }

}  // namespace net
