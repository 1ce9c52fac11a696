// hidl_vec and toString as the platform's libhidlbase declares them, reduced to what the service uses.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <log/log.h>

namespace android::hardware {

// A vector of at most 2^32 - 1 elements that either owns its buffer or lends one that belongs to someone else.
// Copying always makes an owner; moving keeps what the source was. Growing beyond the limit ends the process.
template <typename T>
class hidl_vec {
 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  hidl_vec() = default;
  hidl_vec(const hidl_vec& other) { assign(other.data(), other.data() + other.size()); }
  hidl_vec(hidl_vec&& other) noexcept { swap(other); }
  hidl_vec(std::initializer_list<T> list) { assign(list.begin(), list.end()); }
  // NOLINTNEXTLINE(google-explicit-constructor): the platform's converts both ways, and its users rely on it
  hidl_vec(const std::vector<T>& other) { assign(other.data(), other.data() + other.size()); }
  template <typename InputIterator,
            typename = std::enable_if_t<std::is_convertible_v<
                typename std::iterator_traits<InputIterator>::iterator_category, std::input_iterator_tag>>>
  hidl_vec(InputIterator first, InputIterator last) {
    assign(first, last);
  }
  ~hidl_vec() {
    if (owns_buffer_) delete[] buffer_;
  }

  hidl_vec& operator=(const hidl_vec& other) {
    if (this != &other) hidl_vec(other).swap(*this);
    return *this;
  }
  hidl_vec& operator=(hidl_vec&& other) noexcept {
    if (this != &other) hidl_vec(std::move(other)).swap(*this);
    return *this;
  }
  hidl_vec& operator=(const std::vector<T>& other) {
    hidl_vec(other).swap(*this);
    return *this;
  }
  // NOLINTNEXTLINE(google-explicit-constructor): as above
  operator std::vector<T>() const { return std::vector<T>(begin(), end()); }

  // Lends `data` (of `size` elements) to the vector. Unless `should_own` is set, the memory must outlive every use of
  // the vector; with it, the memory must come from new[] and is freed here.
  void setToExternal(T* data, size_t size, bool should_own = false) {
    CheckSize(size);
    if (owns_buffer_) delete[] buffer_;
    buffer_ = data;
    size_ = static_cast<uint32_t>(size);
    owns_buffer_ = should_own;
  }

  // Makes room for exactly `size` elements in a buffer of its own: keeps the first ones, value-initialises new ones.
  void resize(size_t size) {
    CheckSize(size);
    T* fresh = size == 0 ? nullptr : new T[size]();
    for (size_t i = 0; i < std::min<size_t>(size, size_); ++i) fresh[i] = std::move(buffer_[i]);
    setToExternal(fresh, size, true);
  }

  void swap(hidl_vec& other) noexcept {
    std::swap(buffer_, other.buffer_);
    std::swap(size_, other.size_);
    std::swap(owns_buffer_, other.owns_buffer_);
  }

  T* data() { return buffer_; }
  const T* data() const { return buffer_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T& operator[](size_t index) { return buffer_[index]; }
  const T& operator[](size_t index) const { return buffer_[index]; }
  iterator begin() { return buffer_; }
  iterator end() { return buffer_ + size_; }
  const_iterator begin() const { return buffer_; }
  const_iterator end() const { return buffer_ + size_; }

  bool operator==(const hidl_vec& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }
  bool operator!=(const hidl_vec& other) const { return !(*this == other); }

 private:
  static void CheckSize(size_t size) {
    LOG_ALWAYS_FATAL_IF(size > std::numeric_limits<uint32_t>::max(), "hidl_vec can't hold more than 2^32 elements.");
  }

  template <typename InputIterator>
  void assign(InputIterator first, InputIterator last) {
    const auto count = static_cast<size_t>(std::distance(first, last));
    CheckSize(count);
    T* fresh = count == 0 ? nullptr : new T[count];
    std::copy(first, last, fresh);
    setToExternal(fresh, count, true);
  }

  T* buffer_ = nullptr;
  uint32_t size_ = 0;
  bool owns_buffer_ = false;
};

// "[size]{a, b, c}" with decimal elements.
template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
std::string toString(const hidl_vec<T>& vec) {
  std::string text = "[";
  text += std::to_string(vec.size());
  text += "]{";
  for (size_t i = 0; i < vec.size(); ++i) {
    if (i != 0) text += ", ";
    text += std::to_string(vec[i]);
  }
  return text + "}";
}

}  // namespace android::hardware
