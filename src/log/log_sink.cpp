// SPDX-License-Identifier: Apache-2.0
// One write a line, and the escaping of control characters.

#include "log/log_sink.h"

#include <unistd.h>

#include <cerrno>
#include <mutex>

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

namespace slog {
namespace {

/// spdlog's own file sinks go through stdio, which may split a long line.
class DescriptorSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit DescriptorSink(int descriptor) : m_descriptor(descriptor) {}

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        WriteWhole(line.data(), line.size());
    }

    void flush_() override {}

private:
    /// A log that can't be written (disk full, reader gone) must not stop the process: the line is lost.
    void WriteWhole(const char* data, std::size_t size) const
    {
        while (size > 0) {
            const ssize_t written = ::write(m_descriptor, data, size);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return;
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    int m_descriptor;
};

bool IsControl(unsigned char character) { return character < 0x20 || character == 0x7f; }

}  // namespace

std::string Escaped(std::string_view text)
{
    static constexpr char kHex[] = "0123456789abcdef";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char raw : text) {
        const auto character = static_cast<unsigned char>(raw);
        if (!IsControl(character)) {
            escaped += raw;
        } else if (character == '\n') {
            escaped += "\\n";
        } else if (character == '\t') {
            escaped += "\\t";
        } else {
            escaped += "\\x";
            escaped += kHex[character >> 4];
            escaped += kHex[character & 0xf];
        }
    }
    return escaped;
}

std::shared_ptr<spdlog::logger> MakeLogger(const std::string& name, int descriptor)
{
    auto logger = std::make_shared<spdlog::logger>(name, std::make_shared<DescriptorSink>(descriptor));
    logger->set_level(spdlog::level::trace);
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%fZ %n %v",
                                                                      spdlog::pattern_time_type::utc, "\n"));
    return logger;
}

}  // namespace slog
