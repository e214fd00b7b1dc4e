// SPDX-License-Identifier: Apache-2.0
#include "cdb/schema/schema.h"

#include <libyang/libyang.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <iterator>

#include "cdb/schema/derive.h"
#include "cdb/schema/libyang_owner.h"
#include "cdb/schema/reach.h"

namespace cdb {
namespace {

namespace fs = std::filesystem;

/// Makes libyang keep every message while modules load, since the last one alone only says that loading
/// failed; afterwards only the last one. It never prints.
class MessageKeeping {
public:
    MessageKeeping() { ly_log_options(LY_LOSTORE); }
    ~MessageKeeping() { ly_log_options(LY_LOSTORE_LAST); }
    MessageKeeping(const MessageKeeping&) = delete;
    MessageKeeping& operator=(const MessageKeeping&) = delete;
};

std::string Messages(const ly_ctx* context)
{
    std::string text;
    for (const ly_err_item* item = ly_err_first(context); item != nullptr; item = item->next) {
        if (item->level != LY_LLERR) continue;
        if (!text.empty()) text += ' ';
        text += item->msg;
        if (item->path != nullptr) text += " (" + std::string(item->path) + ")";
    }
    return text.empty() ? "no reason given" : text;
}

Owned<ly_ctx> MakeContext(const fs::path& directory)
{
    ly_ctx* context = nullptr;
    const auto options = LY_CTX_DISABLE_SEARCHDIR_CWD;
    if (ly_ctx_new(directory.c_str(), options, &context) != LY_SUCCESS)
        throw FatalError("the YANG modules can't be read from " + directory.string() +
                         ": check that it is a readable directory");
    Owned<ly_ctx> owned(context);
    // The error of a missing module says more than an error about a missing directory would.
    const fs::path ietf = SFLOW_IETF_YANG_DIR;
    for (const fs::path& each :
         {ietf, ietf.parent_path() / "ietf-derived", ietf.parent_path() / "netconfcentral"})
        static_cast<void>(ly_ctx_set_searchdir(context, each.c_str()));
    return owned;
}

void LoadModule(ly_ctx* context, const std::string& name, const char** features)
{
    if (ly_ctx_load_module(context, name.c_str(), nullptr, features) != nullptr) return;
    throw FatalError("the YANG module " + name + " can't be loaded: " + Messages(context));
}

/// The names of the modules in the directory, in ascending order.
std::vector<std::string> ModulesIn(const fs::path& directory)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
        if (it->path().extension() != ".yang") continue;
        const std::string stem = it->path().stem().string();
        names.push_back(stem.substr(0, stem.find('@')));
    }
    if (error)
        throw FatalError("the YANG modules can't be read from " + directory.string() + ": " +
                         error.message());
    if (names.empty()) throw FatalError("there are no YANG modules in " + directory.string());
    std::sort(names.begin(), names.end());
    return names;
}

void LoadModules(ly_ctx* context, const fs::path& directory)
{
    // The NETCONF capabilities that the management agent has (RFC 6241, section 8).
    std::array<const char*, 5> features{"candidate", "confirmed-commit", "rollback-on-error", "validate",
                                        nullptr};
    LoadModule(context, "ietf-netconf", features.data());
    LoadModule(context, "ietf-netconf-monitoring", nullptr);
    LoadModule(context, "ietf-netconf-with-defaults", nullptr);
    // RFC 5277, as the modules that its schema was converted to, and RFC 6470.
    LoadModule(context, "notifications", nullptr);
    LoadModule(context, "nc-notifications", nullptr);
    LoadModule(context, "ietf-netconf-notifications", nullptr);
    // RFC 8526: operations on datastores by name, and where a value comes from.
    std::array<const char*, 3> ofNmda{"origin", "with-defaults", nullptr};
    LoadModule(context, "ietf-origin", nullptr);
    LoadModule(context, "ietf-netconf-nmda", ofNmda.data());
    for (const auto& name : ModulesIn(directory)) LoadModule(context, name, nullptr);
}

std::string Hash(const std::string& text)
{
    XXH128_canonical_t canonical{};
    XXH128_canonicalFromHash(&canonical, XXH3_128bits(text.data(), text.size()));
    std::string hex;
    for (const unsigned char byte : canonical.digest) {
        constexpr const char* kDigits = "0123456789abcdef";
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0xf];
    }
    return hex;
}

/// A module or submodule: its name, whether it is implemented, and a hash of its text. Modules built into
/// libyang have no file; libyang's version stands for them.
std::string Describe(const char* name, const char* revision, const char* file, bool implemented)
{
    std::string text = std::string(name) + '@' + (revision != nullptr ? revision : "") +
                       (implemented ? " implemented " : " ");
    if (file == nullptr) return text;
    std::ifstream stream(file, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) throw FatalError("the YANG module " + std::string(file) + " can't be read");
    return text + Hash(content);
}

std::vector<std::string> FeaturesOf(const lys_module* module)
{
    std::vector<std::string> names;
    if (module->parsed == nullptr) return names;
    std::uint32_t index = 0;
    const lysp_feature* feature = nullptr;
    while ((feature = lysp_feature_next(feature, module->parsed, &index)) != nullptr)
        if ((feature->flags & LYS_FENABLED) != 0) names.emplace_back(feature->name);
    return names;
}

/// A hash over the text of all modules, independent of the order in which they were loaded. Throws FatalError
/// if a module's file can't be read any more.
std::string HashOfModules(const ly_ctx* context, std::vector<std::string> parts)
{
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        parts.push_back(Describe(module->name, module->revision, module->filepath, module->implemented != 0));
        if (module->parsed == nullptr) continue;
        for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(module->parsed->includes); ++i)
            if (const auto* part = module->parsed->includes[i].submodule; part != nullptr)
                parts.push_back(Describe(part->name, nullptr, part->filepath, false));
    }
    std::sort(parts.begin(), parts.end());
    std::string all;
    for (const std::string& part : parts) all += part + '\n';
    return Hash(all);
}

std::string ContentIdOf(const ly_ctx* context)
{
    std::vector<std::string> features;
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        std::string& text = features.emplace_back(module->name);
        for (const std::string& feature : FeaturesOf(module)) text.append(" ").append(feature);
    }
    return HashOfModules(context, std::move(features));
}

}  // namespace

class Schema::Impl {
public:
    explicit Impl(const fs::path& directory)
    {
        const MessageKeeping keeping;
        context = MakeContext(directory);
        LoadModules(context.get(), directory);
        ly_err_clean(context.get(), nullptr);
        derived = DeriveSchema(context.get());
        fingerprint = HashOfModules(context.get(), {"libyang " LIBYANG_VERSION});
        contentId = ContentIdOf(context.get());
        reach = ExamineConstraints(derived);
    }

    Owned<ly_ctx> context;
    DerivedSchema derived;
    std::string fingerprint;
    std::string contentId;
    Reach reach;
};

std::unique_ptr<Schema> Schema::Load(const fs::path& directory)
{
    return std::unique_ptr<Schema>(new Schema(std::make_unique<Impl>(directory)));
}

Schema::Schema(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

Schema::~Schema() = default;

ly_ctx* Schema::Context() const { return m_impl->context.get(); }

const SchemaTable& Schema::Table() const { return m_impl->derived.table; }

NodeId Schema::IdOf(const lysc_node* node) const { return cdb::IdOf(node); }

const Reach& Schema::Constraints() const { return m_impl->reach; }

const lysc_node* Schema::NodeOf(NodeId id) const
{
    const auto& compiled = m_impl->derived.compiled;
    return id < compiled.size() ? compiled[id] : nullptr;
}

const std::string& Schema::Fingerprint() const { return m_impl->fingerprint; }

const std::string& Schema::ContentId() const { return m_impl->contentId; }

std::vector<Schema::Module> Schema::Modules() const
{
    std::vector<Module> modules;
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(m_impl->context.get(), &index)) {
        if (module->implemented == 0) continue;
        modules.push_back({module->name, module->revision != nullptr ? module->revision : "", module->ns,
                           FeaturesOf(module)});
    }
    return modules;
}

}  // namespace cdb
