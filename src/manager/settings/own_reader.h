// SPDX-License-Identifier: Apache-2.0
// The manager's own settings as they are configured: reads them from the database's store, whole or those
// that a commit has changed. Used by the follower.

#ifndef MANAGER_SETTINGS_OWN_READER_H
#define MANAGER_SETTINGS_OWN_READER_H

#include <optional>
#include <string>
#include <vector>

#include "cdb/rows/reader.h"
#include "manager/settings/own_settings.h"

namespace ipc::cdb {
class ChangeNode;
class Subscribe;
}  // namespace ipc::cdb

namespace manager {

/// Where they stand in the model.
inline constexpr const char* kOwnPath = "/config/oam/sflow-manager";

/// Fills in the subscription to their changes, with its number.
void FillSubscription(ipc::cdb::Subscribe& subscribe);

/// What a commit has changed of them, by name.
struct OwnTouched {
    bool general = false;  // a leaf of the manager as a whole
    std::vector<std::string> collectors = {};
    bool whole = false;  // it can't be told: anything
};

/// `root` is a change set's; what it has outside of the settings is not looked at.
OwnTouched TouchedBy(const cdb::SchemaTable& schema, const ipc::cdb::ChangeNode& root);

/// Reads what is touched at the store's last commit. Throws cdb::FatalError if the store can't be read.
OwnUpdate ReadOwn(const cdb::StoreReader& store, const OwnTouched& touched);

}  // namespace manager

#endif
