// Counted references: every shared component derives from RefCounted and
// deletes itself when its last reference goes. Interfaces derive virtually,
// so one object implementing several of them has a single count.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace kavo {

class RefCounted {
 public:
  RefCounted() = default;
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  int32_t AddRef() const { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }
  int32_t Release() const {
    const int32_t left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
  }
  // Adds a reference unless the last one is already gone (the object is
  // being destroyed); for lists that reach objects without owning them.
  bool TryAddRef() const {
    int32_t refs = refs_.load(std::memory_order_relaxed);
    while (refs > 0)
      if (refs_.compare_exchange_weak(refs, refs + 1, std::memory_order_relaxed)) return true;
    return false;
  }

 protected:
  virtual ~RefCounted() = default;

 private:
  mutable std::atomic<int32_t> refs_{0};
};

// One-pointer holder: copying adds a reference, destroying drops one.
template <class T>
class Ref {
 public:
  Ref() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): implicit by design
  Ref(T* p) : p_(p) {
    if (p_) p_->AddRef();
  }
  Ref(const Ref& o) : Ref(o.p_) {}
  Ref(Ref&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  Ref(const Ref<U>& o) : Ref(o.get()) {}  // NOLINT
  ~Ref() {
    if (p_) p_->Release();
  }
  Ref& operator=(Ref o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  // A reference to `p`, or none when its last reference is already gone.
  static Ref IfAlive(T* p) {
    Ref ref;
    if (p && p->TryAddRef()) ref.p_ = p;
    return ref;
  }

  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  void reset() { Ref().swap(*this); }
  void swap(Ref& o) noexcept { std::swap(p_, o.p_); }

 private:
  T* p_ = nullptr;
};

// Guards a freshly allocated object until it is handed out: destroyed while
// still owning, it deletes the object.
template <class T>
class OwningHolder {
 public:
  explicit OwningHolder(T* p) : p_(p) {}
  OwningHolder(const OwningHolder&) = delete;
  OwningHolder& operator=(const OwningHolder&) = delete;
  ~OwningHolder() {
    if (owns_) delete p_;
  }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T* Detach() {
    owns_ = false;
    return p_;
  }

 private:
  bool owns_ = true;
  T* p_;
};

}  // namespace kavo
