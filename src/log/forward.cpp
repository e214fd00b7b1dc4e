// SPDX-License-Identifier: Apache-2.0
#include "log/forward.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "base/directories.h"
#include "base/text.h"

namespace slog {
namespace {

std::string Bytes(const Record& record)
{
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(record.time.time_since_epoch());
    const bool cut = record.text.size() > kMaxForwardedText;
    return fmt::format("{}\t{}\t{}\t{}\t{}{}\n", us.count(), base::Printable(record.process), record.level,
                       base::Printable(record.place), record.text.substr(0, kMaxForwardedText),
                       cut ? "..." : "");
}

}  // namespace

void Forwarder::Take(const Record& record)
{
    const std::lock_guard lock(m_mutex);
    m_process = record.process;
    m_waiting.push_back({record.time, Bytes(record)});
    if (m_waiting.size() > kMostWaiting) {
        m_waiting.pop_front();
        ++m_lost;
    }
    SendWaiting();
}

void Forwarder::SendWaiting()
{
    if (m_lost != 0) {
        const std::string text = std::to_string(m_lost) + " lines were lost before this one: cdbd took none";
        const Record mark{m_waiting.front().time, m_process, static_cast<int>(Level::kNotice),
                          "src/log/forward:SendWaiting:0", text};
        if (!Send(Bytes(mark))) return;
        m_lost = 0;
    }
    while (!m_waiting.empty() && Send(m_waiting.front().bytes)) m_waiting.pop_front();
}

bool Forwarder::Send(std::string_view bytes)
{
    // The second time with a new connection, if the first one has ended with its cdbd.
    for (int tries = 0; tries < 2; ++tries) {
        if (!m_socket && !Connect()) return false;
        ssize_t sent = 0;
        do sent = ::send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        while (sent < 0 && errno == EINTR);
        if (sent == static_cast<ssize_t>(bytes.size())) return true;
        if (sent < 0 && (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM)) return false;
        // Also after a part of a line: the reader drops it when the connection ends, and gets it whole.
        m_socket.Close();
    }
    return false;
}

bool Forwarder::Connect()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, m_path.data(), m_path.size());
    base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket || ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return false;
    m_socket = std::move(socket);
    return true;
}

void ForwardToDatabase()
{
    const auto forwarder = std::make_shared<Forwarder>(base::RunDirectory() + "/" + kLogSocket);
    Also([forwarder](const Record& record) { forwarder->Take(record); });
}

}  // namespace slog
