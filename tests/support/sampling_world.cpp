// SPDX-License-Identifier: Apache-2.0
// A small switch with a real sflow-mgr on it (see the header).

#include "support/sampling_world.h"

#include <chrono>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "support/poll.h"

namespace support {
namespace {

constexpr unsigned kPorts = 2;

/// All cables and the bridge, with two runs of `ip`.
void MakeSwitch()
{
    std::string lines;
    std::vector<std::string> names;
    for (unsigned port = 1; port <= kPorts; ++port) {
        const std::string number = std::to_string(port);
        lines += "link add p" + number + " type veth peer name h" + number + "\n";
        lines += "link set h" + number + " up\nlink set p" + number + " up\n";
        names.push_back("p" + number);
    }
    Network::Ip(lines);
    Network::MakeBridge("br0", names);
}

/// A cable drops what it is given for a while after it came up. The bridge learns the hosts besides.
void AwaitCables()
{
    for (unsigned port = 1; port <= kPorts; ++port) {
        const std::string number = std::to_string(port);
        Injector host("h" + number);
        const auto from = static_cast<std::uint8_t>(port);
        const Bytes frame = SamplingWorld::Frame(from, port == 1 ? 2 : 1);
        Await("the cable of p" + number, [&] {
            host.Send(frame);
            return Received("p" + number) > 0;
        });
    }
}

}  // namespace

SamplingWorld::SamplingWorld(ManagerOptions options) : m_options(std::move(options))
{
    MakeSwitch();
    AwaitCables();
    StartManager();
    OpenSession();
}

SamplingWorld::~SamplingWorld() = default;

void SamplingWorld::StartManager()
{
    m_service.reset();
    m_manager.reset();
    m_before = 0;
    ManagerOptions options = m_options;
    options.arguments.insert(options.arguments.end(), {"--journal", JournalPath(), "--metrics",
                                                       "127.0.0.1:" + std::to_string(MetricsPort())});
    m_manager = std::make_unique<ManagerProcess>(Dir(), options);
}

void SamplingWorld::OpenSession()
{
    CloseSession();
    // Its end has to be noticed first.
    Await("a session", [&] {
        try {
            m_service = std::make_unique<ServiceClient>(Socket());
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    });
}

void SamplingWorld::CloseSession()
{
    if (m_service) m_before += m_service->Operations();
    m_service.reset();
}

void SamplingWorld::AwaitApplied() const
{
    const std::uint64_t sent = m_before + (m_service ? m_service->Operations() : 0);
    Await("the operations to be in effect",
          [&] { return Numbers().At("sflow_manager_operations_total") == sent; });
    // The kernel attaches what begins to be sampled a little later. What has no collector never is.
    constexpr std::chrono::milliseconds kAttaching{300};
    std::ignore = Becomes([&] { return !Numbers().AnyUnsampled(); }, kAttaching);
}

void SamplingWorld::AddCollector(const std::string& name, const DecodingCollector& at, std::uint16_t size)
{
    m_service->AddCollector(name, at.Address(), at.Port(), size);
}

Bytes SamplingWorld::Frame(std::uint8_t from, std::uint8_t to, std::size_t size)
{
    return UdpFrame({.from = from,
                     .to = to,
                     .source = "198.51.100." + std::to_string(from),
                     .destination = "198.51.100." + std::to_string(to),
                     .size = size});
}

}  // namespace support
