// What the manager shows of itself, as the state's model has it: the whole top-level container in JSON
// (RFC 7951). Used by the program to answer the database's questions.

#ifndef MANAGER_STATE_JSON_H
#define MANAGER_STATE_JSON_H

#include <cstdint>
#include <string>

namespace manager {

class Service;

/// {"switch-state:state":{"oam":{"sflow":{...}}}}. `pid` is the manager's own.
std::string StateJson(const Service& service, std::int64_t pid);

}  // namespace manager

#endif
