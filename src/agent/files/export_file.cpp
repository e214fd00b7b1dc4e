// SPDX-License-Identifier: Apache-2.0
// Writes a store's configuration to a file and reads one.

#include "agent/files/export_file.h"

#include <fcntl.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <string_view>

#include "agent/files/configuration_file.h"
#include "base/unique_fd.h"
#include "cdb/datastore/tree_load.h"
#include "cdb/store/store.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

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
    if (!datastore.Changed()) {
        datastore.Discard();
        return false;
    }
    cdb::CommitInfo info;
    info.user = user;
    info.source = "import";
    info.timeUs = nowUs;
    const auto result = datastore.Commit(info);
    if (result) return true;
    datastore.Discard();
    FailFile(file, TextOf(result.error()));
}

}  // namespace agent
