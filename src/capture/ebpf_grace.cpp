// Switches expedited grace periods on for a row of attachments, and off after it.

#include "capture/ebpf_grace.h"

#include <chrono>

#include <fcntl.h>
#include <unistd.h>

#include "ipc/timers.h"
#include "log/log.h"

namespace capture {
namespace {

constexpr std::chrono::milliseconds kQuiet{100};
constexpr int kRow = 3;  // so many steps, each soon after the other, are a row

}  // namespace

GracePeriods::GracePeriods(ipc::Timers& timers, const std::string& path)
    : m_timers(timers), m_file(::open(path.c_str(), O_RDWR | O_CLOEXEC))
{
    if (m_file < 0) slog::Info("{} can't be written: attaching to many interfaces takes its time", path);
}

GracePeriods::~GracePeriods()
{
    SwitchOff();
    if (m_file >= 0) ::close(m_file);
}

void GracePeriods::Step()
{
    if (m_file < 0) return;
    m_again = true;
    if (m_quiet == nullptr) Arm();
    if (++m_steps == kRow) SwitchOn();
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

void GracePeriods::SwitchOn()
{
    char now = '1';
    if (::pread(m_file, &now, 1, 0) != 1 || now != '0') return;
    m_on = ::pwrite(m_file, "1", 1, 0) == 1;
}

void GracePeriods::SwitchOff()
{
    if (!m_on) return;
    m_on = false;
    if (::pwrite(m_file, "0", 1, 0) != 1) slog::Error("/sys/kernel/rcu_expedited could not be set back");
}

}  // namespace capture
