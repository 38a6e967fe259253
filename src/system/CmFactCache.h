#pragma once
// A fact remembered for the life of the process: filled by the first call that succeeds,
// then read without a lock. Readers on other threads see either "not yet" or the whole
// value, never a half-written one. The filesystem-root test setter empties it.

#include <atomic>
#include <mutex>

template <class T>
class CmFactCache {
 public:
  /// Copies the value into out when it is filled.
  bool Get(T& out) const {
    if (!m_filled.load(std::memory_order_acquire)) return false;
    out = m_value;
    return true;
  }

  /// The value when filled (callers check Filled first).
  const T& Value() const { return m_value; }
  bool Filled() const { return m_filled.load(std::memory_order_acquire); }

  /// Fills the cache once: the first value stored wins, later ones are dropped.
  void Set(const T& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_filled.load(std::memory_order_relaxed)) return;
    m_value = value;
    m_filled.store(true, std::memory_order_release);
  }

  /// Test only (through the root setter): no reader may run at the same time.
  void Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_filled.store(false, std::memory_order_release);
    m_value = T();
  }

 private:
  std::atomic<bool> m_filled{false};
  std::mutex m_mutex;
  T m_value{};
};
