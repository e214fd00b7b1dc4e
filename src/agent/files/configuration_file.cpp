// SPDX-License-Identifier: Apache-2.0
#include "agent/files/configuration_file.h"

#include <fcntl.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <ostream>
#include <string_view>

#include "agent/data/yang_tree.h"
#include "base/unique_fd.h"
#include "cdb/datastore/tree_load.h"
#include "guard/data_file.h"
#include "guard/schema_index.h"
#include "netconf/names.h"
#include "netconf/xml.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

/// Throws cdb::FatalError that names the file.
[[noreturn]] void FailFile(const fs::path& file, const std::string& what)
{
    throw cdb::FatalError(file.string() + ": " + what);
}

std::string ReadFile(const fs::path& file)
{
    std::error_code error;
    if (fs::is_directory(file, error)) FailFile(file, "it is a directory, not a file");
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

guard::Format FormatOf(const fs::path& file, const std::string& text)
{
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) FailFile(file, "it is empty");
    if (const auto format = guard::FormatOf(text)) return *format;
    FailFile(file, "it is neither JSON, which begins with '{', nor XML, which begins with '<'");
}

/// The file's content, not validated; its first character tells the format. Throws cdb::FatalError that names
/// the file and, for wrong content, its place in the text or its data path.
Tree ReadConfiguration(const cdb::Schema& schema, const fs::path& file)
{
    std::string text = ReadFile(file);
    const guard::Format format = FormatOf(file, text);
    const guard::SchemaIndex index(schema.Context());
    if (const auto problem = guard::CheckFile(index, text, format))
        FailFile(file, netconf::PlaceInText(text, problem->offset) + ": " + problem->text);
    if (format == guard::Format::kXml) text = netconf::PlainXml(std::move(text));
    ly_err_clean(schema.Context(), nullptr);
    lyd_node* raw = nullptr;
    const LY_ERR result = lyd_parse_data_mem(schema.Context(), text.c_str(),
                                             format == guard::Format::kJson ? LYD_JSON : LYD_XML,
                                             LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &raw);
    Tree tree(raw);
    if (result == LY_SUCCESS) return tree;
    const ly_err_item* last = ly_err_last(schema.Context());
    if (last == nullptr || last->msg == nullptr) FailFile(file, "it can't be read");
    FailFile(file,
             std::string(last->msg) + (last->path != nullptr ? " (" + std::string(last->path) + ")" : ""));
}

std::string Print(const lyd_node* tree, LYD_FORMAT format, std::uint32_t options)
{
    char* text = nullptr;
    const LY_ERR result =
        lyd_print_mem(&text, tree, format, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_WD_EXPLICIT | options);
    std::string printed = cdb::TakeText(text);
    if (result != LY_SUCCESS) throw cdb::FatalError("the configuration can't be printed");
    return printed;
}

/// A text that can be imported again, also for an empty configuration.
std::string Printed(const lyd_node* tree, LYD_FORMAT format)
{
    std::string text = Print(tree, format, 0);
    if (format == LYD_XML && text.empty()) text = Print(tree, format, LYD_PRINT_KEEPEMPTYCONT);
    if (!text.ends_with('\n')) text += '\n';
    return text;
}

bool WriteAll(int file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void Replace(const fs::path& file, const std::string& text)
{
    std::string aside = file.string() + ".XXXXXX";
    base::UniqueFd output(mkostemp(aside.data(), O_CLOEXEC));
    if (!output) FailFile(file, std::string("can't be written: ") + std::strerror(errno));
    const bool written = WriteAll(output.Get(), text) && fsync(output.Get()) == 0;
    int code = written ? 0 : errno;
    output.Close();
    if (code == 0 && rename(aside.c_str(), file.c_str()) != 0) code = errno;
    if (code == 0) return;
    unlink(aside.c_str());
    FailFile(file, std::string("can't be written: ") + std::strerror(code));
}

}  // namespace

std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const fs::path& file,
                                         const std::string& user, std::int64_t nowUs)
{
    if (!store.Empty())
        FailFile(file, "the store in " + store.Directory().string() +
                           " has a configuration already; change it with swcli, or use another --state-dir");
    const Tree content = ReadConfiguration(schema, file);
    std::vector<std::string> warnings;
    const auto errors =
        datastore.Initialize(content.get(), {.user = user, .source = "init", .timeUs = nowUs}, warnings);
    if (!errors.empty()) FailFile(file, TextOf(errors));
    return warnings;
}

void ExportFile(const cdb::Schema& schema, const fs::path& stateDirectory, const fs::path& file,
                std::ostream& out)
{
    const bool toOutput = file == "-";
    const bool isXml = file.extension() == ".xml";
    if (!toOutput && !isXml && file.extension() != ".json")
        FailFile(file,
                 "its ending says no form; name a file that ends in .json or .xml, or - for standard output");
    const auto reader = cdb::StoreReader::Open(stateDirectory);
    if (!(reader->Schema() == schema.Table()))
        throw cdb::FatalError(
            "the store in " + stateDirectory.string() +
            " was written with other YANG modules; name these with --yang-dir, or start cdbd once "
            "with the new ones");
    const auto rows = cdb::MakeRowView(*reader);
    const auto tree = cdb::LoadTree(schema, *rows);
    const std::string text = Printed(tree.get(), isXml ? LYD_XML : LYD_JSON);
    if (!toOutput) return Replace(file, text);
    out << text << std::flush;
    if (!out) FailFile(file, "standard output takes nothing");
}

bool ImportFile(const cdb::Schema& schema, cdb::Datastore& datastore, const fs::path& file,
                const std::string& user, std::int64_t nowUs)
{
    const Tree content = ReadConfiguration(schema, file);
    const auto error = datastore.Edit(content.get(), cdb::DefaultOperation::kReplace, {});
    if (error) FailFile(file, error->message);
    // Without a change, too: what waits for its confirmation is then not rolled back.
    const auto result = datastore.Commit({.user = user, .source = "import", .timeUs = nowUs});
    if (result) return result->rows > 0;
    datastore.Discard();
    FailFile(file, TextOf(result.error()));
}

}  // namespace agent
