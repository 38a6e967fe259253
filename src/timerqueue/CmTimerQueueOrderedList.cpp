// The ordered-list timer queue.

#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"

#include <iterator>
#include <list>
#include <unordered_map>

#include "cmutil/base/CmAssert.h"

// The list is sorted by expiry except after a rebase (ResetExpiredTime_l keeps the old
// order while giving every node a new expiry). While it is known to be sorted, the
// insertion point is searched from the back, which finds the same place as a search from
// the front and is where re-armed timers usually go; otherwise the search runs from the
// front as always. A handler index makes finding a handler's node constant time.
struct CCmTimerQueueOrderedList::Impl {
  typedef std::list<CNode>::iterator Iter;

  std::list<CNode> nodes;
  std::unordered_map<ICmTimerHandler*, Iter> index;
  bool sorted = true;

  // Insert before the first node that expires at the same time or later.
  Iter Insert(const CNode& aNode) {
    Iter pos;
    if (sorted) {
      pos = nodes.end();
      while (pos != nodes.begin()) {
        Iter prev = std::prev(pos);
        if (prev->m_tvExpired < aNode.m_tvExpired) break;
        pos = prev;
      }
    } else {
      pos = nodes.begin();
      while (pos != nodes.end() && pos->m_tvExpired < aNode.m_tvExpired) ++pos;
    }
    Iter it = nodes.insert(pos, aNode);
    index[aNode.m_pEh] = it;
    return it;
  }

  bool Erase(ICmTimerHandler* aEh) {
    auto found = index.find(aEh);
    if (found == index.end()) return false;
    nodes.erase(found->second);
    index.erase(found);
    if (nodes.empty()) sorted = true;
    return true;
  }
};

CCmTimerQueueOrderedList::CCmTimerQueueOrderedList(ICmObserver* aObserver)
    : CCmTimerQueueBase(aObserver), m_impl(new Impl) {}

CCmTimerQueueOrderedList::~CCmTimerQueueOrderedList() {}

int CCmTimerQueueOrderedList::EnsureSorted() { return 0; }

int CCmTimerQueueOrderedList::PushNode_l(const CNode& aNode) {
  // Drop the handler's old node, then insert the new one.
  bool bRemoved = m_impl->Erase(aNode.m_pEh);
  m_impl->Insert(aNode);
  return bRemoved ? 1 : 0;
}

int CCmTimerQueueOrderedList::RePushNode_l(const CNode& aNode) {
  m_impl->Insert(aNode);
  return 0;
}

int CCmTimerQueueOrderedList::EraseNode_l(ICmTimerHandler* aEh) { return m_impl->Erase(aEh) ? 0 : 1; }

int CCmTimerQueueOrderedList::PopFirstNode_l(CNode& aNode) {
  CM_ASSERTE_RETURN(!m_impl->nodes.empty(), -1);
  aNode = m_impl->nodes.front();
  auto found = m_impl->index.find(aNode.m_pEh);
  if (found != m_impl->index.end() && found->second == m_impl->nodes.begin()) m_impl->index.erase(found);
  m_impl->nodes.pop_front();
  if (m_impl->nodes.empty()) m_impl->sorted = true;
  return 0;
}

int CCmTimerQueueOrderedList::GetEarliestTime_l(CCmTimeValue& aEarliest) const {
  if (m_impl->nodes.empty()) return -1;
  aEarliest = m_impl->nodes.front().m_tvExpired;
  return 0;
}

int CCmTimerQueueOrderedList::ResetExpiredTime_l(const CCmTimeValue& aCurTime) {
  // Every expiry becomes now + interval; the order stays as it was, which may leave the
  // list out of expiry order until it drains.
  bool sorted = true;
  const CNode* prev = nullptr;
  for (CNode& node : m_impl->nodes) {
    node.m_tvExpired = aCurTime + node.m_tvInterval;
    if (prev && node.m_tvExpired < prev->m_tvExpired) sorted = false;
    prev = &node;
  }
  m_impl->sorted = sorted;
  return 0;
}
