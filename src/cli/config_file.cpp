// SPDX-License-Identifier: Apache-2.0
#include "cli/config_file.h"

#include <libyang/libyang.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cli/error.h"
#include "guard/data_file.h"
#include "guard/schema_index.h"
#include "netconf/names.h"
#include "netconf/xml.h"

namespace cli {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

/// The whole file. Throws Error.
std::string Content(const std::string& path)
{
    const auto refuse = [&](const std::string& why) { return Error("can't read " + path + ": " + why); };
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rbe"),
                                                                  &std::fclose);
    if (!file) throw refuse(std::strerror(errno));
    std::string text;
    char block[std::size_t{64} << 10];
    while (const std::size_t count = std::fread(block, 1, sizeof block, file.get())) {
        text.append(block, count);
        if (text.size() > netconf::kMaxMessage)
            throw refuse("it is larger than " + std::to_string(netconf::kMaxMessage >> 20) +
                         " MiB; split it and use load merge");
    }
    if (std::ferror(file.get())) throw refuse(std::strerror(errno));
    return text;
}

/// "NAME: line 3, column 7", for the byte at `offset`.
std::string PlaceInText(std::string_view name, std::string_view text, std::size_t offset)
{
    return std::string(name) + ": " + netconf::PlaceInText(text, offset);
}

guard::Format FormatOf(std::string_view text, std::string_view name)
{
    if (const auto format = guard::FormatOf(text)) return *format;
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) throw Error(std::string(name) + " is empty: line 1, column 1");
    throw Error(PlaceInText(name, text, first) +
                ": neither JSON, which begins with {, nor XML, which begins with <");
}

struct Parsed {
    Tree tree;
    bool ok = false;
    std::size_t end = 0;  // where the parser stopped; libyang reports no column
    std::string problem;
};

Parsed Parse(const ly_ctx* yang, const std::string& text, LYD_FORMAT format, std::uint32_t options)
{
    ly_in* rawInput = nullptr;
    if (ly_in_new_memory(text.c_str(), &rawInput) != LY_SUCCESS) throw Error("out of memory");
    const cdb::Owned<ly_in> input(rawInput);
    lyd_node* tree = nullptr;
    ly_err_clean(const_cast<ly_ctx*>(yang), nullptr);
    Parsed parsed;
    parsed.ok =
        lyd_parse_data(yang, nullptr, input.get(), format, LYD_PARSE_ONLY | options, 0, &tree) == LY_SUCCESS;
    parsed.tree.reset(tree);
    parsed.end = ly_in_parsed(input.get());
    if (!parsed.ok) parsed.problem = LastMessage(yang);
    return parsed;
}

}  // namespace

Tree ReadConfigFile(const ly_ctx* yang, const std::string& path)
{
    return ParseConfigText(yang, Content(path), path);
}

Tree ParseConfigText(const ly_ctx* yang, const std::string& text, std::string_view name)
{
    const guard::Format format = FormatOf(text, name);
    const guard::SchemaIndex index(yang);
    if (const auto problem = guard::CheckFile(index, text, format))
        throw Error(PlaceInText(name, text, problem->offset) + ": " + problem->text);
    const bool isXml = format == guard::Format::kXml;
    const std::string plain = isXml ? netconf::PlainXml(text) : text;
    Parsed parsed = Parse(yang, plain, isXml ? LYD_XML : LYD_JSON, LYD_PARSE_STRICT | LYD_PARSE_NO_STATE);
    if (!parsed.ok) throw Error(PlaceInText(name, plain, parsed.end) + ": " + parsed.problem);
    return std::move(parsed.tree);
}

}  // namespace cli
