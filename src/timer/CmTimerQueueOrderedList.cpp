// The ordered-list timer queue.

#include "cmutil/timer/CmTimerQueueOrderedList.h"

#include <list>

#include "cmutil/base/CmAssert.h"

struct CCmTimerQueueOrderedList::Impl {
  std::list<CNode> nodes;
};

CCmTimerQueueOrderedList::CCmTimerQueueOrderedList(ICmObserver* aObserver)
    : CCmTimerQueueBase(aObserver), m_impl(new Impl) {}

CCmTimerQueueOrderedList::~CCmTimerQueueOrderedList() {}

int CCmTimerQueueOrderedList::EnsureSorted() { return 0; }

int CCmTimerQueueOrderedList::PushNode_l(const CNode& aNode) {
  // One pass: drop the handler's old node and insert before the first node that
  // expires at the same time or later.
  std::list<CNode>& nodes = m_impl->nodes;
  bool bRemoved = false;
  bool bInserted = false;
  for (auto it = nodes.begin(); it != nodes.end();) {
    if (!bRemoved && it->m_pEh == aNode.m_pEh) {
      it = nodes.erase(it);
      bRemoved = true;
      if (bInserted) break;
      continue;
    }
    if (!bInserted && it->m_tvExpired >= aNode.m_tvExpired) {
      nodes.insert(it, aNode);
      bInserted = true;
      if (bRemoved) break;
    }
    ++it;
  }
  if (!bInserted) nodes.push_back(aNode);
  return bRemoved ? 1 : 0;
}

int CCmTimerQueueOrderedList::RePushNode_l(const CNode& aNode) {
  std::list<CNode>& nodes = m_impl->nodes;
  auto it = nodes.begin();
  while (it != nodes.end() && it->m_tvExpired < aNode.m_tvExpired) ++it;
  nodes.insert(it, aNode);
  return 0;
}

int CCmTimerQueueOrderedList::EraseNode_l(ICmTimerHandler* aEh) {
  std::list<CNode>& nodes = m_impl->nodes;
  for (auto it = nodes.begin(); it != nodes.end(); ++it) {
    if (it->m_pEh == aEh) {
      nodes.erase(it);
      return 0;
    }
  }
  return 1;
}

int CCmTimerQueueOrderedList::PopFirstNode_l(CNode& aNode) {
  CM_ASSERTE_RETURN(!m_impl->nodes.empty(), -1);
  aNode = m_impl->nodes.front();
  m_impl->nodes.pop_front();
  return 0;
}

int CCmTimerQueueOrderedList::GetEarliestTime_l(CCmTimeValue& aEarliest) const {
  if (m_impl->nodes.empty()) return -1;
  aEarliest = m_impl->nodes.front().m_tvExpired;
  return 0;
}

int CCmTimerQueueOrderedList::ResetExpiredTime_l(const CCmTimeValue& aCurTime) {
  for (CNode& node : m_impl->nodes) node.m_tvExpired = aCurTime + node.m_tvInterval;
  return 0;
}
