// SPDX-License-Identifier: Apache-2.0
#include "cli/yang.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <cstdlib>

#include "cdb/schema/schema.h"

namespace cli_test {

const ly_ctx* Yang()
{
    static const std::unique_ptr<cdb::Schema> schema = [] {
        ::setenv("TZ", "UTC", 1);  // libyang writes times with the offset of the place where it runs
        return cdb::Schema::Load(SFLOW_SOURCE_DIR "/yang");
    }();
    return schema->Context();
}

cli::Tree FromJson(const std::string& json)
{
    lyd_node* tree = nullptr;
    const LY_ERR result =
        lyd_parse_data_mem(Yang(), json.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree);
    EXPECT_EQ(result, LY_SUCCESS) << ly_errmsg(Yang()) << " in " << json;
    return cli::Tree(tree);
}

cli::Tree Sflow(const std::string& content)
{
    return FromJson(R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{)" + content + "}}}}");
}

}  // namespace cli_test
