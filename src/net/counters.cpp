// The counter reader on the kernel: both kinds of counters behind one door that does not throw.

#include "net/counters.h"

#include <algorithm>
#include <system_error>

#include "log/log.h"
#include "net/counters_ethernet.h"
#include "net/counters_links.h"

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
        try {
            const auto found = m_links.Read(m_wanted);
            m_failed = false;
            return found;
        } catch (const std::system_error& error) {
            if (!m_failed) slog::Error("the kernel's interface counters can't be read: {}", error.what());
            m_failed = true;
            return {};
        }
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
    bool m_failed = false;  // one line of the log for a row of failures
};

}  // namespace

bool EthernetCounters::Any() const
{
    return alignmentErrors || fcsErrors || singleCollisions || multipleCollisions || sqeTestErrors ||
           deferred || lateCollisions || excessiveCollisions || macTransmitErrors || carrierSenseErrors ||
           frameTooLongs || macReceiveErrors || symbolErrors;
}

std::unique_ptr<CounterReader> MakeCounterReader() { return std::make_unique<KernelCounterReader>(); }

}  // namespace net
