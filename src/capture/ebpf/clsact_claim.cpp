// SPDX-License-Identifier: Apache-2.0
// A listening socket that holds the name, and the credentials of its holder (unix(7): abstract names,
// SO_PEERCRED).

#include "capture/ebpf/clsact_claim.h"

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace capture {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kClaim = "\0sflow-clsact"sv;
constexpr int kMaxAskers = 128;  // from one Tend to the next

int OnClaim(const base::UniqueFd& file, int (*call)(int, const sockaddr*, socklen_t))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, kClaim.data(), kClaim.size());
    return call(file.Get(), reinterpret_cast<const sockaddr*>(&address),
                static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + kClaim.size()));
}

base::UniqueFd NewSocket()
{
    return base::UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

std::optional<pid_t> TrustedHolder()
{
    const base::UniqueFd file = NewSocket();
    if (!file) return std::nullopt;
    ucred holder{};  // as of its call of listen
    socklen_t length = sizeof(holder);
    const bool told = OnClaim(file, ::connect) == 0 &&
                      ::getsockopt(file.Get(), SOL_SOCKET, SO_PEERCRED, &holder, &length) == 0;
    if (!told || (holder.uid != 0 && holder.uid != ::geteuid())) return std::nullopt;
    return holder.pid;
}

}  // namespace

void ClsactClaim::Tend()
{
    if (!m_file) return Take();
    for (int count = 0; count <= kMaxAskers; ++count) {  // the kernel lets one more wait
        const base::UniqueFd asker(::accept4(m_file.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!asker) return;
    }
}

void ClsactClaim::Take()
{
    m_other.reset();
    base::UniqueFd file = NewSocket();
    if (file && OnClaim(file, ::bind) == 0 && ::listen(file.Get(), kMaxAskers) == 0) {
        m_file = std::move(file);
        return;
    }
    file.Close();
    m_other = TrustedHolder();
}

}  // namespace capture
