// SPDX-License-Identifier: Apache-2.0
// Tells in which order memory is given back, and with it in which order an object's members go.

#ifndef DAEMON_TESTS_RELEASE_WATCH_H
#define DAEMON_TESTS_RELEASE_WATCH_H

namespace daemon_tests {

/// When the block is given back, the fake platform's journal notes "release" and the name. `block` is the
/// start of what operator new returned; at most sixteen are watched until they are gone.
void WatchRelease(const void* block, const char* name);

/// Watches nothing any more.
void ForgetWatches();

}  // namespace daemon_tests

#endif
