// SPDX-License-Identifier: Apache-2.0
#include "manager/service/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "log/log.h"

namespace manager {
namespace {

/// The name as a JSON string. Nearly every name stands as it is, and forty thousand of them come with
/// the load of a large configuration.
std::string Quoted(const std::string& name)
{
    const bool plain = std::all_of(name.begin(), name.end(),
                                   [](char c) { return c >= ' ' && c < '\x7f' && c != '"' && c != '\\'; });
    if (plain) return '"' + name + '"';
    // A name that is not UTF-8 is still shown, and must not end the manager.
    return nlohmann::json(name).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

template <typename... Arguments>
std::string Line(std::string_view name, const Arguments&... arguments)
{
    std::string line = fmt::format(R"({{"op":"{}","args":[)", name);
    std::string_view separator;
    ((line += separator, line += arguments, separator = ","), ...);
    return line += "]}";
}

template <typename Number>
std::string Digits(Number number)
{
    return fmt::format_int(static_cast<std::int64_t>(number)).str();
}

std::string Text(const AddCollector& o)
{
    return Line("AddCollector", Quoted(o.name), Quoted(AddressText(o.settings.address)),
                Digits(o.settings.port), Digits(o.settings.datagramSize));
}

std::string Text(const DeleteCollector& o) { return Line("DeleteCollector", Quoted(o.name)); }

std::string Text(const UpdateInterface& o)
{
    return Line("UpdateInterface", Quoted(o.interface), Quoted(o.flowCollector), Quoted(o.counterCollector),
                Digits(o.settings.rate), Digits(o.settings.direction), Digits(o.settings.maxHeaderSize),
                Digits(o.settings.interval));
}

std::string Text(const Attach& o)
{
    return Line(o.kind == Kind::kFlow ? "AddSampleCollector" : "AddCounterCollector", Quoted(o.interface),
                Quoted(o.collector));
}

std::string Text(const Detach& o)
{
    return Line(o.kind == Kind::kFlow ? "RemoveSampleCollector" : "RemoveCounterCollector",
                Quoted(o.interface), Quoted(o.collector));
}

std::string Text(const UnsetInterface& o) { return Line("UnsetInterface", Quoted(o.interface)); }

std::string Text(const SetAgentAddress& o) { return Line("SetAgentAddress", Quoted(AddressText(o.address))); }

}  // namespace

std::string JournalText(const Operation& operation)
{
    return std::visit([](const auto& one) { return Text(one); }, operation);
}

Journal::Journal(std::string path)
    : m_path(std::move(path)), m_file(::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640))
{
    if (!m_file) throw std::system_error(errno, std::generic_category(), "cannot open the journal " + m_path);
    // A slow reader of a pipe loses lines; the manager does not wait for it.
    ::fcntl(m_file.Get(), F_SETFL, O_APPEND | O_NONBLOCK);
}

void Journal::NoteStep(std::string_view step) { Write(R"({"op":")" + std::string(step) + R"("})"); }

void Journal::Write(std::string line)
{
    line += '\n';
    ssize_t written = 0;
    do {
        written = ::write(m_file.Get(), line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0) return Failed(std::strerror(errno));
    if (static_cast<std::size_t>(written) < line.size()) {
        // Half a line would spoil the next one: take it back.
        struct stat status {};
        const bool undone =
            ::fstat(m_file.Get(), &status) == 0 && ::ftruncate(m_file.Get(), status.st_size - written) == 0;
        return Failed(undone ? "no space for the whole line"
                             : "no space for the whole line, half of it stays");
    }
    if (std::exchange(m_failing, false))
        slog::Notice("the journal {} is written again; {} lines are missing", m_path, m_errors);
}

void Journal::Failed(std::string_view reason)
{
    ++m_errors;
    if (!std::exchange(m_failing, true))
        slog::Error("cannot write to the journal {}: {}; going on without it", m_path, reason);
}

}  // namespace manager
