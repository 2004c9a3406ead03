// Reference-counted objects and the two smart pointers over them: a weak one
// that only holds the pointer, and a strong one that owns one reference.
// Setting goes through one virtual call so that every assignment made through
// the weak base still keeps the strong pointer's count right.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace qaaisp {

// A pointee: a count of references, and a hook that runs when the count
// reaches zero, just before the object is deleted.
class UnknownObject {
 public:
  virtual ~UnknownObject() = default;
  virtual void FinalRelease() {}

  int32_t reference_count() const { return reference_count_.load(); }
  void AddReference() { reference_count_.fetch_add(1, std::memory_order_relaxed); }
  // Drops one reference; at zero runs FinalRelease and deletes the object.
  void ReleaseReference() {
    if (reference_count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      FinalRelease();
      delete this;
    }
  }

 private:
  std::atomic<int32_t> reference_count_{0};
};

template <typename T>
class UnknownWeakPtr {
 public:
  UnknownWeakPtr() = default;
  explicit UnknownWeakPtr(T* raw) { Set(raw); }
  UnknownWeakPtr(const UnknownWeakPtr& other) : UnknownWeakPtr() { Set(other.pointer_); }
  virtual ~UnknownWeakPtr() = default;

  UnknownWeakPtr& operator=(const UnknownWeakPtr& other) {
    SetFrom(other);
    return *this;
  }
  UnknownWeakPtr& operator=(T* raw) {
    Set(raw);
    return *this;
  }

  T* get() const { return pointer_; }
  operator T*() const { return pointer_; }
  T* operator->() const { return pointer_; }

  bool operator==(const UnknownWeakPtr& o) const { return RawEquals(o.pointer_); }
  bool operator==(T* raw) const { return RawEquals(raw); }
  bool operator!=(const UnknownWeakPtr& o) const { return !RawEquals(o.pointer_); }
  bool operator!=(T* raw) const { return !RawEquals(raw); }
  bool operator<(const UnknownWeakPtr& o) const { return RawBelow(o.pointer_); }
  bool operator<(T* raw) const { return RawBelow(raw); }
  bool operator>(const UnknownWeakPtr& o) const { return RawAbove(o.pointer_); }
  bool operator>(T* raw) const { return RawAbove(raw); }
  bool IsNull() const { return pointer_ == nullptr; }

  void SetFrom(const UnknownWeakPtr& other) { Set(other.pointer_); }
  // Weak: a plain store.
  virtual void Set(T* raw) { pointer_ = raw; }

 protected:
  bool RawEquals(T* raw) const { return pointer_ == raw; }
  bool RawBelow(T* raw) const { return std::less<const T*>()(pointer_, raw); }
  bool RawAbove(T* raw) const { return std::less<const T*>()(raw, pointer_); }

  T* pointer_ = nullptr;
};

template <typename T>
class UnknownPtr : public UnknownWeakPtr<T> {
 public:
  UnknownPtr() = default;
  explicit UnknownPtr(T* raw) { Set(raw); }
  UnknownPtr(const UnknownPtr& other) : UnknownWeakPtr<T>() { Set(other.pointer_); }
  ~UnknownPtr() override { Release(); }

  UnknownPtr& operator=(const UnknownPtr& other) {
    this->SetFrom(other);
    return *this;
  }
  UnknownPtr& operator=(T* raw) {
    Set(raw);
    return *this;
  }

  // Setting the pointer already held changes no count.
  void Set(T* raw) override {
    if (raw == this->pointer_) return;
    Release();
    this->pointer_ = raw;
    AddRef();
  }

  T* AddRef() {
    if (this->pointer_) this->pointer_->AddReference();
    return this->pointer_;
  }
  void Release() {
    T* p = this->pointer_;
    this->pointer_ = nullptr;
    if (p) p->ReleaseReference();
  }
};

}  // namespace qaaisp
