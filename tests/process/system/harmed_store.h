// SPDX-License-Identifier: Apache-2.0
// A switch whose cdbd can be made to fail, or to end, at any of its writing calls to the store; and the looks
// at it afterwards. Used by commit_kill_test.cpp and store_fault_test.cpp.

#ifndef SYSTEM_HARMED_STORE_H
#define SYSTEM_HARMED_STORE_H

#include <string>

#include "support/write_faults.h"
#include "system/system_test.h"

namespace system_tests {

// Before the World, which is started with its environment.
struct WriteFaultsBefore {
    support::WriteFaults m_faults;
};

class HarmedStore : private WriteFaultsBefore, public SystemTest {
protected:
    HarmedStore() : SystemTest(Options(m_faults)) { m_faults.Watch(TheWorld().StateDir()); }

    support::WriteFaults& Faults() { return m_faults; }

    /// What a commit's answer says of it.
    enum class Answer { kOk, kError, kNone };

    /// One edit in the candidate, then a commit during which cdbd's writing fails so.
    Answer CommitHarmed(const std::string& config, const support::WriteFault& fault)
    {
        auto client = Connect();
        Do(client, netconf::EditConfig(config));
        m_faults.Arm(fault);
        try {
            const auto reply = client.Call(netconf::Commit());
            m_faults.Disarm();
            return reply.ok ? Answer::kOk : Answer::kError;
        } catch (const netconf::ConnectionError&) {
            m_faults.Disarm();
            return Answer::kNone;
        }
    }

    /// Ends cdbd where it still runs, and starts it again.
    void Restart()
    {
        m_faults.Disarm();
        if (TheWorld().Cdbd().Running()) {
            EXPECT_EQ(0, TheWorld().Cdbd().Terminate());
        }
        TheWorld().StartCdbd();
    }

    /// One more commit and one more start: what was written aside of what running said would come back now.
    void ExpectNothingComesBack()
    {
        const std::string address = "203.0.113." + std::to_string(++m_looks % 250 + 1);
        Commit(scenario::SflowXml("<agent><ipv4>" + address + "</ipv4></agent>"));
        const auto said = Running();
        EXPECT_THAT(said, HasSubstr(address));
        Restart();
        EXPECT_EQ(said, Running());
        AwaitSettled();
    }

private:
    static WorldOptions Options(const support::WriteFaults& faults)
    {
        WorldOptions options;
        options.cdbdEnvironment = faults.Environment();
        return options;
    }

    unsigned m_looks = 0;
};

/// So many interfaces at this rate, as <config> content.
inline std::string Interfaces(unsigned count, unsigned rate)
{
    std::string interfaces;
    for (unsigned i = 0; i < count; ++i)
        interfaces += "<interface><name>port" + std::to_string(i) + "</name><sampling-rate>" +
                      std::to_string(rate) + "</sampling-rate></interface>";
    return scenario::SflowXml(interfaces);
}

/// A commit of this many rows. The numbers are what such a commit does.
struct Size {
    std::string name;
    unsigned interfaces;
};

inline void PrintTo(const Size& size, std::ostream* out) { *out << size.name; }

}  // namespace system_tests

#endif
