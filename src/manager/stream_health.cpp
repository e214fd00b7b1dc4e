#include "manager/stream_health.h"

#include <fmt/format.h>

#include "log/log.h"

namespace manager {
namespace {

/// What the errno's own text does not say.
std::string_view Meaning(const std::error_code& error)
{
    if (error == std::errc::resource_unavailable_try_again) return " (the socket's buffer is full)";
    if (error == std::errc::no_buffer_space) return " (the device's queue is full)";
    if (error == std::errc::too_many_files_open) return " (the process's limit of open files)";
    if (error == std::errc::too_many_files_open_in_system) return " (the system's limit of open files)";
    if (error == std::errc::operation_not_permitted) return " (a firewall's rule)";
    return "";
}

}  // namespace

void StreamHealth::Redirect(const CollectorSettings& settings)
{
    m_to = settings;
    m_status.sending = false;
    m_row = m_reported = false;
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
                                         error.message(), Meaning(error));
    m_status.lastErrorTime = time;
    m_status.sending = false;
    m_reported = !lost;
    m_failedAt = now;
    if (!m_row) slog::Notice("collector {}: {}", m_name, m_status.lastErrorText);
    m_row = true;
}

void StreamHealth::Clean(Milliseconds now)
{
    const bool quiet = now - m_failedAt >= kQuiet;
    if (!m_row || !m_reported || quiet) m_status.sending = true;
    if (!m_row || !quiet) return;
    m_row = false;
    slog::Notice("collector {}: sends to {}:{} again", m_name, AddressText(m_to.address), m_to.port);
}

}  // namespace manager
