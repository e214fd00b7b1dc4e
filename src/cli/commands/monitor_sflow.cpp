// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/monitor_sflow.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "cli/commands/interrupt.h"
#include "cli/commands/monitor_screen.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"
#include "cli/screens/sflow_watch.h"
#include "netconf/client.h"
#include "netconf/requests.h"
#include "netconf/socket.h"

namespace cli {
namespace {

std::string TimeText()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

/// Waits to the next second of the clock that never goes back. False once SIGINT has come.
bool AwaitNext(const Interrupt& interrupt, std::chrono::steady_clock::time_point& next)
{
    using namespace std::chrono;
    const auto now = steady_clock::now();
    next = std::max(next + seconds(1), now);
    pollfd wait{interrupt.Descriptor(), POLLIN, 0};
    const auto left = ceil<milliseconds>(next - now).count();
    return ::poll(&wait, 1, static_cast<int>(left)) == 0;
}

/// Of "2026-11-23T15:00:00Z" that of the day: lines are short, and JSON has the rest.
std::string_view OfDay(std::string_view time) { return time.substr(time.find('T') + 1); }

/// Throws netconf::Stopped.
std::string Line(Call& call, SflowWatch& watch, const Interrupt& interrupt,
                 std::unique_ptr<netconf::Client>& session)
{
    const std::string time = TimeText();
    std::string why;
    try {
        if (!session) session = call.connect();
        session->StopAt(interrupt.Descriptor());
        const netconf::Reply reply =
            session->Call(netconf::Get(StateFilter("<oam><sflow>" + watch.Filter() + "</sflow></oam>")));
        if (reply.ok) {
            const Tree state = ParseReply(call.yang, reply.data);
            const Watched watched = watch.Look(state.get(), std::chrono::steady_clock::now());
            if (watched.isKnown || reply.errors.empty())
                return call.format == Format::kText ? watch.Text(watched, OfDay(time), call.width)
                                                    : watch.Json(watched, time);
        }
        why = reply.errors.empty() ? "the database refused without a reason" : reply.errors.front().message;
    } catch (const netconf::ConnectionError& error) {
        session.reset();  // the next look connects again
        why = error.what();
    }
    return call.format == Format::kText ? FailedText(why, OfDay(time), call.width) : FailedJson(why, time);
}

}  // namespace

void MonitorSflow(Call& call)
{
    const std::string interface = call.arguments.Named("interface");
    const std::string collector = call.arguments.Named("collector");
    if (!interface.empty() && !collector.empty()) throw Error("give an interface or a collector, not both");
    if (call.format == Format::kXml) throw Error("the lines are text or, behind | json, JSON");
    SflowWatch watch(collector.empty() ? "interface" : "collector", interface + collector);
    if (call.format == Format::kText && call.openScreen && MonitorOnScreen(call, call.openScreen, watch))
        return;
    const Interrupt interrupt;
    std::unique_ptr<netconf::Client> session = call.connect();  // of which the first failure is the command's
    auto next = std::chrono::steady_clock::now();
    try {
        do {
            call.out << Line(call, watch, interrupt, session) << std::endl;
            if (!call.out) throw Error("standard output can't be written");
        } while (AwaitNext(interrupt, next));
    } catch (const netconf::Stopped&) {
        return;  // SIGINT has come while a line was asked for
    }
}

}  // namespace cli
