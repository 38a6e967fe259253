// Wheel timer queue: 3000 slots of 10 ms with near and far lists per slot.

#include "cmutil/timerqueue/CmTimerWheelQueue.h"

#include <cstdint>
#include <vector>

#include "base/CmClock.h"
#include "cmutil/base/CmAssert.h"
#include "timerqueue/CmTimerNodePool.h"
#include "timerqueue/CmTimerPtrMap.h"
#include "timerqueue/CmTimerWheelInspector.h"

namespace {

constexpr unsigned int kSlots = CCmTimerWheelQueue::kSlotCount;
constexpr uint32_t kNil = 0xFFFFFFFFu;
constexpr long long kSlotUs = CCmTimerWheelQueue::kSlotMs * 1000LL;

/// The slot of time t (see SlotOf), inlined for the queue's own use.
inline unsigned int slot_of(const CCmTimeValue& t) {
  long long v = (static_cast<long long>(t.GetSec()) * 100 + static_cast<long long>(t.GetUsec()) / 10000) % kSlots;
  if (v < 0) v += kSlots;
  return static_cast<unsigned int>(v);
}

/// "No timer": read once instead of calling out of the library for every comparison.
const CCmTimeValue& tv_max() {
  static const CCmTimeValue& value = CCmTimeValue::get_tvMax();
  return value;
}

}  // namespace

struct CCmTimerWheelQueue::Impl {
  // One cache line per node: the links are 32-bit pool indices that sit in the tail
  // padding of the timer record, so a node never straddles two lines and a large
  // wheel touches one line (not two) per node it visits.
  struct alignas(64) Node : CNode {
    uint32_t prev;
    uint32_t next;
    bool far;  // in a far list
  };
  static_assert(sizeof(Node) == 64, "a wheel node fills exactly one cache line");

  CmTimerNodePool<Node> pool;

  Node& at(uint32_t i) { return pool.at(i); }
  const Node& at(uint32_t i) const { return pool.at(i); }

  struct List {
    uint32_t head = kNil;
    uint32_t tail = kNil;
    unsigned int count = 0;
  };

  void push_back(List& l, uint32_t i) {
    Node& n = at(i);
    n.next = kNil;
    n.prev = l.tail;
    if (l.tail != kNil)
      at(l.tail).next = i;
    else
      l.head = i;
    l.tail = i;
    ++l.count;
  }
  void insert_before(List& l, uint32_t pos, uint32_t i) {
    if (pos == kNil) {
      push_back(l, i);
      return;
    }
    Node& n = at(i);
    Node& p = at(pos);
    n.next = pos;
    n.prev = p.prev;
    if (p.prev != kNil)
      at(p.prev).next = i;
    else
      l.head = i;
    p.prev = i;
    ++l.count;
  }
  void unlink(List& l, uint32_t i) {
    Node& n = at(i);
    if (n.prev != kNil)
      at(n.prev).next = n.next;
    else
      l.head = n.next;
    if (n.next != kNil)
      at(n.next).prev = n.prev;
    else
      l.tail = n.prev;
    --l.count;
  }

  List nearLists[kSlots];
  List farLists[kSlots];
  CCmTimeValue earliest = tv_max();
  size_t total = 0;
  // handler -> index of its node, so that a cancel does not walk the slot's list
  CmTimerPtrMap<uint32_t> index;

  uint32_t alloc(const CNode& value) {
    ++total;
    return pool.alloc(value);
  }
  void release(uint32_t i) {
    pool.release(i);
    --total;
  }

  /// Stores a node: near list when its expiry lies within the 30-second window of
  /// the wheel, else sorted into the far list of its slot.
  void push(const CNode& value) {
    const CCmTimeValue now = cm_timer_now();
    const unsigned int slot = slot_of(value.m_tvExpired);
    const uint32_t i = alloc(value);
    Node& n = at(i);
    n.far = value.m_tvExpired.GetSec() > now.GetSec() + 29;
    if (!n.far) {
      push_back(nearLists[slot], i);
    } else {
      List& far = farLists[slot];
      uint32_t pos = far.head;
      while (pos != kNil && at(pos).m_tvExpired < value.m_tvExpired) pos = at(pos).next;
      insert_before(far, pos, i);
    }
    if (value.m_tvExpired < earliest) earliest = value.m_tvExpired;
    value.m_pEh->m_dwWheelSlot = slot;
    index.set(value.m_pEh, i);
  }

  static long long toUs(const CCmTimeValue& t) {
    return static_cast<long long>(t.GetSec()) * 1000000LL + static_cast<long long>(t.GetUsec());
  }

  /// Moves the far timers of slot k that now lie within the 30-second window to the
  /// end of its near list (the rule that places a new node).
  void promote(unsigned int k, long long windowEndSec) {
    List& farList = farLists[k];
    while (farList.head != kNil && static_cast<long long>(at(farList.head).m_tvExpired.GetSec()) <= windowEndSec) {
      const uint32_t i = farList.head;
      unlink(farList, i);
      at(i).far = false;
      push_back(nearLists[k], i);
    }
  }

  /// While timers are due the firing pass only needs some due timer as the earliest:
  /// a head of near list [k] that lies before `bound` (in the 10 ms of this step) and
  /// is due serves without walking the list for its minimum. Once nothing is due the
  /// walk finds the exact earliest.
  bool takeDueHead(unsigned int k, long long bound, const CCmTimeValue& now) {
    const uint32_t h = nearLists[k].head;
    if (h == kNil) return false;
    const CCmTimeValue& e = at(h).m_tvExpired;
    if (toUs(e) >= bound || now < e) return false;
    earliest = e;
    return true;
  }

  /// Finds the earliest timer again, walking forward from slot s, the slot of the
  /// cached earliest, which is no later than any timer left. Step i of the walk covers
  /// the 10 ms that start i x 10 ms after that slot's start; a slot may also hold
  /// timers of a later revolution (after the clock jumped, or far timers), so the walk
  /// ends only at a slot holding a timer of its own step. On the way due far timers
  /// move to their near lists. If no slot has one, the earliest of all is taken.
  void rescan(unsigned int s) {
    if (total == 0) {
      earliest = tv_max();
      return;
    }
    const CCmTimeValue now = cm_timer_now();
    const long long windowEndSec = static_cast<long long>(now.GetSec()) + 29;
    const long long from = earliest == tv_max() ? toUs(now) : toUs(earliest);
    const long long start = from - from % kSlotUs;
    CCmTimeValue best = tv_max();
    for (unsigned int i = 0; i < kSlots; ++i) {
      const unsigned int k = (s + i) % kSlots;
      promote(k, windowEndSec);
      const long long bound = start + static_cast<long long>(i + 1) * kSlotUs;
      if (takeDueHead(k, bound, now)) return;
      if (nearLists[k].head != kNil) {
        const CCmTimeValue m = nearMin(k);
        if (m < best) best = m;
      }
      if (farLists[k].head != kNil && at(farLists[k].head).m_tvExpired < best) best = at(farLists[k].head).m_tvExpired;
      if (best != tv_max() && toUs(best) < bound) break;
    }
    earliest = best;
  }

  /// The earliest expiry among the nodes of near list [slot] (not yet empty).
  CCmTimeValue nearMin(unsigned int slot) const {
    uint32_t i = nearLists[slot].head;
    CCmTimeValue best = at(i).m_tvExpired;
    for (i = at(i).next; i != kNil; i = at(i).next)
      if (at(i).m_tvExpired < best) best = at(i).m_tvExpired;
    return best;
  }

  /// Keeps the cached earliest exact after a node of expiry `gone` left slot `slot`.
  /// A slot keeps its nodes in arrival order, so the head is not necessarily the
  /// earliest one: a stale earliest would make the firing pass pop nodes that are not
  /// due (and re-arm repeating ones to the same expiry, without end).
  void refreshAfterRemoval(unsigned int slot, const CCmTimeValue& gone) {
    if (earliest == tv_max() || slot != slot_of(earliest)) return;
    if (gone == earliest || nearLists[slot].head == kNil) rescan(slot);
  }

  bool erase(ICmTimerHandler* h) {
    const unsigned int slot = h->m_dwWheelSlot;
    if (slot >= kSlots) return false;
    uint32_t* found = index.find(h);
    if (!found) {
      refreshAfterRemoval(slot, tv_max());
      return false;
    }
    const uint32_t i = *found;
    const Node& n = at(i);
    const CCmTimeValue gone = n.m_tvExpired;
    const unsigned int where = slot_of(gone);
    unlink(n.far ? farLists[where] : nearLists[where], i);
    index.erase(h);
    release(i);
    refreshAfterRemoval(where, gone);
    return true;
  }

  /// The node to fire next from near list [slot]: the first one in arrival order that
  /// is due, so that timers sharing a slot fire in the order they were stored and none
  /// fires before its time. The head is taken at once when it is the earliest.
  uint32_t pickDue(unsigned int slot) const {
    const uint32_t head = nearLists[slot].head;
    if (!(earliest < at(head).m_tvExpired)) return head;
    const CCmTimeValue now = cm_timer_now();
    uint32_t best = head;
    for (uint32_t i = head; i != kNil; i = at(i).next) {
      if (at(i).m_tvExpired <= now) return i;
      if (at(i).m_tvExpired < at(best).m_tvExpired) best = i;
    }
    return best;  // nothing due: the earliest, which the caller believed due
  }
};

CCmTimerWheelQueue::CCmTimerWheelQueue(ICmObserver* aObserver) : CCmTimerQueueBase(aObserver), m_impl(new Impl) {}

CCmTimerWheelQueue::~CCmTimerWheelQueue() { delete m_impl; }

size_t CCmTimerWheelQueue::GetCount() const { return m_impl->total; }

unsigned int CCmTimerWheelQueue::SlotOf(const CCmTimeValue& t) { return slot_of(t); }

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
  CM_ASSERTE_RETURN(impl.earliest != tv_max(), -1);
  unsigned int slot = slot_of(impl.earliest);
  // The earliest timer may still wait in the slot's far list: move the due entries
  // into the near list first.
  if (impl.farLists[slot].head != kNil) impl.promote(slot, static_cast<long long>(cm_timer_now().GetSec()) + 29);
  if (impl.nearLists[slot].head == kNil) {
    impl.rescan(slot);
    slot = slot_of(impl.earliest);
    if (impl.earliest == tv_max() || impl.nearLists[slot].head == kNil) return -1;
  }
  Impl::List& list = impl.nearLists[slot];
  const uint32_t i = impl.pickDue(slot);
  impl.unlink(list, i);
  aPopNode = impl.at(i);
  impl.index.erase(aPopNode.m_pEh);
  impl.release(i);
  impl.refreshAfterRemoval(slot, aPopNode.m_tvExpired);
  return 0;
}

int CCmTimerWheelQueue::GetEarliestTime_l(CCmTimeValue& aEarliest) const {
  if (m_impl->earliest == tv_max()) return -1;
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
