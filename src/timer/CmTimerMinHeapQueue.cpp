// Min-heap timer queue: a two-child heap on expiry in a growable array.

#include "cmutil/timer/CmTimerMinHeapQueue.h"

#include <cstdint>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTrace.h"
#include "timer/CmTimerPtrSet.h"

struct CCmTimerMinHeapQueue::Impl {
  std::vector<CNode> nodes;
  CmTimerPtrMap<uint32_t> position;  // handler -> its node's index in nodes

  static bool later(const CNode& a, const CNode& b) { return a.m_tvExpired > b.m_tvExpired; }

  /// Puts node into place i and records where its handler now lies.
  void place(size_t i, const CNode& node) {
    nodes[i] = node;
    *position.find(node.m_pEh) = static_cast<uint32_t>(i);
  }

  /// Moves the hole at i up past every later parent; returns where node belongs.
  size_t hole_up(size_t i, const CNode& node) {
    while (i > 0) {
      const size_t parent = (i - 1) / 2;
      if (!later(nodes[parent], node)) break;
      place(i, nodes[parent]);
      i = parent;
    }
    return i;
  }

  void sift_up(size_t i, const CNode& node) { place(hole_up(i, node), node); }

  /// Moves the hole at i down until node fits among the first n nodes, then stores it.
  void sift_down(size_t i, size_t n, const CNode& node) {
    for (;;) {
      const size_t left = 2 * i + 1;
      if (left >= n) break;
      size_t child = left;
      if (left + 1 < n && later(nodes[left], nodes[left + 1])) child = left + 1;
      if (!later(node, nodes[child])) break;
      place(i, nodes[child]);
      i = child;
    }
    place(i, node);
  }

  /// A new handler: one index insert, at its final place.
  void push(const CNode& node) {
    nodes.emplace_back();
    const size_t i = hole_up(nodes.size() - 1, node);
    nodes[i] = node;
    position.set(node.m_pEh, static_cast<uint32_t>(i));
  }

  /// Takes the node at i out: the last node fills its place and moves up or down.
  /// O(log n).
  void remove_at(size_t i) {
    position.erase(nodes[i].m_pEh);
    const size_t last = nodes.size() - 1;
    if (i != last) {
      const CNode moved = nodes[last];
      nodes.pop_back();
      if (i > 0 && later(nodes[(i - 1) / 2], moved))
        sift_up(i, moved);
      else
        sift_down(i, last, moved);
      return;
    }
    nodes.pop_back();
  }

  /// Removes aEh's node, found through the position index.
  bool remove(ICmTimerHandler* aEh) {
    const uint32_t* at = position.find(aEh);
    if (at == nullptr) return false;
    remove_at(*at);
    return true;
  }

  void pop(CNode& out) {
    out = nodes.front();
    remove_at(0);
  }
};

CCmTimerMinHeapQueue::CCmTimerMinHeapQueue(ICmObserver* aObserver) : CCmTimerQueueBase(aObserver), m_impl(new Impl) {}

CCmTimerMinHeapQueue::~CCmTimerMinHeapQueue() { delete m_impl; }

size_t CCmTimerMinHeapQueue::GetCount() const { return m_impl->nodes.size(); }

int CCmTimerMinHeapQueue::PushNode_l(const CNode& aPushNode) {
  const bool found = m_impl->remove(aPushNode.m_pEh);
  m_impl->push(aPushNode);
  return found ? 1 : 0;
}

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
  aEarliest = m_impl->nodes.front().m_tvExpired;
  return 0;
}
