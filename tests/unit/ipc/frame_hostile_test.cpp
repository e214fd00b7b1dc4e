// SPDX-License-Identifier: Apache-2.0
#include <random>

#include "channel_fixture.h"

namespace {

class FrameHostileTest : public ChannelFixture {};

/// A channel of its own for one round of a test.
class World : public ChannelFixture {
public:
    using ChannelFixture::m_frames;
    using ChannelFixture::m_reasons;
    using ChannelFixture::PeerWrites;
    using ChannelFixture::Settle;
    using ChannelFixture::Start;

private:
    void TestBody() override {}
};

TEST_F(FrameHostileTest, EndsAtALengthOverTheLimit)
{
    for (const std::uint32_t length :
         {std::uint32_t{ipc::kMaxFrame} + 1, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        SCOPED_TRACE(length);
        World world;
        world.Start();
        const std::uint32_t header = htonl(length);
        world.PeerWrites(FrameOf("good") +
                         std::string(reinterpret_cast<const char*>(&header), sizeof header));
        world.Settle();
        EXPECT_EQ(world.m_frames, (Frames{"good"}));
        EXPECT_EQ(world.m_reasons, (Frames{"a frame of more than 67108864 bytes was announced"}));
    }
}

long ResidentPages()
{
    long size = 0;
    long resident = 0;
    std::FILE* file = std::fopen("/proc/self/statm", "r");
    EXPECT_EQ(std::fscanf(file, "%ld %ld", &size, &resident), 2);
    std::fclose(file);
    return resident;
}

TEST_F(FrameHostileTest, ReservesNothingForAPromisedLength)
{
    Start();
    const long before = ResidentPages();
    const std::uint32_t header = htonl(ipc::kMaxFrame);
    PeerWrites({reinterpret_cast<const char*>(&header), sizeof header});
    Settle();
    EXPECT_LT(ResidentPages() - before, (long{8} << 20) / ::sysconf(_SC_PAGESIZE));
    EXPECT_EQ(m_reasons, Frames{});
}

/// Cuts a byte string as the channel should, up to the first frame over the limit.
std::vector<std::string> Cut(std::string_view bytes, bool& oversized)
{
    std::vector<std::string> frames;
    oversized = false;
    while (bytes.size() >= 4) {
        std::uint32_t length = 0;
        std::memcpy(&length, bytes.data(), sizeof length);
        length = ntohl(length);
        oversized = length > ipc::kMaxFrame;
        if (oversized || bytes.size() - 4 < length) break;
        frames.emplace_back(bytes.substr(4, length));
        bytes.remove_prefix(4 + length);
    }
    return frames;
}

std::string HostileBytes(std::mt19937& random)
{
    std::string bytes;
    const auto pieces = random() % 12;
    for (std::size_t piece = 0; piece < pieces; ++piece) {
        switch (random() % 4) {
        case 0:
            bytes += FrameOf(std::string(random() % 3000, 'f'));
            break;
        case 1:
            bytes += FrameOf("");
            break;
        case 2:
            bytes += static_cast<char>(random());
            break;
        default:
            bytes += std::string(random() % 5, static_cast<char>(random() % 3));
        }
    }
    return bytes;
}

TEST_F(FrameHostileTest, CutsAnyBytesTheSameWayHoweverTheyArrive)
{
    std::mt19937 random(20261121);  // NOLINT(cert-msc51-cpp): the same seeds in every run
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        World world;
        world.Start();
        const std::string bytes = HostileBytes(random);
        std::string_view rest = bytes;
        while (!rest.empty() && world.m_reasons.empty()) {
            const std::size_t part = std::min<std::size_t>(rest.size(), 1 + random() % 700);
            world.PeerWrites(rest.substr(0, part));
            rest.remove_prefix(part);
            world.Settle();
        }
        bool oversized = false;
        EXPECT_EQ(world.m_frames, Cut(bytes, oversized));
        EXPECT_EQ(world.m_reasons.size(), oversized ? 1U : 0U);
    }
}

}  // namespace
