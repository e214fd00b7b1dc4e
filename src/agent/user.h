// The name of a user, for the history and the log.

#ifndef AGENT_USER_H
#define AGENT_USER_H

#include <sys/types.h>

#include <string>

namespace agent {

/// "uid-1234" for one without a name.
std::string UserName(uid_t uid);

/// Of the process at the other end of a connected Unix socket.
std::string PeerUserName(int descriptor);

}  // namespace agent

#endif
