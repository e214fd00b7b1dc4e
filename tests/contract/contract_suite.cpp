// SPDX-License-Identifier: Apache-2.0
// The parts that the suite's tests share.

#include "contract/contract_suite.h"

#include <arpa/inet.h>

namespace contract {

namespace {

std::string Dotted(in_addr address)
{
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

}  // namespace

std::string ToText(const confd_value_t& value)
{
    switch (value.type) {
    case C_BUF:
        return "\"" + std::string(reinterpret_cast<const char*>(value.val.buf.ptr), value.val.buf.size) +
               "\"";
    case C_BOOL:
        return value.val.boolean != 0 ? "true" : "false";
    case C_UINT16:
        return "u16 " + std::to_string(value.val.u16);
    case C_UINT32:
        return "u32 " + std::to_string(value.val.u32);
    case C_IPV4:
        return Dotted(value.val.ip);
    case C_IPV4_AND_PLEN:
        return Dotted(value.val.ipv4prefix.ip) + "/" + std::to_string(value.val.ipv4prefix.len);
    case C_NOEXISTS:
        return "none";
    default:
        return "type " + std::to_string(value.type);
    }
}

KeypathBuilder::KeypathBuilder()
{
    for (auto& position : m_keypath.v) {
        for (confd_value_t& value : position) CONFD_SET_NOEXISTS(&value);
    }
}

KeypathBuilder& KeypathBuilder::Element(std::uint32_t tag, std::int32_t ns)
{
    confd_value_t& value = m_keypath.v[m_keypath.len++][0];
    value.type = C_XMLTAG;
    value.val.xmltag = {tag, static_cast<std::uint32_t>(ns)};
    return *this;
}

KeypathBuilder& KeypathBuilder::Key(const std::string& key)
{
    m_keys.push_back(key);
    confd_value_t& value = m_keypath.v[m_keypath.len++][0];
    value.type = C_BUF;
    value.val.buf.ptr = reinterpret_cast<unsigned char*>(m_keys.back().data());
    value.val.buf.size = static_cast<unsigned>(key.size());
    return *this;
}

}  // namespace contract

void ContractTest::Configure(const std::string& members)
{
    platform->Load("{\"switch-config:config\": {" + members + "}}");
}

void ContractTest::ConfigureSFlow(const std::string& members)
{
    Configure("\"switch-oam-sflow:oam\": {\"sflow\": {" + members + "}}");
}

std::unique_ptr<QxConfdCdbSessionBase> ContractTest::Session()
{
    return std::make_unique<QxConfdCdbSessionBase>(platform->Confd(), CDB_RUNNING, true);
}

std::vector<std::string> ContractTest::Object(int sock, int n, const std::string& path)
{
    std::vector<confd_value_t> values(static_cast<std::size_t>(n));
    if (cdb_get_object(sock, values.data(), n, "%s", path.c_str()) < 0) return {"error"};
    std::vector<std::string> texts;
    for (confd_value_t& value : values) {
        texts.push_back(contract::ToText(value));
        confd_free_value(&value);
    }
    return texts;
}

std::vector<std::string> ContractTest::Objects(int sock, int n, int first, int count, const std::string& path)
{
    std::vector<confd_value_t> values(static_cast<std::size_t>(n) * static_cast<std::size_t>(count));
    if (cdb_get_objects(sock, values.data(), n, first, count, "%s", path.c_str()) < 0) return {"error"};
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i % static_cast<std::size_t>(n) == 0) {
            texts.emplace_back();
        } else {
            texts.back() += " ";
        }
        texts.back() += contract::ToText(values[i]);
        confd_free_value(&values[i]);
    }
    return texts;
}

std::string ContractTest::Leaf(int sock, const std::string& path)
{
    contract::Read value;
    if (cdb_get(sock, value.Get(), "%s", path.c_str()) == CONFD_OK) return contract::ToText(*value.Get());
    return *confd_lasterr() == 0 ? "error without a reason" : "error";
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ContractTest);
