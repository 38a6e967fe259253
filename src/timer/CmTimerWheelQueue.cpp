// Wheel timer queue: 3000 slots of 10 ms with near and far lists per slot.

#include "cmutil/timer/CmTimerWheelQueue.h"

#include <memory>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "timer/CmTimerClock.h"
#include "timer/CmTimerPtrSet.h"
#include "timer/CmTimerWheelInspector.h"

namespace {

constexpr unsigned int kSlots = CCmTimerWheelQueue::kSlotCount;
constexpr size_t kChunk = 512;

}  // namespace

struct CCmTimerWheelQueue::Impl {
  struct Node {
    CNode node;
    Node* prev;
    Node* next;
    bool far;  // in a far list
  };
  struct List {
    Node* head = nullptr;
    Node* tail = nullptr;
    unsigned int count = 0;

    void push_back(Node* n) {
      n->next = nullptr;
      n->prev = tail;
      if (tail)
        tail->next = n;
      else
        head = n;
      tail = n;
      ++count;
    }
    void insert_before(Node* pos, Node* n) {
      if (!pos) {
        push_back(n);
        return;
      }
      n->next = pos;
      n->prev = pos->prev;
      if (pos->prev)
        pos->prev->next = n;
      else
        head = n;
      pos->prev = n;
      ++count;
    }
    void unlink(Node* n) {
      if (n->prev)
        n->prev->next = n->next;
      else
        head = n->next;
      if (n->next)
        n->next->prev = n->prev;
      else
        tail = n->prev;
      --count;
    }
    Node* find(ICmTimerHandler* h) const {
      for (Node* n = head; n; n = n->next)
        if (n->node.m_pEh == h) return n;
      return nullptr;
    }
  };

  List nearLists[kSlots];
  List farLists[kSlots];
  CCmTimeValue earliest = CCmTimeValue::get_tvMax();
  size_t total = 0;
  Node* freeList = nullptr;
  std::vector<std::unique_ptr<Node[]>> chunks;
  // handler -> its node, so that a cancel does not walk the slot's list
  CmTimerPtrMap<Node*> index;

  Node* alloc(const CNode& value) {
    if (!freeList) {
      chunks.emplace_back(new Node[kChunk]);
      Node* block = chunks.back().get();
      for (size_t i = 0; i < kChunk; ++i) {
        block[i].next = freeList;
        freeList = &block[i];
      }
    }
    Node* n = freeList;
    freeList = n->next;
    n->node = value;
    ++total;
    return n;
  }
  void release(Node* n) {
    n->next = freeList;
    freeList = n;
    --total;
  }

  /// Stores a node: near list when its expiry lies within the 30-second window of
  /// the wheel, else sorted into the far list of its slot.
  void push(const CNode& value) {
    const CCmTimeValue now = cm_timer_now();
    const unsigned int slot = CCmTimerWheelQueue::SlotOf(value.m_tvExpired);
    Node* n = alloc(value);
    n->far = value.m_tvExpired.GetSec() > now.GetSec() + 29;
    if (!n->far) {
      nearLists[slot].push_back(n);
    } else {
      List& far = farLists[slot];
      Node* pos = far.head;
      while (pos && pos->node.m_tvExpired < value.m_tvExpired) pos = pos->next;
      far.insert_before(pos, n);
    }
    if (value.m_tvExpired < earliest) earliest = value.m_tvExpired;
    value.m_pEh->m_dwWheelSlot = slot;
    index.set(value.m_pEh, n);
  }

  /// Finds the next earliest timer, walking forward from slot s. On the way, far
  /// timers that now lie within the 30-second window move to the end of their near
  /// list (the rule that places a new node). The first non-empty near list gives the
  /// cached earliest; far timers seen before it still count, so a queue holding only
  /// far timers keeps a correct earliest time.
  void rescan(unsigned int s) {
    const CCmTimeValue now = cm_timer_now();
    const long long windowEndSec = static_cast<long long>(now.GetSec()) + 29;
    CCmTimeValue farMin = CCmTimeValue::get_tvMax();
    for (unsigned int i = 0; i < kSlots; ++i) {
      const unsigned int k = (s + i) % kSlots;
      List& nearList = nearLists[k];
      List& farList = farLists[k];
      if (!nearList.head) {
        while (farList.head && static_cast<long long>(farList.head->node.m_tvExpired.GetSec()) <= windowEndSec) {
          Node* n = farList.head;
          farList.unlink(n);
          n->far = false;
          nearList.push_back(n);
        }
      }
      if (farList.head && farList.head->node.m_tvExpired < farMin) farMin = farList.head->node.m_tvExpired;
      if (nearList.head) {
        const CCmTimeValue& first = nearList.head->node.m_tvExpired;
        earliest = first < farMin ? first : farMin;
        return;
      }
    }
    earliest = farMin;
  }

  bool erase(ICmTimerHandler* h) {
    const unsigned int slot = h->m_dwWheelSlot;
    if (slot >= kSlots) return false;
    bool removed = false;
    if (Node** found = index.find(h)) {
      Node* n = *found;
      const unsigned int at = CCmTimerWheelQueue::SlotOf(n->node.m_tvExpired);
      (n->far ? farLists[at] : nearLists[at]).unlink(n);
      index.erase(h);
      release(n);
      removed = true;
    }
    if (earliest != CCmTimeValue::get_tvMax() && slot == CCmTimerWheelQueue::SlotOf(earliest) && !nearLists[slot].head)
      rescan(slot);
    return removed;
  }
};

CCmTimerWheelQueue::CCmTimerWheelQueue(ICmObserver* aObserver) : CCmTimerQueueBase(aObserver), m_impl(new Impl) {}

CCmTimerWheelQueue::~CCmTimerWheelQueue() { delete m_impl; }

size_t CCmTimerWheelQueue::GetCount() const { return m_impl->total; }

unsigned int CCmTimerWheelQueue::SlotOf(const CCmTimeValue& t) {
  long long v = (static_cast<long long>(t.GetSec()) * 100 + static_cast<long long>(t.GetUsec()) / 10000) % kSlots;
  if (v < 0) v += kSlots;
  return static_cast<unsigned int>(v);
}

int CCmTimerWheelQueue::PushNode_l(const CNode& aPushNode) {
  const int erased = EraseNode_l(aPushNode.m_pEh);
  m_impl->push(aPushNode);
  return erased == 0 ? 1 : 0;
}

int CCmTimerWheelQueue::EraseNode_l(ICmTimerHandler* aEh) { return m_impl->erase(aEh) ? 0 : 1; }

int CCmTimerWheelQueue::RePushNode_l(const CNode& aPushNode) {
  m_impl->push(aPushNode);
  return 0;
}

int CCmTimerWheelQueue::PopFirstNode_l(CNode& aPopNode) {
  Impl& impl = *m_impl;
  CM_ASSERTE_RETURN(impl.earliest != CCmTimeValue::get_tvMax(), -1);
  unsigned int slot = SlotOf(impl.earliest);
  if (!impl.nearLists[slot].head) {
    // The earliest timer still waits in a far list: move the due entries first.
    impl.rescan(slot);
    slot = SlotOf(impl.earliest);
    if (impl.earliest == CCmTimeValue::get_tvMax() || !impl.nearLists[slot].head) return -1;
  }
  Impl::List& list = impl.nearLists[slot];
  Impl::Node* n = list.head;
  list.unlink(n);
  aPopNode = n->node;
  impl.index.erase(n->node.m_pEh);
  impl.release(n);
  if (!list.head) impl.rescan(slot);
  return 0;
}

int CCmTimerWheelQueue::GetEarliestTime_l(CCmTimeValue& aEarliest) const {
  if (m_impl->earliest == CCmTimeValue::get_tvMax()) return -1;
  aEarliest = m_impl->earliest;
  return 0;
}

unsigned int CmTimerWheelInspector::NearCount(const CCmTimerWheelQueue& q, unsigned int slot) {
  return slot < kSlots ? q.m_impl->nearLists[slot].count : 0;
}

unsigned int CmTimerWheelInspector::FarCount(const CCmTimerWheelQueue& q, unsigned int slot) {
  return slot < kSlots ? q.m_impl->farLists[slot].count : 0;
}

CCmTimeValue CmTimerWheelInspector::CachedEarliest(const CCmTimerWheelQueue& q) { return q.m_impl->earliest; }
