// SPDX-License-Identifier: Apache-2.0
#include "base/thread.h"

#include <pthread.h>

#include <csignal>
#include <cstddef>
#include <memory>
#include <utility>

namespace base {
namespace {

constexpr std::size_t kStack = std::size_t{256} * 1024;

using Work = std::function<void()>;

void* RunThread(void* held)
{
    const std::unique_ptr<Work> run(static_cast<Work*>(held));
    (*run)();
    return nullptr;
}

}  // namespace

bool BeginThread(std::function<void()> run)
{
    auto held = std::make_unique<Work>(std::move(run));
    sigset_t all;
    sigfillset(&all);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_t thread{};
    const bool begun = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                       pthread_attr_setstacksize(&attributes, kStack) == 0 &&
                       pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                       pthread_create(&thread, &attributes, &RunThread, held.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (begun) (void)held.release();  // the thread has it
    return begun;
}

}  // namespace base
