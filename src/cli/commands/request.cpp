// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/request.h"

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <utility>

#include "cli/data/error.h"
#include "cli/data/words.h"
#include "netconf/client.h"

namespace cli {
namespace {

constexpr std::size_t kMaxErrors = 10;

std::string_view WithoutPrefix(std::string_view name)
{
    const std::size_t colon = name.find(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

/// Takes "[p:key='value']" from the front of `path`, and appends the value to `words`.
bool TakePredicate(std::string_view& path, std::string& words)
{
    const std::size_t equals = path.find('=');
    if (equals == std::string_view::npos || equals + 1 >= path.size()) return false;
    const char quote = path[equals + 1];
    if (quote != '\'' && quote != '"') return false;
    const std::size_t close = path.find(quote, equals + 2);
    if (close == std::string_view::npos || path.substr(close + 1, 1) != "]") return false;
    words += ' ' + Quoted(path.substr(equals + 2, close - equals - 2));
    path.remove_prefix(close + 2);
    return true;
}

/// The path without the modules' names: /config/oam
std::string WithoutPrefixes(std::string_view path)
{
    std::string plain;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/', 1), path.size());
        plain.append("/").append(WithoutPrefix(path.substr(1, end - 1)));
        path.remove_prefix(end);
    }
    return plain;
}

/// The database's own sentence, which names what it is about.
std::string MessageOf(const netconf::RpcError& error)
{
    return error.message.empty() ? ToText(error) : error.message;
}

/// The errors or the warnings in lines, at most kMaxErrors of them; empty if there are none.
std::string Listed(const netconf::Reply& reply, bool warnings,
                   std::string (*textOf)(const netconf::RpcError& error) = &ToText)
{
    std::string text;
    std::size_t count = 0;
    for (const netconf::RpcError& error : reply.errors) {
        if (error.IsWarning() != warnings || ++count > kMaxErrors) continue;
        text += (text.empty() ? "" : "\n  ") + textOf(error);
    }
    if (count > kMaxErrors) text += "\n  and " + std::to_string(count - kMaxErrors) + " more";
    return text;
}

/// Writes warnings unless they are left to the caller of a good answer, throws errors.
void Check(Call& call, const netconf::Reply& reply, Warnings warnings = Warnings::kTold)
{
    if (warnings == Warnings::kTold || !reply.ok) TellWarnings(call, reply);
    if (reply.ok) return;
    const std::string problems = Listed(reply, false);
    if (problems.empty()) throw Error("the database refused without a reason");
    const auto first =
        std::ranges::find_if(reply.errors, [](const auto& error) { return !error.IsWarning(); });
    throw Refused(problems, PathAsWords(first->path));
}

}  // namespace

std::string PathAsWords(std::string_view path)
{
    constexpr std::string_view kRoot = "config";
    std::string words;
    std::string_view rest = path;
    for (bool first = true; !rest.empty(); first = false) {
        if (rest.front() != '/') return std::string(path);
        rest.remove_prefix(1);
        const std::size_t end = std::min(rest.find_first_of("/["), rest.size());
        const std::string_view name = WithoutPrefix(rest.substr(0, end));
        rest.remove_prefix(end);
        if (!first || name != kRoot) words += (words.empty() ? "" : " ") + std::string(name);
        while (!rest.empty() && rest.front() == '[')
            if (!TakePredicate(rest, words)) return std::string(path);
    }
    return words.empty() ? std::string(path) : words;
}

std::string ToText(const netconf::RpcError& error)
{
    std::string text = error.message.empty() ? error.tag : error.message;
    if (error.path.empty() || text.find(error.path) != std::string::npos) return text;
    if (text.find(WithoutPrefixes(error.path)) != std::string::npos) return text;
    const std::string words = PathAsWords(error.path);
    return text.find(words) != std::string::npos ? text : words + ": " + text;
}

void TellWarnings(const Call& call, const netconf::Reply& reply)
{
    for (const netconf::RpcError& error : reply.errors)
        if (error.IsWarning()) call.err << "warning: " << ToText(error) << std::endl;
}

netconf::Reply RequestReply(Call& call, std::string_view operation, Warnings warnings)
{
    netconf::Reply reply = call.session->Call(operation);
    Check(call, reply, warnings);
    return reply;
}

std::string Request(Call& call, std::string_view operation)
{
    return std::move(RequestReply(call, operation).data);
}

Tree RequestData(Call& call, std::string_view operation)
{
    return ParseReply(call.yang, Request(call, operation));
}

Tree RequestState(Call& call, std::string_view operation)
{
    netconf::Reply reply = call.session->Call(operation);
    const std::string missing = Listed(reply, true, &MessageOf);
    if (reply.ok && reply.data.empty() && !missing.empty()) throw MissingState(missing);
    Check(call, reply);
    return ParseReply(call.yang, reply.data);
}

}  // namespace cli
