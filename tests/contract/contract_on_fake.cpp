// SPDX-License-Identifier: Apache-2.0
// The contract suite on the fake platform, so that the fake can't drift from what it stands for.

#include "contract/contract_suite.h"
#include "fakes/fake_platform.h"
#include "fakes/keypath.h"

namespace {

std::string ValueText(const fakes::Value& value)
{
    if (const auto* number = std::get_if<std::uint32_t>(&value)) return std::to_string(*number);
    return "value of type " + std::to_string(value.index());
}

class OnFake : public contract::Platform {
public:
    OnFake() { m_fake.Reset(); }
    ~OnFake() override { m_fake.Reset(); }

    void Load(const std::string& json) override { m_fake.cdb.Load(json); }
    QxConfdInterface& Confd() override { return m_fake.confd; }
    void SetManager(bool present) override { m_fake.SetManager(present); }

    std::vector<std::string> Received() override
    {
        std::vector<std::string> texts;
        for (const fakes::ServiceCall& call : m_fake.received) texts.push_back(ToText(call));
        return texts;
    }

    bool RunUntil(const std::function<bool()>& condition) override
    {
        while (!condition()) {
            if (!m_fake.Pump()) return false;
        }
        return true;
    }
    void Settle() override
    {
        while (m_fake.Pump()) {
        }
    }

    bool CanCreate() const override { return true; }
    Created Create(const std::string& interface, const Body& body) override
    {
        fakes::Keypath keypath("/config/oam/sflow/interface{" + interface + "}");
        confd_daemon_ctx daemon{static_cast<QxConfdInterface*>(&m_fake.confd)};
        confd_trans_ctx transaction{&daemon, 1};
        m_fake.openTransactions = {1};
        Created created;
        created.result = body(&transaction, keypath.Get());
        m_fake.openTransactions.clear();
        for (const fakes::Write& write : m_fake.writes)
            created.written.push_back(write.path + " = " + ValueText(write.value));
        return created;
    }

private:
    fakes::Platform& m_fake = fakes::Platform::Get();
};

INSTANTIATE_TEST_SUITE_P(Fake, ContractTest,
                         testing::Values(contract::Choice{"fake", [] { return std::make_unique<OnFake>(); }}),
                         contract::NameOf);

}  // namespace
