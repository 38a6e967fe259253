#pragma once
/// Handler pointer -> value: how the queues find a handler's node in O(1) so that
/// scheduling and cancelling do not scan. Open addressing with linear probing and
/// backward-shift erase; no allocation per operation once grown.
///
/// Tables come from calloc: the pages of a large new table come fresh from the
/// kernel, zeroed already, so a doubling does not write the whole table once before
/// the rehash fills it.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

template <class V>
class CmTimerPtrMap {
  static_assert(std::is_trivially_copyable<V>::value, "values move as raw bytes");

 public:
  CmTimerPtrMap() { reset(16); }

  V* find(const void* p) {
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    for (size_t i = index_of(key);; i = (i + 1) & m_mask) {
      if (m_slots[i].key == key) return &m_slots[i].value;
      if (m_slots[i].key == 0) return nullptr;
    }
  }

  /// Inserts or overwrites.
  void set(const void* p, const V& value) {
    bool added = false;
    *find_or_add(p, value, added) = value;
  }

  /// The value of p, inserted as value when p is absent (added says which): one probe
  /// where find then set would take two. The pointer lasts until the next change.
  V* find_or_add(const void* p, const V& value, bool& added) {
    if ((m_size + 1) * 2 > m_mask + 1) grow();
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    size_t i = index_of(key);
    for (;; i = (i + 1) & m_mask) {
      if (m_slots[i].key == key) {
        added = false;
        return &m_slots[i].value;
      }
      if (m_slots[i].key == 0) break;
    }
    m_slots[i] = {key, value};
    ++m_size;
    added = true;
    return &m_slots[i].value;
  }

  /// Starts loading the line where p's probe begins, for a lookup soon after.
  void prefetch(const void* p) const { __builtin_prefetch(&m_slots[index_of(reinterpret_cast<uintptr_t>(p))]); }

  bool erase(const void* p) {
    const uintptr_t key = reinterpret_cast<uintptr_t>(p);
    size_t i = index_of(key);
    for (;; i = (i + 1) & m_mask) {
      if (m_slots[i].key == 0) return false;
      if (m_slots[i].key == key) break;
    }
    // Backward-shift deletion keeps every probe chain unbroken.
    size_t hole = i;
    for (size_t j = (hole + 1) & m_mask; m_slots[j].key != 0; j = (j + 1) & m_mask) {
      const size_t home = index_of(m_slots[j].key);
      const bool movable = (j > hole) ? (home <= hole || home > j) : (home <= hole && home > j);
      if (movable) {
        m_slots[hole] = m_slots[j];
        hole = j;
      }
    }
    m_slots[hole].key = 0;
    --m_size;
    return true;
  }

  size_t size() const { return m_size; }

 private:
  struct Slot {
    uintptr_t key;  // 0: empty
    V value;        // beside its key: one cache line per probe
  };
  struct FreeSlots {
    void operator()(Slot* p) const { std::free(p); }
  };

  /// An empty table of count slots, a power of two.
  void reset(size_t count) {
    m_slots.reset(static_cast<Slot*>(std::calloc(count, sizeof(Slot))));
    if (!m_slots) throw std::bad_alloc();
    m_mask = count - 1;
    m_shift = 64 - static_cast<unsigned>(__builtin_ctzll(count));
    m_size = 0;
  }
  /// Fibonacci hashing: the top bits of the product (of the address without its three
  /// alignment bits). Evenly spaced handlers, an array of them or blocks of one
  /// allocator size class, spread evenly over the table. The product's middle bits
  /// would leave them in runs: five probes on average at 24-byte spacing.
  size_t index_of(uintptr_t key) const {
    return static_cast<size_t>(((static_cast<uint64_t>(key) >> 3) * 0x9E3779B97F4A7C15ULL) >> m_shift);
  }
  void insert_new(const Slot& slot) {
    size_t i = index_of(slot.key);
    while (m_slots[i].key != 0) i = (i + 1) & m_mask;
    m_slots[i] = slot;
    ++m_size;
  }
  void grow() {
    std::unique_ptr<Slot[], FreeSlots> old(m_slots.release());
    const size_t count = m_mask + 1;
    reset(count * 2);
    for (size_t i = 0; i < count; ++i)
      if (old[i].key != 0) insert_new(old[i]);
  }

  std::unique_ptr<Slot[], FreeSlots> m_slots;
  size_t m_mask = 0;
  unsigned m_shift = 64;
  size_t m_size = 0;
};
