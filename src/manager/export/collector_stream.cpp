// SPDX-License-Identifier: Apache-2.0
#include "manager/export/collector_stream.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "log/log.h"
#include "wire/encode.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kConnectEvery{1000};
/// A path's MTU may have grown since the kernel refused to cut messages.
constexpr milliseconds kTrySegmentsEvery{60'000};

/// The size that a datagram may have, whatever the settings say: a sample cut to the least room fits in it,
/// and IPv4 carries it.
std::size_t Usable(std::size_t size)
{
    return std::clamp(size, wire::kDatagramHeaderSize + wire::kMinSampleRoom, kMaxMessage);
}

// What the errno's own text does not say.

std::string_view MeaningOfSettings(Tried tried, const std::error_code& error)
{
    if (tried == Tried::kDevice && error == std::errc::no_such_device) return " (there is none)";
    if (tried == Tried::kDevice && error == std::errc::operation_not_permitted)
        return " (CAP_NET_RAW is missing)";
    if (tried == Tried::kSource && error == std::errc::address_not_available)
        return " (this machine does not have the address)";
    return "";
}

std::string_view Meaning(Tried tried, const std::error_code& error)
{
    if (tried != Tried::kSend && tried != Tried::kConnect) return MeaningOfSettings(tried, error);
    if (error == std::errc::resource_unavailable_try_again) return " (the socket's buffer is full)";
    if (error == std::errc::no_buffer_space) return " (the device's queue is full)";
    if (error == std::errc::too_many_files_open) return " (the process's limit of open files)";
    if (error == std::errc::too_many_files_open_in_system) return " (the system's limit of open files)";
    if (error == std::errc::operation_not_permitted) return " (a firewall's rule)";
    if (error == std::errc::permission_denied) return " (a route of type prohibit, or a broadcast address)";
    // A socket that was connected before gets this also if its source address is gone.
    if (error == std::errc::invalid_argument && tried == Tried::kConnect)
        return " (a route of type blackhole)";
    if (error == std::errc::destination_address_required) return " (there is no port 0)";
    return "";
}

}  // namespace

std::string WithoutMark(const std::error_code& error)
{
    return fmt::format(
        "the manager's own datagrams are not marked ({}), so they are sampled like others at the "
        "interfaces they pass; start sflow-mgr as root, or grant it CAP_NET_ADMIN or, from Linux 5.17 on, "
        "CAP_NET_RAW",
        error.message());
}

void StreamShared::SendAll()
{
    for (CollectorStream* stream : waiting) {
        stream->Send();
        stream->Unlist();
    }
    waiting.clear();
}

void StreamHealth::Redirect(const CollectorSettings& settings, const SendSettings& send)
{
    m_to = settings;
    m_send = send;
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
    m_status.discards += datagram.discards;
}

void StreamHealth::Lost(const Datagram& datagram)
{
    ++m_status.lostDatagrams;
    m_status.lostSamples += datagram.Samples();
}

std::string StreamHealth::TextOf(Tried tried) const
{
    switch (tried) {
    case Tried::kConnect:
        return "connect";
    case Tried::kDevice:
        return "send by " + m_send.device;
    case Tried::kSource:
        return "send from " + AddressText(m_send.sourceAddress);
    case Tried::kDscp:
        return fmt::format("send with DSCP {}", m_send.dscp);
    case Tried::kSend:
        break;
    }
    return "send";
}

void StreamHealth::Failed(Tried tried, const std::error_code& error, unsigned errors, bool lost,
                          Milliseconds now, std::chrono::system_clock::time_point time)
{
    m_status.errors += errors;
    m_status.lastError = error;
    m_status.lastTried = tried;
    m_status.lastErrorText = fmt::format("{} to {}:{}: {}{}", TextOf(tried), AddressText(m_to.address),
                                         m_to.port, error.message(), Meaning(tried, error));
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
    Failed(Tried::kSend, error, 1, false, m_sentAt, m_status.lastDatagram.value_or(time));
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

CollectorStream::CollectorStream(const std::string& name, const CollectorSettings& settings,
                                 const SendSettings& send, StreamShared& shared)
    : m_shared(shared),
      m_settings(settings),
      m_send(send),
      m_size(Usable(settings.datagramSize)),
      m_socket(StreamSocket::Options{.mark = shared.mark}),
      m_health(name, settings, send)
{
    Connect(m_shared.uptime());
}

CollectorStream::~CollectorStream()
{
    m_shared.pool.Release(m_block);
    if (m_listed) std::erase(m_shared.waiting, this);
}

std::size_t CollectorStream::Room() const { return m_size - wire::kDatagramHeaderSize; }

void CollectorStream::Put(std::span<const std::byte> sample, Sample kind)
{
    const std::size_t size = sample.size();
    const bool discard = kind == Sample::kDiscard;
    if (size > m_limit - m_end || size == 0 || discard != m_discards) [[unlikely]] {
        if (size > Room() || size == 0) return m_health.LostSample();
        Next();
        m_discards = discard;
    }
    std::memcpy(m_block.bytes.get() + m_end, sample.data(), size);
    m_end += size;
    if (kind == Sample::kFlow)
        ++m_open.flows;
    else if (discard)
        ++m_open.discards;
    else
        ++m_open.counters;
}

void CollectorStream::Change(const CollectorSettings& settings, const SendSettings& send)
{
    if (settings == m_settings && send == m_send) return;
    Send();
    const bool elsewhere = settings.address != m_settings.address || settings.port != m_settings.port ||
                           send.sourceAddress != m_send.sourceAddress || send.device != m_send.device;
    const bool marked = send.dscp != m_send.dscp;
    m_settings = settings;
    m_send = send;
    m_size = Usable(settings.datagramSize);
    if (elsewhere) {
        m_health.Redirect(settings, send);
        Connect(m_shared.uptime());
        return;
    }
    m_socket.TrySegments();
    if (marked && m_socket.Connected()) MarkAnew(m_shared.uptime());
}

/// What can't be marked as it should be is not sent.
void CollectorStream::MarkAnew(milliseconds now)
{
    const std::error_code error = m_socket.SetDscp(m_send.dscp);
    if (!error) return;
    m_health.Redirect(m_settings, m_send);
    m_health.Failed(Tried::kDscp, error, 1, true, now, m_shared.clock());
    m_socket.Close();
}

void CollectorStream::Next()
{
    if (m_begin < m_end) {
        CloseDatagram();
        if (!HasSpace(m_block.capacity)) {
            if (HasSpace(StreamPool::kBatch))
                Grow();
            else
                Send();
        }
    }
    Begin();
}

bool CollectorStream::HasSpace(std::size_t capacity) const
{
    return m_end + m_size <= capacity && m_closed.size() < kMaxDatagrams;
}

void CollectorStream::Grow()
{
    StreamPool::Block batch = m_shared.pool.Batch();
    // Other streams hold all large blocks: sending what waits gives them back.
    if (!batch.bytes) return m_shared.SendAll();
    std::memcpy(batch.bytes.get(), m_block.bytes.get(), m_end);
    m_shared.pool.Release(m_block);
    m_block = std::move(batch);
}

void CollectorStream::Begin()
{
    if (!m_block.bytes) m_block = m_shared.pool.Small(m_size);
    if (!m_listed) {
        m_shared.waiting.push_back(this);
        m_listed = true;
    }
    m_open = {};
    m_begin = m_end;
    m_limit = m_begin + m_size;
    m_end += wire::kDatagramHeaderSize;  // written when the datagram is closed
}

void CollectorStream::CloseDatagram()
{
    wire::DatagramHeader header;
    header.agentAddress = m_shared.agentAddress;
    header.subAgent = m_shared.subAgent;
    header.sequence = ++m_sequence;
    header.uptime = static_cast<std::uint32_t>(m_shared.uptime().count());
    header.samples = m_open.Samples();
    wire::Encode(header, std::span(m_block.bytes.get() + m_begin, wire::kDatagramHeaderSize));
    m_open.size = static_cast<std::uint16_t>(m_end - m_begin);
    m_closed.push_back(m_open);
    m_begin = m_limit = m_end;
}

void CollectorStream::Send()
{
    if (m_begin < m_end) CloseDatagram();
    if (m_closed.empty()) return;
    const milliseconds now = m_shared.uptime();
    if (!m_socket.Connected() && now - m_triedAt >= kConnectEvery) Connect(now);
    SendResult result;
    if (m_socket.Connected()) {
        if (!m_socket.Segments() && now - m_refusedAt >= kTrySegmentsEvery) {
            m_socket.TrySegments();
            m_refusedAt = now;
        }
        result = m_socket.Send(m_block.bytes.get(), m_closed);
    }
    Count(result, now);
    if (result.renew) m_socket.Close();
    m_closed.clear();
    m_shared.pool.Release(m_block);
    m_begin = m_end = m_limit = 0;
}

void CollectorStream::Count(const SendResult& result, milliseconds now)
{
    std::size_t taken = 0;
    for (std::size_t at = 0; at < m_closed.size(); ++at) {
        const bool isTaken = (result.taken >> at & 1) != 0;
        if (isTaken)
            m_health.Taken(m_closed[at]);
        else
            m_health.Lost(m_closed[at]);
        taken += isTaken ? 1 : 0;
    }
    const auto time = m_shared.clock();
    const bool all = taken == m_closed.size();
    const bool own = result.errors > 0 && !(result.earlier && all);
    if (own)
        m_health.Failed(Tried::kSend, result.error, result.errors, !all, now, time);
    else if (result.errors > 0)
        m_health.Reported(result.error, time);
    if (taken > 0) m_health.Sent(now, time);
    if (all && !own) m_health.Clean(now);
}

void CollectorStream::TakeErrors()
{
    if (!m_socket.Connected()) return;
    if (const std::error_code error = m_socket.TakeError())
        m_health.Reported(error, m_shared.clock());
    else
        m_health.Silent(m_shared.uptime());
}

void CollectorStream::Connect(milliseconds now)
{
    m_triedAt = now;
    m_refusedAt = now;
    const Connecting made = m_socket.Connect(m_settings.address, m_settings.port, m_send);
    if (made.error) m_health.Failed(made.tried, made.error, 1, true, now, m_shared.clock());
    if (!m_socket.Connected()) return;  // for lack of descriptors, say: nothing new about marks
    const std::error_code& mark = m_socket.MarkError();
    m_shared.limitation = mark ? WithoutMark(mark) : "";
}

}  // namespace manager
