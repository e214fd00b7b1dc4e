// What is configured of sFlow, as far as what is in effect does not tell it: collectors that are disabled,
// interfaces that the manager is never told of, and whether a sampling rate is an interface's own. Read
// from what the database sends along with its questions. It changes nothing here: for showing only.

#ifndef MANAGER_CONFIGURED_H
#define MANAGER_CONFIGURED_H

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "manager/operation.h"

namespace manager {

struct Configured {
    struct Collector {
        bool enabled = true;
    };
    struct Interface {
        bool ownRate = false;                                     // a sampling rate of its own
        std::array<std::vector<std::string>, kKinds> collectors;  // those of each kind, as configured
        [[nodiscard]] const std::vector<std::string>& Of(Kind kind) const
        {
            return collectors[static_cast<std::size_t>(kind)];
        }
    };
    std::map<std::string, Collector> collectors;
    std::map<std::string, Interface> interfaces;
};

/// The container `sflow` of the configuration in JSON (RFC 7951), without the defaults that were not set
/// explicitly. None where it is not that.
std::optional<Configured> ReadConfigured(std::string_view json);

}  // namespace manager

#endif
