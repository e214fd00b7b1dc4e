// SPDX-License-Identifier: Apache-2.0
#include "manager/export/stream_health.h"

#include <fmt/format.h>

#include "log/log.h"

namespace manager {
namespace {

/// What the errno's own text does not say.
std::string_view Meaning(std::string_view what, const std::error_code& error)
{
    if (error == std::errc::resource_unavailable_try_again) return " (the socket's buffer is full)";
    if (error == std::errc::no_buffer_space) return " (the device's queue is full)";
    if (error == std::errc::too_many_files_open) return " (the process's limit of open files)";
    if (error == std::errc::too_many_files_open_in_system) return " (the system's limit of open files)";
    if (error == std::errc::operation_not_permitted) return " (a firewall's rule)";
    if (error == std::errc::permission_denied) return " (a route of type prohibit, or a broadcast address)";
    // A socket that was connected before gets this also if its source address is gone.
    if (error == std::errc::invalid_argument && what == "connect") return " (a route of type blackhole)";
    if (error == std::errc::destination_address_required) return " (there is no port 0)";
    return "";
}

}  // namespace

void StreamHealth::Redirect(const CollectorSettings& settings)
{
    m_to = settings;
    m_status.sending = false;
    m_row = m_reported = false;
    m_sentSince.reset();
}

void StreamHealth::Taken(const Datagram& datagram)
{
    ++m_status.datagrams;
    m_status.bytes += datagram.size;
    m_status.flowSamples += datagram.flows;
    m_status.counterSamples += datagram.counters;
}

void StreamHealth::Lost(const Datagram& datagram)
{
    ++m_status.lostDatagrams;
    m_status.lostSamples += std::uint64_t{datagram.flows} + datagram.counters;
}

void StreamHealth::Failed(std::string_view what, const std::error_code& error, unsigned errors, bool lost,
                          Milliseconds now, std::chrono::system_clock::time_point time)
{
    m_status.errors += errors;
    m_status.lastError = error;
    m_status.lastErrorText = fmt::format("{} to {}:{}: {}{}", what, AddressText(m_to.address), m_to.port,
                                         error.message(), Meaning(what, error));
    m_status.lastErrorTime = time;
    m_status.sending = false;
    m_reported = !lost;
    m_failedAt = now;
    m_sentSince.reset();
    if (!m_row) slog::Notice("collector {}: {}", m_name, m_status.lastErrorText);
    m_row = true;
}

void StreamHealth::Reported(const std::error_code& error, std::chrono::system_clock::time_point time)
{
    Failed("send", error, 1, false, m_sentAt, m_status.lastDatagram.value_or(time));
}

void StreamHealth::Sent(Milliseconds now, std::chrono::system_clock::time_point time)
{
    m_status.lastDatagram = time;
    m_sentAt = now;
    if (!m_sentSince) m_sentSince = now;
}

bool StreamHealth::IsOver(Milliseconds now) const
{
    if (!m_reported) return true;
    if (m_status.lastError == std::errc::connection_refused) return now - m_failedAt >= kQuietRefused;
    return m_sentSince && now - *m_sentSince >= kQuiet;
}

void StreamHealth::Clean(Milliseconds now)
{
    if (!m_row || IsOver(now)) m_status.sending = true;
    // The log waits longer: one line for all errors of a collector that gets few datagrams.
    if (!m_row || !m_sentSince || now - *m_sentSince < kQuiet) return;
    m_row = false;
    slog::Notice("collector {}: sends to {}:{} again", m_name, AddressText(m_to.address), m_to.port);
}

}  // namespace manager
