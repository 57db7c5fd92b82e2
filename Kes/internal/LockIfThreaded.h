// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"

namespace Kes {

// Guards what the framework shares between threads, for as long as it lives; nothing while threadSafePtrs()
// is off. One lock for all of it: it is held for moments, and never while foreign code runs.
//
// A fork waits for the lock and both processes leave with it free, so a child that is forked while another
// thread holds it does not wait for ever.
class LockIfThreaded {
 public:
  LockIfThreaded() : locked_(threadSafePtrs()) {
    if (locked_) lock();
  }
  ~LockIfThreaded() {
    if (locked_) unlock();
  }
  LockIfThreaded(LockIfThreaded const&) = delete;
  LockIfThreaded& operator=(LockIfThreaded const&) = delete;

 private:
  static void lock();
  static void unlock();

  bool const locked_;
};

}  // namespace Kes
