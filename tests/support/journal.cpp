// SPDX-License-Identifier: Apache-2.0
// The manager's journal as tests read it (see the header).

#include "support/journal.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "support/poll.h"

namespace support {

namespace {

using nlohmann::json;

std::string ArgumentText(const json& argument)
{
    if (!argument.is_string()) return argument.dump();
    const auto text = argument.get<std::string>();
    return text.empty() ? "-" : text;
}

std::string CallText(const std::string& line)
{
    const json parsed = json::parse(line, nullptr, false);
    if (!parsed.is_object() || !parsed.contains("op"))
        throw std::runtime_error("not a journal line: " + line);
    std::string text = parsed.at("op").get<std::string>();
    if (parsed.contains("args"))
        for (const auto& argument : parsed.at("args")) text += " " + ArgumentText(argument);
    return text;
}

Calls ReadFrom(const std::filesystem::path& path, std::uintmax_t& offset)
{
    Calls calls;
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(offset));
    std::string line;
    while (std::getline(file, line) && !file.eof()) {
        offset += line.size() + 1;
        calls.push_back(CallText(line));
    }
    return calls;
}

std::string Joined(const Calls& calls)
{
    std::string text;
    for (const auto& call : calls) text += "\n  " + call;
    return text.empty() ? " nothing" : text;
}

}  // namespace

Calls Journal::Next() { return ReadFrom(m_path, m_offset); }

Calls Journal::All() const
{
    std::uintmax_t offset = 0;
    return ReadFrom(m_path, offset);
}

Calls Journal::Until(const std::string& last)
{
    Calls calls;
    std::size_t end = 0;
    const bool found = Becomes([&] {
        for (auto& call : Next()) calls.push_back(std::move(call));
        while (end < calls.size())
            if (calls[end++] == last) return true;
        return false;
    });
    if (!found)
        throw TimedOut("the call did not come in time: \"" + last + "\"; there came:" + Joined(calls));
    return calls;
}

std::ostream& operator<<(std::ostream& out, const ManagerState& state)
{
    out << "agent " << state.agent << '\n';
    for (const auto& [name, values] : state.collectors) out << "collector " << name << ": " << values << '\n';
    for (const auto& [name, interface] : state.interfaces) {
        out << "interface " << name << ": " << interface.numbers << "; flow";
        for (const auto& collector : interface.sample) out << ' ' << collector;
        out << "; counter";
        for (const auto& collector : interface.counter) out << ' ' << collector;
        out << '\n';
    }
    return out;
}

}  // namespace support
