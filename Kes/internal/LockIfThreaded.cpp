// SPDX-License-Identifier: Apache-2.0
#include "Kes/internal/LockIfThreaded.h"

#include <pthread.h>

#include <mutex>

namespace Kes {

namespace {

constinit std::mutex mutex;

void acquire() { mutex.lock(); }
void release() { mutex.unlock(); }

// Set up when the library is loaded, which is before a thread can hold the lock.
int const forkHandlers = pthread_atfork(&acquire, &release, &release);

}  // namespace

void LockIfThreaded::lock() { acquire(); }
void LockIfThreaded::unlock() { release(); }

}  // namespace Kes
