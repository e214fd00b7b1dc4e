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

int OnClaim(int file, int (*call)(int, const sockaddr*, socklen_t))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, kClaim.data(), kClaim.size());
    return call(file, reinterpret_cast<const sockaddr*>(&address),
                static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + kClaim.size()));
}

int NewSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

std::optional<pid_t> TrustedHolder()
{
    const int file = NewSocket();
    if (file < 0) return std::nullopt;
    ucred holder{};  // as of its call of listen
    socklen_t length = sizeof(holder);
    const bool told =
        OnClaim(file, ::connect) == 0 && ::getsockopt(file, SOL_SOCKET, SO_PEERCRED, &holder, &length) == 0;
    ::close(file);
    if (!told || (holder.uid != 0 && holder.uid != ::geteuid())) return std::nullopt;
    return holder.pid;
}

}  // namespace

ClsactClaim::ClsactClaim(ClsactClaim&& other) noexcept
    : m_file(std::exchange(other.m_file, -1)), m_other(other.m_other)
{
}

ClsactClaim::~ClsactClaim()
{
    if (m_file >= 0) ::close(m_file);
}

void ClsactClaim::Tend()
{
    if (m_file < 0) return Take();
    for (int count = 0; count <= kMaxAskers; ++count) {  // the kernel lets one more wait
        const int asker = ::accept4(m_file, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (asker < 0) return;
        ::close(asker);
    }
}

void ClsactClaim::Take()
{
    m_other.reset();
    const int file = NewSocket();
    if (file >= 0 && OnClaim(file, ::bind) == 0 && ::listen(file, kMaxAskers) == 0) {
        m_file = file;
        return;
    }
    if (file >= 0) ::close(file);
    m_other = TrustedHolder();
}

}  // namespace capture
