#include "manager/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "log/log.h"

namespace manager {
namespace {

using Json = nlohmann::ordered_json;

struct Called {
    const char* name;
    Json arguments;
};

Called Call(const AddCollector& o)
{
    return {"AddCollector",
            {o.name, AddressText(o.settings.address), o.settings.port, o.settings.datagramSize}};
}

Called Call(const DeleteCollector& o) { return {"DeleteCollector", Json::array({o.name})}; }

Called Call(const UpdateInterface& o)
{
    return {"UpdateInterface",
            {o.interface, o.flowCollector, o.counterCollector, o.settings.rate,
             static_cast<std::int32_t>(o.settings.direction), o.settings.maxHeaderSize, o.settings.interval}};
}

Called Call(const Attach& o)
{
    return {o.kind == Kind::kFlow ? "AddSampleCollector" : "AddCounterCollector",
            Json::array({o.interface, o.collector})};
}

Called Call(const Detach& o)
{
    return {o.kind == Kind::kFlow ? "RemoveSampleCollector" : "RemoveCounterCollector",
            Json::array({o.interface, o.collector})};
}

Called Call(const UnsetInterface& o) { return {"UnsetInterface", Json::array({o.interface})}; }

Called Call(const SetAgentAddress& o) { return {"SetAgentAddress", Json::array({AddressText(o.address)})}; }

}  // namespace

std::string JournalText(const Operation& operation)
{
    Called call = std::visit([](const auto& one) { return Call(one); }, operation);
    Json line = Json::object();
    line["op"] = call.name;
    line["args"] = std::move(call.arguments);
    // A name that is no UTF-8 is still to be seen, and must not end the manager.
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Journal::Journal(std::string path) : m_path(std::move(path))
{
    m_descriptor = ::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (m_descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "cannot open the journal " + m_path);
}

Journal::~Journal() { ::close(m_descriptor); }

void Journal::NoteStep(std::string_view step) { Write(R"({"op":")" + std::string(step) + R"("})"); }

void Journal::Write(std::string line)
{
    line += '\n';
    ssize_t written = 0;
    do {
        written = ::write(m_descriptor, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0) return Failed(std::strerror(errno));
    if (static_cast<std::size_t>(written) < line.size()) {
        // Half a line would spoil the next one: take it back.
        struct stat status {};
        const bool undone =
            ::fstat(m_descriptor, &status) == 0 && ::ftruncate(m_descriptor, status.st_size - written) == 0;
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
