#include "manager/configured.h"

#include <cstdint>
#include <utility>

#include <nlohmann/json.hpp>

namespace manager {
namespace {

using Json = nlohmann::json;

/// Takes what is needed as the text is read, for a tree of ten thousand interfaces costs more than all the
/// rest of an answer. Levels are the brackets that are open: the document is 1, `sflow` is 2, a list in it 3,
/// an entry 4, the list of an interface's collectors 5, and an entry of that 6.
class Reader final : public nlohmann::json_sax<Json> {
public:
    Configured Take() { return std::move(m_configured); }
    /// Whether the container was there.
    [[nodiscard]] bool Found() const { return m_found; }

    bool null() override { return Scalar(); }
    bool number_integer(number_integer_t /*value*/) override { return Scalar(); }
    bool number_unsigned(number_unsigned_t /*value*/) override { return Scalar(); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return Scalar(); }
    bool binary(binary_t& /*value*/) override { return false; }

    bool boolean(bool value) override
    {
        if (m_level == kEntry && m_list == List::kCollectors && m_key == "enabled") m_enabled = value;
        return Scalar();
    }
    bool string(string_t& value) override
    {
        if (m_key == "name" && m_list != List::kOther) {
            if (m_level == kEntry) m_name = std::move(value);
            if (m_level == kAttachment && m_attachments != nullptr)
                m_attachments->push_back(std::move(value));
        }
        return Scalar();
    }

    bool key(string_t& value) override
    {
        m_key = std::move(value);
        if (m_level == kSflow)
            m_list = !m_inside              ? List::kOther
                     : m_key == "collector" ? List::kCollectors
                     : m_key == "interface" ? List::kInterfaces
                                            : List::kOther;
        if (m_level == kEntry && m_list == List::kInterfaces) EntryKey();
        return true;
    }

    bool start_object(std::size_t /*elements*/) override
    {
        ++m_level;
        if (m_level == kSflow) {
            m_inside = m_key == "switch-oam-sflow:sflow";
            m_found = m_found || m_inside;
        }
        if (m_level == kList && m_list != List::kOther) return false;
        if (m_level == kEntry) {
            m_name.clear();
            m_enabled = true;
            m_interface = {};
            m_attachments = nullptr;
        }
        return true;
    }
    bool end_object() override
    {
        const bool entry = m_level-- == kEntry && m_list != List::kOther;
        if (!entry) return true;
        if (m_name.empty()) return false;
        if (m_list == List::kCollectors)
            m_configured.collectors.insert_or_assign(std::move(m_name), Configured::Collector{m_enabled});
        else
            m_configured.interfaces.insert_or_assign(m_configured.interfaces.end(), std::move(m_name),
                                                     std::move(m_interface));
        return true;
    }
    bool start_array(std::size_t /*elements*/) override
    {
        ++m_level;
        return m_level > kSflow && (m_level != kEntry || m_list == List::kOther);
    }
    bool end_array() override
    {
        --m_level;
        return true;
    }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const Json::exception& /*error*/) override
    {
        return false;
    }

private:
    enum class List : std::uint8_t { kOther, kCollectors, kInterfaces };
    static constexpr int kRoot = 1, kSflow = 2, kList = 3, kEntry = 4, kAttachment = 6;

    /// False where an object or a list has to stand.
    [[nodiscard]] bool Scalar() const
    {
        if (m_level == kSflow || m_level == kList) return m_list == List::kOther || !m_inside;
        return m_level > kRoot;
    }

    void EntryKey()
    {
        if (m_key == "sampling-rate") m_interface.ownRate = true;
        m_attachments = m_key == "flow-sampling-collector"      ? &m_interface.collectors[0]
                        : m_key == "counter-sampling-collector" ? &m_interface.collectors[1]
                                                                : nullptr;
    }

    int m_level = 0;
    bool m_found = false;
    bool m_inside = false;  // in the container, not in another one beside it
    string_t m_key;         // the newest
    List m_list = List::kOther;
    string_t m_name;  // of the entry that is being read, and what else it has
    bool m_enabled = true;
    Configured::Interface m_interface;
    std::vector<std::string>* m_attachments = nullptr;  // where names of collectors go; null: nowhere
    Configured m_configured;
};

}  // namespace

std::optional<Configured> ReadConfigured(std::string_view json)
{
    Reader reader;
    if (!Json::sax_parse(json.begin(), json.end(), &reader) || !reader.Found()) return std::nullopt;
    return reader.Take();
}

}  // namespace manager
