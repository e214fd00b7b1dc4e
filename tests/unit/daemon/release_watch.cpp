// SPDX-License-Identifier: Apache-2.0
// The test program's own operator new and delete. Arrays come through them as well, but for sanitizers, which
// have both operators of arrays to themselves.

#include "release_watch.h"

#include <array>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

#include "fakes/fake_platform.h"

namespace {

struct Watched {
    const void* block = nullptr;
    const char* name = nullptr;
};
std::array<Watched, 16> g_watched;

void Released(const void* block)
{
    if (block == nullptr) return;
    for (Watched& watched : g_watched) {
        if (watched.block != block) continue;
        const Watched gone = std::exchange(watched, {});  // before the note, which allocates
        fakes::Platform::Get().recorder.Note(std::string("release ") + gone.name);
        return;
    }
}

}  // namespace

void* operator new(std::size_t size)
{
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

// A sanitizer's own would not match the delete below.
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept
{
    return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept
{
    Released(block);
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    Released(block);
    std::free(block);
}

namespace daemon_tests {

void WatchRelease(const void* block, const char* name)
{
    for (Watched& watched : g_watched) {
        if (watched.block != nullptr) continue;
        watched = {block, name};
        return;
    }
    std::abort();  // more than sixteen
}

void ForgetWatches() { g_watched = {}; }

}  // namespace daemon_tests
