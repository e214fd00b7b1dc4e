// SPDX-License-Identifier: Apache-2.0
#include "agent/log/log_intake.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <system_error>
#include <utility>

#include <boost/asio/buffer.hpp>

#include "base/text.h"
#include "base/user.h"
#include "ipc/peer.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::size_t kMaxName = 64;
constexpr std::size_t kMaxPlace = 256;
constexpr int kHighestLevel = 99;
/// Refusals are logged of so many users, once each: a process that is refused tries again with each line.
constexpr std::size_t kMostRefused = 64;

/// The text before the next tab, which is taken off `rest`; nullopt if there is none.
std::optional<std::string_view> Field(std::string_view& rest)
{
    const std::size_t tab = rest.find('\t');
    if (tab == std::string_view::npos) return std::nullopt;
    const std::string_view field = rest.substr(0, tab);
    rest.remove_prefix(tab + 1);
    return field;
}

template <typename Number>
std::optional<Number> WholeNumber(std::string_view text)
{
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::string Shown(std::string_view text, std::size_t limit)
{
    return base::Printable(base::Presentable(text, limit));
}

}  // namespace

std::optional<LogLine> ParseLogLine(std::string_view line, std::int64_t nowUs)
{
    const auto time = Field(line);
    const auto process = Field(line);
    const auto level = Field(line);
    const auto place = Field(line);
    if (!time || !process || !level || !place || process->empty()) return std::nullopt;
    const auto timeUs = WholeNumber<std::int64_t>(*time);
    const auto number = WholeNumber<int>(*level);
    if (!timeUs || *timeUs < 0 || !number || *number < 0 || *number > kHighestLevel) return std::nullopt;
    std::string name = Shown(*process, kMaxName);
    if (name == "cdbd") return std::nullopt;
    return LogLine{std::min(*timeUs, nowUs), std::move(name), *number, Shown(*place, kMaxPlace),
                   Shown(line, base::kMaxPeerText)};
}

/// One connection. It is owned by the intake alone, so what is under way ends with it.
class LogIntake::Reader : public std::enable_shared_from_this<Reader> {
public:
    Reader(LogIntake& intake, Socket socket) : m_intake(intake), m_socket(std::move(socket)) {}

    void Read()
    {
        const auto room = boost::asio::buffer(m_bytes) + m_filled;
        m_socket.async_read_some(
            room, [weak = weak_from_this()](const boost::system::error_code& error, std::size_t size) {
                if (const auto self = weak.lock()) self->Received(error, size);
            });
    }

private:
    void Received(const boost::system::error_code& error, std::size_t size)
    {
        if (error) {
            m_intake.m_readers.erase(shared_from_this());
            return;
        }
        m_filled += size;
        TakeLines();
        if (m_lines < kBurst) return Read();
        m_lines = 0;
        m_pause = m_intake.m_timers.After(kPause, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->Read();
        });
    }

    void TakeLines()
    {
        std::string_view rest(m_bytes.data(), m_filled);
        for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            ++m_lines;
            if (!std::exchange(m_skips, false))
                if (auto line = ParseLogLine(rest.substr(0, end), m_intake.m_now()))
                    m_intake.m_store.Take(std::move(*line));
            rest.remove_prefix(end + 1);
        }
        if (rest.size() == m_bytes.size()) {
            m_skips = true;
            ++m_lines;
            rest = {};
        }
        std::copy(rest.begin(), rest.end(), m_bytes.begin());
        m_filled = rest.size();
    }

    LogIntake& m_intake;
    Socket m_socket;
    std::array<char, kMaxLogLine> m_bytes{};
    std::size_t m_filled = 0;
    std::size_t m_lines = 0;  // since the last pause
    bool m_skips = false;     // until the end of a line that is too long
    std::shared_ptr<void> m_pause;
};

LogIntake::LogIntake(base::Timers& timers, const ipc::Trust& trust, LogStore& store,
                     const std::function<std::int64_t()>& now)
    : m_timers(timers), m_trust(trust), m_store(store), m_now(now)
{
}

LogIntake::~LogIntake() = default;

bool LogIntake::Admits(int descriptor)
{
    const auto peer = ipc::PeerOf(descriptor);
    if (!peer || m_readers.size() >= kMostConnections) return false;
    const auto refusal = m_trust.Refusal(ipc::Role::kFaults, *peer);
    if (!refusal) return true;
    if (m_refused.size() < kMostRefused && m_refused.insert(peer->uid).second)
        slog::Error("lines of {} (process {}) for the log are not taken: {}", base::UserName(peer->uid),
                    peer->pid, *refusal);
    return false;
}

void LogIntake::Add(Socket socket)
{
    if (!Admits(socket.native_handle())) return;
    const auto reader = std::make_shared<Reader>(*this, std::move(socket));
    m_readers.insert(reader);
    reader->Read();
}

}  // namespace agent
