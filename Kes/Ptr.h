// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <utility>

#include "Kes/Assert.h"
#include "Kes/Export.h"
#include "Kes/Types.h"

namespace Kes {

// Reference counts are plain increments until this switch turns them atomic for the whole process. Set it
// before a second thread exists and never back while one does.
KES_EXPORT void threadSafePtrsIs(bool on);

namespace detail {
KES_EXPORT extern bool threadSafePtrs;
}  // namespace detail

inline bool threadSafePtrs() { return detail::threadSafePtrs; }

// Base of every object that is shared by counted pointer. An object starts with a count of 0; the first Ptr
// makes it 1, and the Ptr that takes it back to 0 destroys it. Objects live on the heap (makePtr) and are
// neither copied nor moved: their address is their identity.
class KES_EXPORT PtrInterface {
 public:
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  // The registered name of the object's type, such as "Vorn::Chunk".
  virtual std::string_view fwkType() const;

  // Every object's first two attributes. They switch notifiees, of which there are none in this process: they
  // do nothing, and take no place in the object.
  void hasNotificationActiveIs(bool /*on*/) const {}
  void kesDoZombieReactors(bool /*on*/) const {}

  // In place, which the compiler does not choose by itself: it saves an append three instructions, a merge
  // five.
  [[gnu::always_inline]] void ptrAcquire() const noexcept {
    if (threadSafePtrs()) [[unlikely]]
      std::atomic_ref(count_).fetch_add(1, std::memory_order_relaxed);
    else
      ++count_;
  }
  void ptrRelease() const noexcept {
    if (decrement() == 0) delete this;
  }
  // How many Ptrs hold the object now.
  U32 ptrCount() const noexcept {
    return threadSafePtrs() ? std::atomic_ref(count_).load(std::memory_order_acquire) : count_;
  }

 protected:
  PtrInterface() = default;
  virtual ~PtrInterface() = default;

 private:
  U32 decrement() const noexcept {
    if (threadSafePtrs()) [[unlikely]]
      return std::atomic_ref(count_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    return --count_;
  }

  mutable U32 count_ = 0;
};

// Counted pointer to a T derived from PtrInterface: keeps the object alive. A T* or T& anywhere in this code
// base is borrowed for the call.
//
// The count: constructing from T* or copying raises it, moving leaves it, destruction drops it. Assignment
// raises the new object's count before it drops the old one's and has stored the new pointer by then, so
// assigning to itself is safe, and so is a destructor that looks at this very pointer. Dereferencing null is
// an assertion.
template <class T>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  explicit Ptr(T* object) noexcept : object_(object) { acquire(); }
  Ptr(Ptr const& other) noexcept : object_(other.object_) { acquire(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
    requires std::convertible_to<U*, T*> Ptr(Ptr<U> const& other)
  noexcept : object_(other.get()) { acquire(); }
  template <class U>
    requires std::convertible_to<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() {
    if (object_ != nullptr) object_->ptrRelease();
  }

  Ptr& operator=(Ptr const& other) noexcept {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  T* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  T* operator->() const {
    assertThat(object_ != nullptr, "Kes", "Ptr::operator->()", "object");
    return object_;
  }
  T& operator*() const { return *operator->(); }

  // Gives up the pointer without dropping the count: the caller takes the reference over.
  T* release() noexcept { return std::exchange(object_, nullptr); }

  template <class U>
  bool operator==(Ptr<U> const& other) const noexcept {
    return object_ == other.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return object_ == nullptr; }

 private:
  void acquire() const noexcept {
    if (object_ != nullptr) object_->ptrAcquire();
  }

  T* object_ = nullptr;
};

// Makes an object and returns its first reference.
template <class T, class... Args>
[[gnu::always_inline]] inline Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Kes
