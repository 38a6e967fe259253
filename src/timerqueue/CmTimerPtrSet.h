#pragma once
/// A small open-addressing set of handler pointers (linear probing, backward-shift
/// erase, no allocation per operation once grown). Used by the queues to answer
/// "is this handler pending?" in O(1) so that scheduling a new timer does not scan.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

class CmTimerPtrSet {
 public:
  CmTimerPtrSet() { m_slots.assign(16, 0); }

  bool contains(const void* p) const {
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    for (size_t i = index_of(key);; i = (i + 1) & mask()) {
      if (m_slots[i] == key) return true;
      if (m_slots[i] == 0) return false;
    }
  }

  /// Returns false when already present.
  bool insert(const void* p) {
    if ((m_size + 1) * 2 > m_slots.size()) grow();
    return insert_key(reinterpret_cast<uintptr_t>(p));
  }

  /// Returns false when absent.
  bool erase(const void* p) {
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    size_t i = index_of(key);
    for (;; i = (i + 1) & mask()) {
      if (m_slots[i] == 0) return false;
      if (m_slots[i] == key) break;
    }
    // Backward-shift deletion keeps every probe chain unbroken.
    size_t hole = i;
    for (size_t j = (hole + 1) & mask(); m_slots[j] != 0; j = (j + 1) & mask()) {
      const size_t home = index_of(m_slots[j]);
      const bool movable = (j > hole) ? (home <= hole || home > j) : (home <= hole && home > j);
      if (movable) {
        m_slots[hole] = m_slots[j];
        hole = j;
      }
    }
    m_slots[hole] = 0;
    --m_size;
    return true;
  }

  void clear() {
    m_slots.assign(16, 0);
    m_size = 0;
  }
  size_t size() const { return m_size; }

 private:
  size_t mask() const { return m_slots.size() - 1; }
  size_t index_of(uintptr_t key) const {
    uint64_t h = static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ULL;
    return static_cast<size_t>(h >> 32) & mask();
  }
  bool insert_key(uintptr_t key) {
    size_t i = index_of(key);
    for (;; i = (i + 1) & mask()) {
      if (m_slots[i] == key) return false;
      if (m_slots[i] == 0) break;
    }
    m_slots[i] = key;
    ++m_size;
    return true;
  }
  void grow() {
    std::vector<uintptr_t> old;
    old.swap(m_slots);
    m_slots.assign(old.size() * 2, 0);
    m_size = 0;
    for (uintptr_t k : old)
      if (k != 0) insert_key(k);
  }

  std::vector<uintptr_t> m_slots;
  size_t m_size = 0;
};

/// The same table with a value per key: handler -> where its node lies.
template <class V>
class CmTimerPtrMap {
 public:
  CmTimerPtrMap() { reset(16); }

  V* find(const void* p) {
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    for (size_t i = index_of(key);; i = (i + 1) & mask()) {
      if (m_slots[i].first == key) return &m_slots[i].second;
      if (m_slots[i].first == 0) return nullptr;
    }
  }

  /// Inserts or overwrites.
  void set(const void* p, const V& value) {
    if ((m_size + 1) * 2 > m_slots.size()) grow();
    set_key(reinterpret_cast<uintptr_t>(p), value);
  }

  /// The value of p, inserted as value when p is absent (added says which): one probe
  /// where find then set would take two. The pointer lasts until the next change.
  V* find_or_add(const void* p, const V& value, bool& added) {
    if ((m_size + 1) * 2 > m_slots.size()) grow();
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    size_t i = index_of(key);
    for (;; i = (i + 1) & mask()) {
      if (m_slots[i].first == key) {
        added = false;
        return &m_slots[i].second;
      }
      if (m_slots[i].first == 0) break;
    }
    m_slots[i].first = key;
    m_slots[i].second = value;
    ++m_size;
    added = true;
    return &m_slots[i].second;
  }

  /// Starts loading the line where p's probe begins, for a lookup soon after.
  void prefetch(const void* p) const { __builtin_prefetch(&m_slots[index_of(reinterpret_cast<uintptr_t>(p))]); }

  bool erase(const void* p) {
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    size_t i = index_of(key);
    for (;; i = (i + 1) & mask()) {
      if (m_slots[i].first == 0) return false;
      if (m_slots[i].first == key) break;
    }
    size_t hole = i;
    for (size_t j = (hole + 1) & mask(); m_slots[j].first != 0; j = (j + 1) & mask()) {
      const size_t home = index_of(m_slots[j].first);
      const bool movable = (j > hole) ? (home <= hole || home > j) : (home <= hole && home > j);
      if (movable) {
        m_slots[hole] = m_slots[j];
        hole = j;
      }
    }
    m_slots[hole].first = 0;
    --m_size;
    return true;
  }

  size_t size() const { return m_size; }

 private:
  void reset(size_t n) {
    m_slots.assign(n, std::pair<uintptr_t, V>(0, V()));
    m_size = 0;
  }
  size_t mask() const { return m_slots.size() - 1; }
  size_t index_of(uintptr_t key) const {
    uint64_t h = static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ULL;
    return static_cast<size_t>(h >> 32) & mask();
  }
  void set_key(uintptr_t key, const V& value) {
    size_t i = index_of(key);
    for (;; i = (i + 1) & mask()) {
      if (m_slots[i].first == key) {
        m_slots[i].second = value;
        return;
      }
      if (m_slots[i].first == 0) break;
    }
    m_slots[i].first = key;
    m_slots[i].second = value;
    ++m_size;
  }
  void grow() {
    std::vector<std::pair<uintptr_t, V>> old;
    old.swap(m_slots);
    reset(old.size() * 2);
    for (const auto& kv : old)
      if (kv.first != 0) set_key(kv.first, kv.second);
  }

  std::vector<std::pair<uintptr_t, V>> m_slots;  // key and value side by side: one cache line
  size_t m_size = 0;
};
