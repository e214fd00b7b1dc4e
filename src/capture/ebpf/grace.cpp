// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/grace.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include "base/timers.h"
#include "log/log.h"

namespace capture {
namespace {

constexpr std::chrono::milliseconds kQuiet{100};
constexpr int kRow = 3;  // so many steps, each soon after the other, are a row
constexpr int kUnknown = 1;
// Our value: this, and below it the process id, which has 22 bits at most.
constexpr int kMark = 0x5f000000;
constexpr int kMarkBits = ~0x3fffff;

}  // namespace

GracePeriods::GracePeriods(base::Timers& timers, bool expedite, const std::string& path) : m_timers(timers)
{
    if (!expedite) return;
    m_file = base::UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!m_file) slog::Notice("{} can't be written: attaching to many interfaces takes its time", path);
    if (m_file) TakeBackLeft();
}

void GracePeriods::Step()
{
    if (!m_file) return;
    m_again = true;
    if (m_quiet == nullptr) Arm();
    // Tried at each step: another process may take its value back meanwhile.
    if (++m_steps >= kRow && !m_on) SwitchOn();
}

void GracePeriods::Arm()
{
    m_again = false;
    m_quiet = m_timers.After(kQuiet, [this] {
        if (m_again) return Arm();
        m_quiet = nullptr;
        m_steps = 0;
        SwitchOff();
    });
}

int GracePeriods::Value() const
{
    std::array<char, 16> text{};
    const ssize_t size = ::pread(m_file.Get(), text.data(), text.size(), 0);
    int value = kUnknown;
    if (size > 0) std::from_chars(text.data(), text.data() + size, value);
    return value;
}

bool GracePeriods::Set(int value) const
{
    const auto text = std::to_string(value) + "\n";
    return ::pwrite(m_file.Get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

void GracePeriods::TakeBackLeft() const
{
    const int value = Value();
    if ((value & kMarkBits) != kMark) return;
    if (::kill(value & ~kMarkBits, 0) != 0 && errno == ESRCH && Set(0))
        slog::Notice("expedited grace periods switched off, which a killed process had left on");
}

void GracePeriods::SwitchOn()
{
    if (Value() == 0) m_on = Set(kMark | ::getpid());
}

void GracePeriods::SwitchOff()
{
    if (!m_on) return;
    m_on = false;
    if (Value() != (kMark | ::getpid())) return;  // another process has set it meanwhile
    if (!Set(0)) slog::Error("expedited grace periods could not be switched off");
}

}  // namespace capture
