// The library's growable array of plain values. Its storage comes from
// realloc, and it grows by adding its factor to the capacity or by
// multiplying the capacity with it. Bad indexes, failed allocations and
// growth settings that would not grow raise Exception rather than corrupt.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "base/exception.h"

namespace qaaisp {

// The source name the array's exceptions carry.
inline constexpr const char* kArraySourceFile = "..\\CLIENTS\\QAMAPI\\QAMSLIB\\common\\Array.h";
inline constexpr const char* kArrayIndexOutOfBounds = "Array index out of bounds";
inline constexpr const char* kArrayOutOfMemory = "Out of memory";
inline constexpr const char* kArraySmallerCapacity =
    "Reallocation attempt resulted in smaller capacity; reallocation mode and factor invalid";
inline constexpr int32_t kArrayIndexLine = 102;
inline constexpr int32_t kArraySmallerCapacityLine = 520;
inline constexpr int32_t kArrayOutOfMemoryLine = 540;

template <typename T>
class Array {
  static_assert(std::is_trivially_copyable_v<T>, "Array moves its elements with realloc");

 public:
  enum GrowthMode : uint32_t { kAdditive = 0, kMultiplicative = 1 };

  explicit Array(uint32_t initial_capacity = 0, uint32_t growth_factor = 5,
                 GrowthMode growth_mode = kAdditive)
      : growth_factor_(growth_factor), growth_mode_(growth_mode) {
    if (initial_capacity > 0) Reallocate(initial_capacity);
  }
  ~Array() { std::free(data_); }

  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;

  uint32_t size() const { return size_; }
  uint32_t capacity() const { return capacity_; }
  bool empty() const { return size_ == 0; }
  T* data() { return data_; }
  const T* data() const { return data_; }

  T& operator[](uint32_t i) {
    if (i >= size_) throw Exception(kArrayIndexOutOfBounds, kArraySourceFile, kArrayIndexLine);
    return data_[i];
  }
  const T& operator[](uint32_t i) const {
    if (i >= size_) throw Exception(kArrayIndexOutOfBounds, kArraySourceFile, kArrayIndexLine);
    return data_[i];
  }

  void Append(const T& value) {
    if (size_ == capacity_) Grow();
    data_[size_++] = value;
  }

  // Sets the size. New elements are zero bytes; growth follows the growth
  // mode, so a row that gains one slot at a time reallocates once per factor.
  void Resize(uint32_t new_size) {
    if (new_size > capacity_) Reallocate(GrownCapacity(new_size));
    if (new_size > size_) std::memset(data_ + size_, 0, (new_size - size_) * sizeof(T));
    size_ = new_size;
  }

  // Makes room for at least n elements in one allocation.
  void Reserve(uint32_t n) {
    if (n > capacity_) Reallocate(n);
  }

  // One growth step by the mode and factor.
  void Grow() { Reallocate(NextCapacity(capacity_)); }

 private:
  uint32_t NextCapacity(uint32_t capacity) const {
    uint64_t next = growth_mode_ == kMultiplicative
                        ? static_cast<uint64_t>(capacity) * growth_factor_
                        : static_cast<uint64_t>(capacity) + growth_factor_;
    if (next > std::numeric_limits<uint32_t>::max()) {
      throw Exception(kArrayOutOfMemory, kArraySourceFile, kArrayOutOfMemoryLine);
    }
    if (next <= capacity) {
      throw Exception(kArraySmallerCapacity, kArraySourceFile, kArraySmallerCapacityLine);
    }
    return static_cast<uint32_t>(next);
  }

  // The capacity that growing step by step until n fits would reach, found
  // without reallocating at each step.
  uint32_t GrownCapacity(uint32_t n) const {
    uint32_t capacity = capacity_;
    if (growth_mode_ == kAdditive && growth_factor_ > 0) {
      uint64_t steps = (static_cast<uint64_t>(n) - capacity + growth_factor_ - 1) / growth_factor_;
      uint64_t target = capacity + steps * growth_factor_;
      if (target > std::numeric_limits<uint32_t>::max()) {
        throw Exception(kArrayOutOfMemory, kArraySourceFile, kArrayOutOfMemoryLine);
      }
      return static_cast<uint32_t>(target);
    }
    while (capacity < n) capacity = NextCapacity(capacity);
    return capacity;
  }

  void Reallocate(uint32_t new_capacity) {
    if (new_capacity <= capacity_) {
      throw Exception(kArraySmallerCapacity, kArraySourceFile, kArraySmallerCapacityLine);
    }
    uint64_t bytes = static_cast<uint64_t>(new_capacity) * sizeof(T);
    void* block = bytes > std::numeric_limits<size_t>::max() / 2
                      ? nullptr
                      : std::realloc(data_, static_cast<size_t>(bytes));
    if (!block) throw Exception(kArrayOutOfMemory, kArraySourceFile, kArrayOutOfMemoryLine);
    data_ = static_cast<T*>(block);
    capacity_ = new_capacity;
  }

  T* data_ = nullptr;
  uint32_t capacity_ = 0;
  uint32_t size_ = 0;
  uint32_t growth_factor_;
  uint32_t growth_mode_;
};

}  // namespace qaaisp
