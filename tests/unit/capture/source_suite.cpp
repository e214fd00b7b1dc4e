// SPDX-License-Identifier: Apache-2.0
#include "capture/source_suite.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <system_error>

#include "capture/packet_source.h"

namespace source_suite {

namespace {

constexpr std::chrono::seconds kPatience{30};
// Longer than a source may keep a sample.
constexpr std::chrono::milliseconds kLongest{300};

}  // namespace

std::vector<Kind> Kinds()
{
    std::vector<Kind> kinds{{"ring", capture::MakeRingSource}};
    for (const auto& [name, hook] :
         {std::pair{"tcx", capture::EbpfHook::kTcx}, std::pair{"clsact", capture::EbpfHook::kClsact}}) {
        kinds.push_back(
            {name, [hook = hook](boost::asio::io_context& loop, base::Timers& timers,
                                 capture::SampleSink& sink, const capture::SourceOptions& options) {
                 return capture::MakeEbpfSource(loop, timers, sink, options, hook);
             }});
    }
    return kinds;
}

INSTANTIATE_TEST_SUITE_P(All, SourceSuite, testing::ValuesIn(Kinds()),
                         [](const auto& kind) { return kind.param.name; });

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

void Record::OnSamples(std::span<const capture::Sample> samples) noexcept
{
    ++batches;
    for (const capture::Sample& sample : samples) {
        all.push_back({sample, {sample.header.begin(), sample.header.end()}});
        all.back().sample.header = {};
    }
}

std::uint64_t Record::Frames(std::uint32_t ifIndex) const
{
    std::uint64_t frames = 0;
    for (const SampledFrame& sampled : all)
        if (sampled.sample.ifIndex == ifIndex) frames += sampled.sample.count;
    return frames;
}

std::vector<std::uint64_t> Record::Numbers(std::uint32_t ifIndex) const
{
    std::vector<std::uint64_t> numbers;
    for (const SampledFrame& sampled : all)
        if (sampled.sample.ifIndex == ifIndex) numbers.push_back(NumberOf(sampled.header));
    return numbers;
}

std::uint64_t NumberOf(const support::Bytes& header)
{
    constexpr std::size_t kPayload = 14 + 20 + 8;
    std::uint64_t number = 0;
    for (std::size_t at = kPayload; at < kPayload + 8; ++at)
        number = number << 8U | std::to_integer<std::uint64_t>(header.at(at));
    return number;
}

void SourceSuite::SetUp()
{
    if (const std::string why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    m_network.emplace();
    m_timers = base::MakeTimers(m_loop);
    // One CPU sends and samples, so that samples come in the order of the frames.
    ASSERT_EQ(sched_getaffinity(0, sizeof m_allowed, &m_allowed), 0);
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(static_cast<std::size_t>(std::max(0, sched_getcpu())), &first);
    sched_setaffinity(0, sizeof first, &first);
}

void SourceSuite::TearDown()
{
    if (CPU_COUNT(&m_allowed) != 0) sched_setaffinity(0, sizeof m_allowed, &m_allowed);
}

void SourceSuite::Make(std::size_t bufferSize)
{
    try {
        m_source = GetParam().make(m_loop, *m_timers, m_record, {kOwnMark, bufferSize});
    } catch (const capture::Unavailable& unavailable) {
        GTEST_SKIP() << unavailable.what();
    }
}

void SourceSuite::Add(std::uint32_t ifIndex, const capture::Settings& settings)
{
    m_source->Add(ifIndex, settings);
    EXPECT_TRUE(Becomes([&] { return m_source->Sampled(ifIndex); }));
}

void SourceSuite::Change(std::uint32_t ifIndex, const capture::Settings& settings)
{
    m_source->Change(ifIndex, settings);
    EXPECT_TRUE(Becomes([&] { return m_source->Sampled(ifIndex); }));
}

std::uint32_t SourceSuite::Cable(const std::string& near, const std::string& far)
{
    support::Network::Veth(near, far);
    return support::Network::Index(near);
}

bool SourceSuite::Becomes(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        Run(std::chrono::milliseconds(2));
    }
    return true;
}

void SourceSuite::Turn()
{
    m_loop.restart();
    m_loop.poll();
}

void SourceSuite::Run(std::chrono::milliseconds time)
{
    m_loop.restart();
    m_loop.run_for(time);
}

bool SourceSuite::Settles(std::uint32_t ifIndex, std::uint64_t pool)
{
    const bool seen = Becomes([&] { return m_source->Read(ifIndex).pool >= pool; });
    std::size_t before = 0;
    do {
        before = m_record.all.size();
        Run(kLongest);
    } while (m_record.all.size() != before);
    return seen && m_source->Read(ifIndex).pool == pool;
}

void SourceSuite::SendNumbered(const std::string& device, std::uint64_t first, std::uint64_t count,
                               std::size_t size)
{
    constexpr std::uint64_t kAtOnce = 100;
    support::Injector injector(device);
    support::FrameOptions options;
    options.size = size;
    std::vector<support::Bytes> frames(kAtOnce, support::UdpFrame(options));
    constexpr std::size_t kPayload = 14 + 20 + 8;
    for (std::uint64_t done = 0; done < count;) {
        // Before as well: the programs at clsact rest where the loop stood still for 2 s, as it does while
        // the kernel keeps a change of an interface waiting.
        Turn();
        frames.resize(std::min(kAtOnce, count - done), frames.front());
        for (support::Bytes& frame : frames) {
            const std::uint64_t number = first + done++;
            for (unsigned byte = 0; byte < 8; ++byte)
                frame[kPayload + byte] = static_cast<std::byte>(number >> (56U - 8U * byte));
        }
        injector.Send(frames);
    }
    Turn();
}

MarkedSender::MarkedSender(const std::string& device, std::uint32_t mark)
    : m_socket(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0))
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(support::Network::Index(device));
    if (m_socket < 0 || setsockopt(m_socket, SOL_SOCKET, SO_MARK, &mark, sizeof mark) != 0 ||
        bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "socket with a mark");
}

MarkedSender::~MarkedSender() { close(m_socket); }

void MarkedSender::Send(const support::Bytes& frame) const
{
    if (send(m_socket, frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size()))
        throw std::system_error(errno, std::generic_category(), "marked frame");
}

testing::AssertionResult IsBinomial(std::uint64_t successes, std::uint64_t trials, double probability)
{
    const auto n = static_cast<double>(trials);
    const double share = static_cast<double>(successes) / n;
    const auto term = [](double a, double b) { return a <= 0 ? 0.0 : a * std::log(a / b); };
    const double divergence = term(share, probability) + term(1 - share, 1 - probability);
    if (n * divergence <= std::log(2 / kFalseAlarm)) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << successes << " of " << trials << " sampled, expected " << n * probability;
}

testing::AssertionResult IsGeometric(const std::vector<std::uint64_t>& gaps, double probability)
{
    constexpr std::size_t kBins = 24;
    // Bin i holds the gaps up to and with edges[i]; the last has no end.
    std::vector<std::uint64_t> edges;
    for (std::size_t i = 1; i < kBins; ++i) {
        const double left = 1 - static_cast<double>(i) / kBins;
        const auto edge = static_cast<std::uint64_t>(std::ceil(std::log(left) / std::log(1 - probability)));
        if (edges.empty() || edge > edges.back()) edges.push_back(edge);
    }
    std::vector<double> seen(edges.size() + 1);
    for (const std::uint64_t gap : gaps)
        ++seen[static_cast<std::size_t>(std::ranges::lower_bound(edges, gap) - edges.begin())];
    double chiSquared = 0;
    double below = 0;
    for (std::size_t bin = 0; bin < seen.size(); ++bin) {
        const double upTo =
            bin < edges.size() ? 1 - std::pow(1 - probability, static_cast<double>(edges[bin])) : 1;
        const double expected = static_cast<double>(gaps.size()) * (upTo - below);
        chiSquared += (seen[bin] - expected) * (seen[bin] - expected) / expected;
        below = upTo;
    }
    // Wilson and Hilferty's form of the distribution; 6.0 is the normal one's point for kFalseAlarm.
    const auto freedom = static_cast<double>(seen.size() - 1);
    const double spread = 2 / (9 * freedom);
    const double most = freedom * std::pow(1 - spread + 6.0 * std::sqrt(spread), 3);
    if (chiSquared <= most) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "chi-squared " << chiSquared << " of " << gaps.size()
                                       << " gaps, at most " << most << " expected";
}

}  // namespace source_suite
