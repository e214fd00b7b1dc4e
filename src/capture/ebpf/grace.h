// SPDX-License-Identifier: Apache-2.0
// Makes attaching to many interfaces quick, if the operator asks for it: the switch is the whole machine's.
// Not needed for correctness; used by both sources.
//
// Each attachment and detachment waits in the kernel, holding the lock of all network configuration, until
// every CPU has passed a quiet moment: some 12 ms. An expedited wait interrupts the CPUs instead and takes
// some 40 us. So while several come in a row, /sys/kernel/rcu_expedited is set: 4,096 interfaces then take
// less than a second instead of a minute, in which no process could change the network's configuration. The
// price: for that time every such wait in the machine interrupts its CPUs, which real-time work may notice.
// That is why a single change does not switch it on, why it goes off 100 to 200 ms after the last, and why a
// value that another process has set is left alone. Any value but 0 switches it on; ours carries our process
// id, so that the next start takes back what a killed process has left.

#ifndef CAPTURE_EBPF_GRACE_H
#define CAPTURE_EBPF_GRACE_H

#include <memory>
#include <string>

#include "base/unique_fd.h"

namespace base {
class Timers;
}  // namespace base

namespace capture {

class GracePeriods {
public:
    /// With `expedite` opens the switch now: later there may be no privilege to do so. If that fails, it is
    /// logged and all steps are slow. Without, it does nothing at all.
    GracePeriods(base::Timers& timers, bool expedite, const std::string& path = "/sys/kernel/rcu_expedited");
    ~GracePeriods() { SwitchOff(); }
    GracePeriods(const GracePeriods&) = delete;
    GracePeriods& operator=(const GracePeriods&) = delete;

    /// To be called before each attachment and detachment.
    void Step();

private:
    void Arm();
    [[nodiscard]] int Value() const;
    [[nodiscard]] bool Set(int value) const;
    void TakeBackLeft() const;
    void SwitchOn();
    void SwitchOff();

    base::Timers& m_timers;
    base::UniqueFd m_file;
    int m_steps = 0;       // in this row
    bool m_again = false;  // a step since the timer was armed
    bool m_on = false;     // we have set it
    std::shared_ptr<void> m_quiet;
};

}  // namespace capture

#endif
