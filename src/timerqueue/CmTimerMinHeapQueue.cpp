// Min-heap timer queue: a two-child heap on expiry in a growable array, with a position
// per node so a cancel is logarithmic.

#include "cmutil/timerqueue/CmTimerMinHeapQueue.h"

#include <cstdint>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTrace.h"
#include "timerqueue/CmTimerNodePool.h"
#include "timerqueue/CmTimerPtrMap.h"

// The heap holds small entries (expiry and a slot number) so sifting moves 24 bytes,
// not whole nodes. Each node sits still in a pooled slot; the entry's heap position is
// kept apart from the nodes, 4 bytes per slot, so that the positions a sift rewrites
// stay in a small array that fits the processor's cache. The handler -> slot index is
// consulted once per operation, never per sift.
struct CCmTimerMinHeapQueue::Impl {
  struct Entry {
    CCmTimeValue expiry;
    uint32_t slot;
  };
  struct Slot : CNode {
    uint32_t next;  // free-list link
  };

  std::vector<Entry> nodes;  // the heap
  CmTimerNodePool<Slot> slots;
  std::vector<uint32_t> positions;  // slot -> its entry's place in the heap
  CmTimerPtrMap<uint32_t> slotOf;   // handler -> its slot

  static bool later(const Entry& a, const Entry& b) { return a.expiry > b.expiry; }

  /// Puts entry into place i and records that position for its slot.
  void place(size_t i, const Entry& entry) {
    nodes[i] = entry;
    positions[entry.slot] = static_cast<uint32_t>(i);
  }

  /// Moves the hole at i up past every later parent; returns where entry belongs.
  size_t hole_up(size_t i, const Entry& entry) {
    while (i > 0) {
      const size_t parent = (i - 1) / 2;
      if (!later(nodes[parent], entry)) break;
      place(i, nodes[parent]);
      i = parent;
    }
    return i;
  }

  /// Moves the hole at i down until entry fits among the first n entries, then stores it.
  void sift_down(size_t i, size_t n, const Entry& entry) {
    for (;;) {
      const size_t left = 2 * i + 1;
      if (left >= n) break;
      size_t child = left;
      if (left + 1 < n && later(nodes[left], nodes[left + 1])) child = left + 1;
      if (!later(entry, nodes[child])) break;
      place(i, nodes[child]);
      i = child;
    }
    place(i, entry);
  }

  uint32_t take_slot(const CNode& node) {
    const uint32_t slot = slots.alloc(node);
    if (slot >= positions.size()) positions.resize(slots.capacity());
    return slot;
  }

  /// Adds node for a handler the index does not hold yet.
  void push(const CNode& node) {
    const Entry entry = {node.m_tvExpired, take_slot(node)};
    slotOf.set(node.m_pEh, entry.slot);
    push_entry(entry);
  }

  void push_entry(const Entry& entry) {
    nodes.emplace_back();
    place(hole_up(nodes.size() - 1, entry), entry);
  }

  /// Schedules node, replacing the handler's pending node if it has one (true then).
  /// One index probe either way; a replacement reuses the handler's slot.
  bool replace_or_push(const CNode& node) {
    bool added = false;
    uint32_t* slot = slotOf.find_or_add(node.m_pEh, 0, added);
    if (added) {
      *slot = take_slot(node);
      push_entry({node.m_tvExpired, *slot});
      return false;
    }
    const uint32_t kept = *slot;
    unlink_entry(positions[kept]);
    static_cast<CNode&>(slots.at(kept)) = node;
    push_entry({node.m_tvExpired, kept});
    return true;
  }

  /// Takes the entry at i out of the heap: the last entry fills its place and moves
  /// up or down. The slot and the index are left to the caller.
  void unlink_entry(size_t i) {
    const size_t last = nodes.size() - 1;
    const Entry moved = nodes[last];
    nodes.pop_back();
    if (i == last) return;
    if (i > 0 && later(nodes[(i - 1) / 2], moved))
      place(hole_up(i, moved), moved);
    else
      sift_down(i, last, moved);
  }

  /// Takes the entry at i out and frees its slot and index entry. The index line is
  /// requested first and erased from last, so its load overlaps the sift.
  void remove_at(size_t i) {
    const uint32_t slot = nodes[i].slot;
    const ICmTimerHandler* handler = slots.at(slot).m_pEh;
    slotOf.prefetch(handler);
    unlink_entry(i);
    slotOf.erase(handler);
    slots.release(slot);
  }

  /// Removes aEh's node, found through the slot index.
  bool remove(ICmTimerHandler* aEh) {
    const uint32_t* slot = slotOf.find(aEh);
    if (slot == nullptr) return false;
    remove_at(positions[*slot]);
    return true;
  }

  void pop(CNode& out) {
    out = slots.at(nodes.front().slot);
    remove_at(0);
    // A firing pass pops in expiry order, which is random in slot order: start
    // loading the next node while this one's callback runs.
    if (!nodes.empty()) __builtin_prefetch(&slots.at(nodes.front().slot));
  }
};

CCmTimerMinHeapQueue::CCmTimerMinHeapQueue(ICmObserver* aObserver) : CCmTimerQueueBase(aObserver), m_impl(new Impl) {}

CCmTimerMinHeapQueue::~CCmTimerMinHeapQueue() { delete m_impl; }

size_t CCmTimerMinHeapQueue::GetCount() const { return m_impl->nodes.size(); }

int CCmTimerMinHeapQueue::PushNode_l(const CNode& aPushNode) { return m_impl->replace_or_push(aPushNode) ? 1 : 0; }

int CCmTimerMinHeapQueue::EraseNode_l(ICmTimerHandler* aEh) { return m_impl->remove(aEh) ? 0 : 1; }

int CCmTimerMinHeapQueue::RePushNode_l(const CNode& aPushNode) {
  m_impl->push(aPushNode);
  return 0;
}

int CCmTimerMinHeapQueue::PopFirstNode_l(CNode& aPopNode) {
  CM_ASSERTE_RETURN(!m_impl->nodes.empty(), -1);
  m_impl->pop(aPopNode);
  return 0;
}

int CCmTimerMinHeapQueue::GetEarliestTime_l(CCmTimeValue& aEarliest) const {
  if (m_impl->nodes.empty()) return -1;
  aEarliest = m_impl->nodes.front().expiry;
  return 0;
}
