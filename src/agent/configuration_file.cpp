// Reads a configuration file.

#include "agent/configuration_file.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "netconf/names.h"
#include "netconf/xml.h"

namespace agent {
namespace {

std::string ReadFile(const std::filesystem::path& file)
{
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) FailFile(file, "it is a directory, not a file");
    std::ifstream stream(file, std::ios::binary);
    if (!stream) FailFile(file, std::string("can't be read: ") + std::strerror(errno));
    std::string text;
    std::vector<char> block(1 << 16);
    while (stream.read(block.data(), static_cast<std::streamsize>(block.size())) || stream.gcount() > 0) {
        text.append(block.data(), static_cast<std::size_t>(stream.gcount()));
        if (text.size() > netconf::kMaxMessage)
            FailFile(file, "it is longer than " + std::to_string(netconf::kMaxMessage) + " bytes");
    }
    return text;
}

/// Whether the text is JSON, by its first character.
bool IsJson(const std::filesystem::path& file, const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) FailFile(file, "it is empty");
    if (text[first] == '{') return true;
    if (text[first] == '<') return false;
    FailFile(file, "it is neither JSON, which begins with '{', nor XML, which begins with '<'");
}

/// What is malformed, with line and column; libyang tells the line only.
std::optional<std::string> Malformed(const std::string& text, bool isJson)
{
    if (!isJson) return netconf::CheckXml(text);
    try {
        int depth = 0;
        // Keeps no value: the file may be large.
        const auto drop = [&depth](int level, nlohmann::json::parse_event_t, nlohmann::json&) {
            depth = std::max(depth, level);
            return false;
        };
        [[maybe_unused]] const auto nothing = nlohmann::json::parse(text, drop);
        if (depth > static_cast<int>(netconf::kMaxDepth)) return "it is nested too deep";
    } catch (const nlohmann::json::parse_error& error) {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
        const std::string what = error.what();
        const std::size_t at = what.find("line ");
        return at == std::string::npos ? what : what.substr(at);
    }
    return std::nullopt;
}

}  // namespace

void FailFile(const std::filesystem::path& file, const std::string& what)
{
    throw cdb::FatalError(file.string() + ": " + what);
}

std::string TextOf(const std::vector<cdb::Error>& errors)
{
    std::string text;
    for (const cdb::Error& error : errors) text += (text.empty() ? "" : "; ") + error.message;
    return text;
}

Tree ReadConfiguration(const cdb::Schema& schema, const std::filesystem::path& file)
{
    const std::string text = ReadFile(file);
    const bool isJson = IsJson(file, text);
    if (const auto problem = Malformed(text, isJson)) FailFile(file, *problem);
    ly_err_clean(schema.Context(), nullptr);
    lyd_node* raw = nullptr;
    const LY_ERR result = lyd_parse_data_mem(schema.Context(), text.c_str(), isJson ? LYD_JSON : LYD_XML,
                                             LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &raw);
    Tree tree(raw);
    if (result == LY_SUCCESS) return tree;
    const ly_err_item* last = ly_err_first(schema.Context());
    while (last != nullptr && last->next != nullptr) last = last->next;
    if (last == nullptr || last->msg == nullptr) FailFile(file, "it can't be read");
    FailFile(file,
             std::string(last->msg) + (last->path != nullptr ? " (" + std::string(last->path) + ")" : ""));
}

}  // namespace agent
