#pragma once
/// Timer records addressed by 32-bit numbers, kept in blocks of 512 that never move.
///
/// A growing queue neither copies its records (as a doubling array would) nor asks the
/// C library for one ever larger block: blocks this small come from its free lists, so
/// a queue filled again after a drain reuses warm memory instead of faulting in fresh
/// pages. Free records are threaded through their `next` member, which a record in
/// use may spend on its own links.

#include <cstdint>
#include <memory>
#include <vector>

#include "cmutil/timerqueue/CmTimerQueueBase.h"

template <class Node>
class CmTimerNodePool {
 public:
  static constexpr uint32_t kNil = 0xFFFFFFFFu;

  Node& at(uint32_t i) { return m_blocks[i >> kShift][i & (kBlock - 1)]; }
  const Node& at(uint32_t i) const { return m_blocks[i >> kShift][i & (kBlock - 1)]; }

  /// Numbers below this are valid (in use or free).
  uint32_t capacity() const { return static_cast<uint32_t>(m_blocks.size()) << kShift; }

  /// Stores value in a free record and returns its number.
  uint32_t alloc(const CCmTimerQueueBase::CNode& value) {
    if (m_free == kNil) add_block();
    const uint32_t i = m_free;
    Node& n = at(i);
    m_free = n.next;
    static_cast<CCmTimerQueueBase::CNode&>(n) = value;
    return i;
  }

  void release(uint32_t i) {
    at(i).next = m_free;
    m_free = i;
  }

 private:
  static constexpr uint32_t kShift = 9;
  static constexpr uint32_t kBlock = 1u << kShift;

  void add_block() {
    const uint32_t base = capacity();
    m_blocks.emplace_back(new Node[kBlock]);
    Node* block = m_blocks.back().get();
    // Lowest number first, so a filling queue walks its blocks forwards.
    for (uint32_t k = kBlock; k-- > 0;) {
      block[k].next = m_free;
      m_free = base + k;
    }
  }

  std::vector<std::unique_ptr<Node[]>> m_blocks;
  uint32_t m_free = kNil;
};
