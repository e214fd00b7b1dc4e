// SPDX-License-Identifier: Apache-2.0
// Keypaths as text, values' release, and the last error.

#include "platform/embedded/confd/convert.h"
#include "world.h"

#include "cdb/model/path.h"

namespace {

class KeypathTest : public World {
protected:
    KeypathTest() { Connect(); }

    /// The path parsed and printed again, into a buffer of `size`.
    std::string Printed(const std::string& text, int size, int& length)
    {
        const auto path = cdb::ParsePath(Schema(), text).value();
        confd_hkeypath_t keypath;
        embedded::MakeKeypath(Schema(), embedded::StepsOf(path), keypath);
        std::string buffer(static_cast<std::size_t>(size) + 1, '#');
        length = confd_pp_kpath(buffer.data(), size, &keypath);
        EXPECT_EQ(buffer.back(), '#');
        return buffer.c_str();
    }
};

TEST_F(KeypathTest, PrintsWhatEveryCallAccepts)
{
    for (const std::string path :
         {"/config", "/config/oam/sflow/collector{c1}", "/config/oam/sflow/collector{c1}/enabled",
          "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}/flow-sampling-collector{c1}",
          "/config/interface/mgmt{m0}/ipv4/address/ip"}) {
        int length = 0;
        EXPECT_EQ(Printed(path, 8192, length), path);
        EXPECT_EQ(length, static_cast<int>(path.size()));
    }
}

TEST_F(KeypathTest, CutsWhatDoesNotFit)
{
    int length = 0;
    EXPECT_EQ(Printed("/config/oam/sflow", 8, length), "/config");
    EXPECT_EQ(length, 17);
    EXPECT_EQ(Printed("/config/oam/sflow", 1, length), "");
    EXPECT_EQ(length, 17);
}

TEST_F(KeypathTest, LaysPositionsOutFromTheNodeUp)
{
    const auto path =
        cdb::ParsePath(Schema(), "/config/oam/sflow/interface{eth1}/flow-sampling-collector{c1}").value();
    confd_hkeypath_t keypath;
    embedded::MakeKeypath(Schema(), embedded::StepsOf(path), keypath);
    ASSERT_EQ(keypath.len, 7);
    EXPECT_STREQ(reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&keypath.v[0][0])), "c1");
    EXPECT_EQ(keypath.v[0][1].type, C_NOEXISTS);
    EXPECT_EQ(CONFD_GET_XMLTAG(&keypath.v[1][0]), 180728652U);
    EXPECT_STREQ(reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&keypath.v[2][0])), "eth1");
    EXPECT_EQ(CONFD_GET_XMLTAG(&keypath.v[3][0]), 221572658U);
    EXPECT_EQ(keypath.v[3][0].val.xmltag.ns, 116992694U);
    EXPECT_EQ(keypath.v[6][0].type, C_XMLTAG);
}

TEST_F(KeypathTest, RefusesATagThatNoElementHas)
{
    confd_hkeypath_t keypath{};
    keypath.len = 1;
    keypath.v[0][0].type = C_XMLTAG;
    keypath.v[0][0].val.xmltag.tag = 4;
    char text[8] = "before";
    EXPECT_EQ(confd_pp_kpath(text, sizeof text, &keypath), CONFD_ERR);
    EXPECT_STREQ(text, "");
    EXPECT_STREQ(confd_lasterr(), "no schema element has the tag 4");
}

TEST_F(KeypathTest, ReleasesAValueOnce)
{
    confd_value_t value = embedded::OwnedString("text");
    confd_free_value(&value);
    EXPECT_EQ(value.type, C_NOEXISTS);
    confd_free_value(&value);
    CONFD_SET_UINT32(&value, 7);
    confd_free_value(&value);
    EXPECT_EQ(value.type, C_NOEXISTS);
}

}  // namespace
