// SPDX-License-Identifier: Apache-2.0
// A hash over the text of all YANG modules of a context.

#include "cdb/schema/fingerprint.h"

#include <libyang/libyang.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <vector>

#include "cdb/model/error.h"

namespace cdb {
namespace {

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

}  // namespace

std::string FingerprintOf(const ly_ctx* context)
{
    std::vector<std::string> parts{"libyang " LIBYANG_VERSION};
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

}  // namespace cdb
