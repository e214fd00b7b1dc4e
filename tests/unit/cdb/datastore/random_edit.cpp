// SPDX-License-Identifier: Apache-2.0
#include "random_edit.h"

#include "fixture.h"

namespace tests {

std::string RandomEdit::Operation()
{
    static const char* const kOperations[] = {"merge", "replace", "create", "delete", "remove"};
    // Mostly none, so that edits get far before one fails.
    if (Below(5) != 0) return "";
    return std::string(" nc:operation='") + kOperations[Below(5)] + "'";
}

std::string RandomEdit::Leaf(const std::string& name, const std::vector<std::string>& values)
{
    if (Below(2) == 0) return "";
    if (Below(5) == 0) return "<" + name + " nc:operation='remove'/>";
    return "<" + name + Operation() + ">" +
           values[static_cast<std::size_t>(Below(static_cast<int>(values.size())))] + "</" + name + ">";
}

std::string RandomEdit::Collector()
{
    return "<collector" + Operation() + "><name>" + Name("c", 4) + "</name>" +
           Leaf("enabled", {"true", "false"}) +
           (Below(3) != 0 ? "<ip>192.0.2." + std::to_string(Below(3)) + "</ip>" : "") +
           Leaf("datagram-size", {"1400", "300"}) + Leaf("port", {"6343", "7", "8"}) + "</collector>";
}

std::string RandomEdit::References(const std::string& list)
{
    std::string text;
    for (int i = Below(3); i > 0; --i)
        text += "<" + list + Operation() + "><name>" + Name("c", 4) + "</name></" + list + ">";
    return text;
}

std::string RandomEdit::Interface()
{
    return "<interface" + Operation() + "><name>" + Name("eth", 6) + "</name>" +
           Leaf("sampling-rate", {"4096", "512", "9"}) + Leaf("default-sampling-rate", {"4096", "512", "9"}) +
           Leaf("max-header-size", {"128", "64"}) + Leaf("polling-interval", {"20", "0"}) +
           References("flow-sampling-collector") + References("counter-sampling-collector") + "</interface>";
}

std::string RandomEdit::Management()
{
    return "<interface xmlns='urn:switch:yang:switch-interfaces'" + Operation() + "><mgmt" + Operation() +
           "><name>" + Name("m", 2) + "</name><ipv4" + Operation() + "><address" + Operation() + ">" +
           Leaf("ip", {"10.0.0.5/24", "10.0.0.6/8"}) + "</address></ipv4></mgmt></interface>";
}

std::string RandomEdit::Make()
{
    std::string inner;
    if (Below(4) == 0)
        inner += "<agent" + Operation() + ">" + Leaf("ipv4", {"192.0.2.7", "192.0.2.8"}) + "</agent>";
    for (int i = Below(4); i > 0; --i) inner += Collector();
    for (int i = Below(4); i > 0; --i) inner += Interface();
    const bool rarely = Below(12) == 0;
    const std::string oam = "<oam xmlns='urn:switch:yang:switch-oam-sflow'" + (rarely ? Operation() : "") +
                            "><sflow" + (rarely ? Operation() : "") + ">" + inner + "</sflow></oam>";
    return Config((Below(4) == 0 ? Management() : "") + oam, rarely ? Operation() : "");
}

}  // namespace tests
