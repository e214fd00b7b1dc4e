// SPDX-License-Identifier: Apache-2.0
#include "cli/data/data_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "cli/data/error.h"
#include "cli/yang.h"

namespace {

using cli_test::Yang;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kCollector =
    R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{"collector":[{"name":"c1","ip":"192.0.2.1"}]}}}})";

std::string ErrorOf(const std::string& text)
{
    try {
        cli::ParseConfigText(Yang(), text, "x.json");
    } catch (const cli::Error& error) {
        return error.what();
    }
    return "no error";
}

TEST(ConfigText, IsJsonOrXmlByItsContent)
{
    const cli::Tree json = cli::ParseConfigText(Yang(), kCollector, "x");
    const std::string xml = cli::ToXml(json.get());
    const cli::Tree again = cli::ParseConfigText(Yang(), "\n  " + xml, "x");
    EXPECT_EQ(cli::ToJson(again.get()), cli::ToJson(json.get()));
    EXPECT_THAT(cli::ToJson(again.get()), HasSubstr("192.0.2.1"));
}

TEST(ConfigText, MayBeAnEmptyDocument) { EXPECT_EQ(cli::ParseConfigText(Yang(), "{}\n", "x"), nullptr); }

TEST(ConfigText, IsRefusedWithLineAndColumn)
{
    const struct {
        const char* name;
        const char* text;
        const char* place;
        const char* reason;
    } rows[] = {
        {"empty", "", "x.json is empty: line 1, column 1", ""},
        {"blank", " \n", "x.json is empty", ""},
        {"neither", "\n set a b", "x.json: line 2: ", "\"a\" is unknown as a path's beginning"},
        {"JSON cut off", "{\"switch-config:config\":{\n \"switch-oam-sflow:oam\":{",
         "x.json: line 2, column 25: ", "end of input"},
        {"JSON comma", "{\"switch-config:config\":{\n\n  , }}", "x.json: line 3, column 3: ", ""},
        {"something behind JSON", "{}\n{}", "x.json: line 2, column 1: ", "expected end of input"},
        {"XML cut off", "<config xmlns=\"urn:switch:yang:switch-config\">\n<oam",
         "x.json: line 2, column 5: ", ""},
        {"XML tags", "<config xmlns=\"urn:switch:yang:switch-config\">\n</confi>",
         "x.json: line 2, column 3: ", "mismatch"},
        {"something behind XML", "<config xmlns=\"urn:switch:yang:switch-config\"/>\njunk",
         "x.json: line 2, column 1: ", "the configuration holds text"},
        {"unknown leaf", "{\"switch-config:config\":{\n\"switch-oam-sflow:oam\":{\"speed\":1}}}",
         "x.json: line 2, ", "has no element \"speed\""},
        {"unknown module", "{\"nobody:config\":{}}", "x.json: line 1, ", "nobody"},
        {"value",
         "{\"switch-config:config\":{\"switch-oam-sflow:oam\":{\"sflow\":{\"interface\":[\n"
         "{\"name\":\"e1\",\"sampling-rate\":0}]}}}}",
         "x.json: line 2, ", "interface[name='e1']/sampling-rate"},
        {"both unknown and malformed",
         "<config xmlns=\"urn:switch:yang:switch-config\">\n <x>\n </y>\n</config>\n",
         "x.json: line 3, column 4: ", "mismatch"},
        {"unknown in two elements",
         "<config xmlns=\"urn:switch:yang:switch-config\">\n<x/></config>\n<y xmlns=\"urn:z\"/>",
         "x.json: line 2, ", "has no element \"x\""},
        {"state", "{\"switch-state:state\":{}}", "x.json: line 1, ", "state"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(ErrorOf(row.text), AllOf(StartsWith(row.place), HasSubstr(row.reason))) << row.name;
}

TEST(ConfigText, ANulByteIsNoEnd)
{
    EXPECT_THAT(ErrorOf(std::string("{}\n\0{}", 6)), HasSubstr("line 2, column 1: there is a zero byte"));
}

TEST(ConfigFile, ThatCannotBeReadIsNamed)
{
    const auto errorOf = [](const std::string& path) -> std::string {
        try {
            cli::ReadConfigFile(Yang(), path);
        } catch (const cli::Error& error) {
            return error.what();
        }
        return "no error";
    };
    EXPECT_EQ(errorOf("/nowhere/x.json"), "can't read /nowhere/x.json: No such file or directory");
    EXPECT_EQ(errorOf("/"), "can't read /: Is a directory");
}

TEST(ConfigFile, LargerThanAMessageIsRefused)
{
    const auto path = std::filesystem::temp_directory_path() / ("cli-large-" + std::to_string(::getpid()));
    std::ofstream(path).close();
    std::filesystem::resize_file(path, (std::uintmax_t{64} << 20) + 1);
    try {
        cli::ReadConfigFile(Yang(), path);
        ADD_FAILURE() << "no error";
    } catch (const cli::Error& error) {
        EXPECT_THAT(error.what(), HasSubstr("it is larger than 64 MiB"));
    }
    std::filesystem::remove(path);
}

}  // namespace
