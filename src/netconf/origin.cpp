// SPDX-License-Identifier: Apache-2.0
#include "netconf/origin.h"

#include <boost/asio/ip/address.hpp>

namespace netconf {
namespace {

constexpr std::string_view kBeginning = "cdb-netconf-relay ssh ";

/// The address as it is usually written; empty if it is none. What follows a '%' names an interface here.
std::string Address(std::string_view text)
{
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(std::string(text.substr(0, text.find('%'))), error);
    return error ? std::string() : address.to_string();
}

}  // namespace

std::string OriginLine(std::string_view sshConnection)
{
    const std::string host = Address(sshConnection.substr(0, sshConnection.find(' ')));
    return host.empty() ? std::string() : std::string(kBeginning) + host + '\n';
}

std::optional<Origin> TakeOrigin(std::string& message)
{
    if (!message.starts_with(kBeginning)) return std::nullopt;
    const std::size_t end = message.find('\n');
    if (end == std::string::npos) return std::nullopt;
    const std::string host =
        Address(std::string_view(message).substr(kBeginning.size(), end - kBeginning.size()));
    if (host.empty()) return std::nullopt;
    message.erase(0, end + 1);
    return Origin{host};
}

}  // namespace netconf
