// What the manager shows of itself, as the state's model has it: the whole top-level container in JSON
// (RFC 7951). Used by the program to answer the database's questions.

#ifndef MANAGER_STATE_JSON_H
#define MANAGER_STATE_JSON_H

#include <string>
#include <string_view>

namespace manager {

class Service;
struct Configured;
struct Snapshot;
struct StatusSources;

/// {"switch-state:state":{"oam":{"sflow":{...}}}}. `configured` may be null: then what only it can tell
/// is left out.
std::string StateJson(const Snapshot& snapshot, const Configured* configured);

/// The same, of this moment. `configuration` is what the database has sent along, or empty.
std::string StateJson(const Service& service, const StatusSources& sources, std::string_view configuration);

}  // namespace manager

#endif
