// SPDX-License-Identifier: Apache-2.0
#include "cli/watching.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <chrono>

#include "cli/yang.h"

namespace cli_test {
namespace {

std::string Leaf(const std::string& name, const std::string& value)
{
    return "<" + name + ">" + value + "</" + name + ">";
}

std::string Leaf(const std::string& name, int value) { return Leaf(name, std::to_string(value)); }

/// Its rate rises by a tenth of the first second's in each second; the third one has stopped after 30 s.
std::string Interface(int number, int second)
{
    const int moving = number == 3 ? std::min(second, 30) : second;
    int packets = 0;
    for (int i = 0; i < moving; ++i) packets += 12000 / number * (10 + i) / 10;
    const int samples = packets / 100;
    return "<interface>" + Leaf("name", "gigabit-ethernet-1/1/" + std::to_string(number)) +
           Leaf("sampling-rate", 100) + Leaf("flow-collector", "c1") + Leaf("counter-collector", "far") +
           Leaf("kernel-interface", "p" + std::to_string(number)) + Leaf("packet-source", "tcx") +
           Leaf("packets-seen", packets) + Leaf("packets-sampled", samples) +
           Leaf("sampled-bytes", samples * 500) + (number == 3 ? Leaf("problem", "no-traffic") : "") +
           "</interface>";
}

std::string Problem(const std::string& subject, const std::string& name, const std::string& reason,
                    const std::string& severity, const std::string& text)
{
    return "<problem>" + Leaf("subject", subject) + Leaf("name", name) + Leaf("reason", reason) +
           Leaf("severity", severity) + Leaf("text", text) + "</problem>";
}

std::string Missing(int number)
{
    return "<interface>" + Leaf("name", "gigabit-ethernet-1/1/" + std::to_string(number)) +
           Leaf("packet-source", "none") + Leaf("packets-seen", 0) + Leaf("packets-sampled", 0) +
           Leaf("sampled-bytes", 0) + Leaf("problem", "interface-missing") + "</interface>";
}

}  // namespace

cli::Tree AnyXml(const std::string& xml)
{
    lyd_node* tree = nullptr;
    const LY_ERR result =
        lyd_parse_data_mem(Yang(), xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree);
    EXPECT_EQ(result, LY_SUCCESS) << ly_errmsg(Yang()) << " in " << xml;
    return cli::Tree(tree);
}

cli::Tree StateAfter(int second, int interfaces, const std::string& one)
{
    std::string content =
        "<manager><session>loaded</session><samples-per-second>240</samples-per-second>"
        "<datagrams-per-second>35</datagrams-per-second></manager>";
    for (const char* name : {"c1", "far"})
        content += "<collector>" + Leaf("name", name) +
                   Leaf("sending", std::string(name) == "c1" ? "true" : "false") +
                   (std::string(name) == "far" ? Leaf("problem", "no-route") : "") + "</collector>";
    for (int i = 1; i <= interfaces; ++i)
        if (one.empty() || one.ends_with("/" + std::to_string(i)))
            content += i == 7 ? Missing(i) : Interface(i, second);
    if (!one.empty())
        content += "<kernel-interface><name>p1</name><speed>1000000000</speed></kernel-interface>";
    if (one.empty())
        content += Problem("collector", "far", "no-route", "broken", "no route to 203.0.113.1; give it one");
    if (interfaces >= 7 && (one.empty() || one.ends_with("/7")))
        content +=
            Problem("interface", "gigabit-ethernet-1/1/7", "interface-missing", "broken",
                    "no interface of the kernel has this name or alias; ip link shows those that there are");
    if (one.empty() || one.ends_with("/3"))
        content +=
            Problem("interface", "gigabit-ethernet-1/1/3", "no-traffic", "idle", "no packet has passed");
    return AnyXml("<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow>" + content +
                  "</sflow></oam></state>");
}

Watching::Watching(int seconds, int interfaces, const std::string& one)
{
    watch.Turn(one);
    for (int second = 0; second <= seconds; ++second) {
        now = cli::SflowWatch::Time(std::chrono::seconds(100 + second));
        watched = watch.Look(StateAfter(second, interfaces, one).get(), now);
    }
    view.inside = one;
}

cli::WatchScene Watching::Scene() const
{
    return {watch, watched, now, "15:00:00Z", "spine1", failure, pausedSince, talkers};
}

std::string Watching::Screen(cli::ScreenSize size, cli::Charset charset, bool styles) const
{
    std::string screen;
    for (const cli::StyledLine& line : cli::WatchScreen(Scene(), view, size, charset)) {
        EXPECT_LE(cli::Width(line), size.columns);
        std::string text, notes;
        for (const cli::StyledText& part : line) {
            text += part.text;
            if (part.style == cli::TextStyle{} || part.text.empty()) continue;
            static constexpr std::array kTones = {"", "broken", "warning"};
            notes += std::string(" [") + kTones.at(static_cast<std::size_t>(part.style.tone)) +
                     (part.style.bold ? " bold" : "") + (part.style.reverse ? " reverse" : "") + "]";
        }
        text.erase(text.find_last_not_of(' ') + 1);
        screen += text + (styles ? notes : "") + "\n";
    }
    return screen;
}

}  // namespace cli_test
