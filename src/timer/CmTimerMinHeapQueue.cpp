// Min-heap timer queue: a two-child heap on expiry in a growable array.

#include "cmutil/timer/CmTimerMinHeapQueue.h"

#include <utility>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTrace.h"
#include "timer/CmTimerPtrSet.h"

struct CCmTimerMinHeapQueue::Impl {
  std::vector<CNode> nodes;
  CmTimerPtrSet pending;  // handlers present in nodes

  static bool later(const CNode& a, const CNode& b) { return a.m_tvExpired > b.m_tvExpired; }

  void sift_up(size_t i) {
    while (i > 0) {
      const size_t parent = (i - 1) / 2;
      if (!later(nodes[parent], nodes[i])) break;
      std::swap(nodes[parent], nodes[i]);
      i = parent;
    }
  }

  void sift_down(size_t i, size_t n) {
    for (;;) {
      const size_t left = 2 * i + 1;
      if (left >= n) break;
      size_t child = left;
      if (left + 1 < n && later(nodes[left], nodes[left + 1])) child = left + 1;
      if (!later(nodes[i], nodes[child])) break;
      std::swap(nodes[i], nodes[child]);
      i = child;
    }
  }

  void push(const CNode& node) {
    nodes.push_back(node);
    pending.insert(node.m_pEh);
    sift_up(nodes.size() - 1);
  }

  /// Removes the first node of aEh: erase it from the array (later nodes move down one
  /// place), then rebuild the heap bottom-up. O(n).
  bool remove(ICmTimerHandler* aEh) {
    if (!pending.contains(aEh)) return false;
    for (size_t i = 0; i < nodes.size(); ++i) {
      if (nodes[i].m_pEh != aEh) continue;
      nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(i));
      pending.erase(aEh);
      const size_t n = nodes.size();
      if (n > 1) {
        for (size_t parent = n / 2; parent-- > 0;) sift_down(parent, n);
      }
      return true;
    }
    pending.erase(aEh);
    return false;
  }

  void pop(CNode& out) {
    out = nodes.front();
    const size_t last = nodes.size() - 1;
    if (last > 0) {
      std::swap(nodes[0], nodes[last]);
      sift_down(0, last);
    }
    nodes.pop_back();
    pending.erase(out.m_pEh);
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
