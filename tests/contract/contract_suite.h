// SPDX-License-Identifier: Apache-2.0
// What the daemon relies on in any platform, as tests that run on each of them.
//
// To run the suite on a platform: link the object library `contract_suite` and the platform, derive
// from contract::Platform, and instantiate the suite in one source of the test program:
//
//   INSTANTIATE_TEST_SUITE_P(Embedded, ContractTest,
//                            testing::Values(contract::Choice{"embedded", [] { return ...; }}),
//                            contract::NameOf);
//
// For a switch's SDK the build does the linking: SFLOW_TESTS=contract, with that one source in
// SFLOW_CONTRACT_SOURCES (docs/platform-contract.md).
//
// One Platform object is made for every test and destroyed after it; tests may run in parallel
// processes, so each object has sockets and directories of its own. The suite talks to the platform
// through the contract's headers, and through the object only for what the contract leaves open:
// what is configured, whether there is a manager, what it received, and the turning of the loop.

#ifndef CONTRACT_CONTRACT_SUITE_H
#define CONTRACT_CONTRACT_SUITE_H

#include <confd_cdb.h>
#include <confd_lib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qxconfd/confd_interface.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace contract {

class Platform {
public:
    Platform() = default;
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;
    virtual ~Platform() = default;

    /// Makes this the running configuration, in place of what was there: RFC 7951 JSON with the one
    /// member "switch-config:config". Returns when new sessions read it.
    virtual void Load(const std::string& json) = 0;

    /// The framework's connection object, connected.
    virtual QxConfdInterface& Confd() = 0;

    /// The sFlow manager comes or goes. Takes effect in the loop.
    virtual void SetManager(bool present) = 0;

    /// What the manager has received inside its sessions, in order, each as
    /// `AddCollector("c1", "192.0.2.1", 6343, 1400)`.
    virtual std::vector<std::string> Received() = 0;

    /// Turns the loop until the condition holds; false if it does not within a few seconds.
    virtual bool RunUntil(const std::function<bool()>& condition) = 0;

    /// Turns the loop until nothing is left to do that is under way now.
    virtual void Settle() = 0;

    /// What a callback did: its result, and the writes that reached its transaction, each as
    /// "/path/to/leaf = 4096".
    struct Created {
        int result = CONFD_ERR;
        std::vector<std::string> written;
    };
    /// Has a transaction create the interface entry of that name, with `body` as the create operation
    /// of the callpoint. The default: this platform can't show it, and the tests are skipped.
    using Body = std::function<int(confd_trans_ctx*, confd_hkeypath_t*)>;
    virtual bool CanCreate() const { return false; }
    virtual Created Create(const std::string& /*interface*/, const Body& /*body*/) { return {}; }
};

/// A platform to run on.
struct Choice {
    std::string name;
    std::function<std::unique_ptr<Platform>()> make;
};
inline std::string NameOf(const testing::TestParamInfo<Choice>& choice) { return choice.param.name; }
inline void PrintTo(const Choice& choice, std::ostream* out) { *out << choice.name; }

/// A received value, released with the object.
class Read {
public:
    Read() { CONFD_SET_NOEXISTS(&m_value); }
    Read(Read&& other) noexcept : m_value(other.m_value) { CONFD_SET_NOEXISTS(&other.m_value); }
    Read& operator=(Read&&) = delete;
    ~Read() { confd_free_value(&m_value); }
    confd_value_t* Get() { return &m_value; }
    confd_value_t* operator->() { return &m_value; }

private:
    confd_value_t m_value{};
};

/// A value as text: `"eth1"`, `true`, `u16 1400`, `u32 4096`, `192.0.2.1`, `10.0.0.5/24`, `none`.
std::string ToText(const confd_value_t& value);

/// A keypath put together from the changed node to the root, as the database delivers it.
class KeypathBuilder {
public:
    KeypathBuilder();
    KeypathBuilder& Element(std::uint32_t tag, std::int32_t ns);
    KeypathBuilder& Key(const std::string& key);
    const confd_hkeypath_t* Get() const { return &m_keypath; }

private:
    std::deque<std::string> m_keys;
    confd_hkeypath_t m_keypath{};
};

}  // namespace contract

class ContractTest : public testing::TestWithParam<contract::Choice> {
protected:
    ContractTest() : platform(GetParam().make()) {}

    /// Members of "switch-config:config", between its braces.
    void Configure(const std::string& members);
    /// Members of the container "/config/oam/sflow".
    void ConfigureSFlow(const std::string& members);

    std::unique_ptr<QxConfdCdbSessionBase> Session();

    /// The values that one whole-entry read of `n` values delivers, as text.
    std::vector<std::string> Object(int sock, int n, const std::string& path);
    /// The same of `count` entries from the `first`th on, one text for each entry.
    std::vector<std::string> Objects(int sock, int n, int first, int count, const std::string& path);
    /// The leaf's value as text, or "error" after a failure with a reason.
    std::string Leaf(int sock, const std::string& path);

    std::unique_ptr<contract::Platform> platform;
};

#endif
