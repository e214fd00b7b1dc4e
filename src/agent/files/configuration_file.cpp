// SPDX-License-Identifier: Apache-2.0
#include "agent/files/configuration_file.h"

#include <libyang/libyang.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "guard/data_file.h"
#include "guard/schema_index.h"
#include "netconf/names.h"
#include "netconf/plain_xml.h"

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

guard::Format FormatOf(const std::filesystem::path& file, const std::string& text)
{
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) FailFile(file, "it is empty");
    if (const auto format = guard::FormatOf(text)) return *format;
    FailFile(file, "it is neither JSON, which begins with '{', nor XML, which begins with '<'");
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
    std::string text = ReadFile(file);
    const guard::Format format = FormatOf(file, text);
    const guard::SchemaIndex index(schema.Context());
    if (const auto problem = guard::CheckFile(index, text, format))
        FailFile(file, guard::PlaceInText(text, problem->offset) + ": " + problem->text);
    if (format == guard::Format::kXml) text = netconf::PlainXml(std::move(text));
    ly_err_clean(schema.Context(), nullptr);
    lyd_node* raw = nullptr;
    const LY_ERR result = lyd_parse_data_mem(schema.Context(), text.c_str(),
                                             format == guard::Format::kJson ? LYD_JSON : LYD_XML,
                                             LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &raw);
    Tree tree(raw);
    if (result == LY_SUCCESS) return tree;
    const ly_err_item* last = ly_err_first(schema.Context());
    while (last != nullptr && last->next != nullptr) last = last->next;
    if (last == nullptr || last->msg == nullptr) FailFile(file, "it can't be read");
    FailFile(file,
             std::string(last->msg) + (last->path != nullptr ? " (" + std::string(last->path) + ")" : ""));
}

std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs)
{
    if (!store.Empty())
        FailFile(file, "the store in " + store.Directory().string() +
                           " has a configuration already; change it with swcli, or use another --state-dir");
    const Tree content = ReadConfiguration(schema, file);
    cdb::CommitInfo info;
    info.user = user;
    info.source = "init";
    info.timeUs = nowUs;
    std::vector<std::string> warnings;
    const auto errors = datastore.Initialize(content.get(), info, warnings);
    if (!errors.empty()) FailFile(file, TextOf(errors));
    return warnings;
}

}  // namespace agent
