// Calendar timer queue: a ring of slots advanced by TimerTick(), zero-interval
// timers fired through the queue's own event.

#include "cmutil/timer/CmTimerQueueCalendar.h"

#include <map>
#include <vector>

#include "base/CmClock.h"
#include "cmutil/base/CmAssert.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadRegistry.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

struct ValueType {
  ValueType* next = nullptr;
  ICmTimerHandler* handler = nullptr;
  void* argument = nullptr;
  CCmTimeValue interval;
  unsigned int count = 0;
};

/// A singly linked list of nodes; new nodes go to the head.
struct CCmTimerQueueCalendarSlotT {
  ValueType* head = nullptr;

  void push_front(ValueType* n) {
    n->next = head;
    head = n;
  }
  ValueType* pop_front() {
    ValueType* n = head;
    if (n) head = n->next;
    return n;
  }
  /// Unlinks the handler's node, or returns null.
  ValueType* detach(ICmTimerHandler* h) {
    for (ValueType** link = &head; *link; link = &(*link)->next) {
      if ((*link)->handler == h) {
        ValueType* n = *link;
        *link = n->next;
        n->next = nullptr;
        return n;
      }
    }
    return nullptr;
  }
  void free_all() {
    while (ValueType* n = pop_front()) delete n;
  }
};

constexpr ICmEventQueue::EPriority kTimerEventPriority = ICmEventQueue::EPRIORITY_NORMAL;

}  // namespace

struct CCmTimerQueueCalendar::Impl {
  unsigned int dwInterval = 10;
  std::vector<CCmTimerQueueCalendarSlotT> slots;
  unsigned int dwMaxSlotNumber = 0;
  unsigned int dwCurrentSlot = 0;
  ICmEventQueue* eventQueue = nullptr;
  CCmTimerQueueCalendarSlotT immediate;
  std::map<ICmTimerHandler*, unsigned int> handlers;
  bool eventPosted = false;
  /// The firing passes running right now, innermost first: a callback may tick the
  /// queue (or run its event) again, so each pass keeps its own list of nodes still
  /// to fire, which stays searchable so that a callback can cancel or move them.
  struct FiringPass {
    CCmTimerQueueCalendarSlotT nodes;
    FiringPass* outer = nullptr;
  };
  FiringPass* active = nullptr;

  /// Registers a pass for its lifetime (a scope on the firing function's stack).
  class PassScope {
   public:
    PassScope(Impl& aImpl, ValueType* aNodes) : m_impl(aImpl) {
      m_pass.nodes.head = aNodes;
      m_pass.outer = aImpl.active;
      aImpl.active = &m_pass;
    }
    ~PassScope() {
      m_impl.active = m_pass.outer;
      m_pass.nodes.free_all();  // only left over if a callback threw
    }
    PassScope(const PassScope&) = delete;
    PassScope& operator=(const PassScope&) = delete;
    CCmTimerQueueCalendarSlotT& nodes() { return m_pass.nodes; }

   private:
    Impl& m_impl;
    FiringPass m_pass;
  };

  ValueType* detachFromPasses(ICmTimerHandler* h) {
    for (FiringPass* p = active; p; p = p->outer)
      if (ValueType* n = p->nodes.detach(h)) return n;
    return nullptr;
  }

  /// Takes the handler's node out of wherever it lies; null if it has none.
  ValueType* detach(ICmTimerHandler* h) {
    auto it = handlers.find(h);
    if (it != handlers.end()) {
      const unsigned int slot = it->second;
      handlers.erase(it);
      if (ValueType* n = slots[slot].detach(h)) return n;
    }
    if (ValueType* n = immediate.detach(h)) return n;
    return active ? detachFromPasses(h) : nullptr;
  }

  /// Stores a node ceil(interval / slot interval) slots ahead of the current slot,
  /// capped at the ring's reach.
  void insert(const void* self, ValueType* node) {
    const unsigned int ms = static_cast<unsigned int>(node->interval.GetTotalInMsec());
    unsigned long long distance = (static_cast<unsigned long long>(ms) + dwInterval - 1) / dwInterval;
    if (distance >= dwMaxSlotNumber) {
      CM_ERROR_TRACE("CCmTimerQueueCalendar::InsertUnique_i, exceed max interval. interval_s="
                     << node->interval.GetSec() << " interval_us=" << node->interval.GetUsec() << " dwDistance="
                     << distance << " m_impl->dwMaxSlotNumber=" << dwMaxSlotNumber << " [this=" << self << "]");
      distance = dwMaxSlotNumber;
    }
    const unsigned int slot = static_cast<unsigned int>((dwCurrentSlot + distance) % (dwMaxSlotNumber + 1ULL));
    slots[slot].push_front(node);
    handlers[node->handler] = slot;
  }
};

CCmTimerQueueCalendar::CCmTimerQueueCalendar(unsigned int aSlotInterval, unsigned int aMaxTime,
                                             ICmEventQueue* aEventQueue)
    : ICmEvent(0), m_impl(new Impl) {
  Impl& impl = *m_impl;
  impl.dwInterval = aSlotInterval <= 9 ? 10 : aSlotInterval;
  unsigned int slotCount = 11;
  if (impl.dwInterval <= aMaxTime) {
    slotCount = aMaxTime / impl.dwInterval;
    if (slotCount <= 10) slotCount = 11;
  }
  impl.dwMaxSlotNumber = slotCount - 1;
  impl.slots.resize(slotCount);
  impl.eventQueue = aEventQueue;
  if (!impl.eventQueue) {
    if (ACmThread* current = getCurrentThread()) impl.eventQueue = current->GetEventQueue();
  }
}

CCmTimerQueueCalendar::~CCmTimerQueueCalendar() {
  m_impl->immediate.free_all();
  for (auto& slot : m_impl->slots) slot.free_all();
  delete m_impl;
}

unsigned int CCmTimerQueueCalendar::GetSlotInterval() const { return m_impl->dwInterval; }

unsigned int CCmTimerQueueCalendar::GetMaxSlotNumber() const { return m_impl->dwMaxSlotNumber; }

unsigned int CCmTimerQueueCalendar::GetCurrentSlot() const { return m_impl->dwCurrentSlot; }

CmResult CCmTimerQueueCalendar::ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval,
                                              unsigned int aCount) {
  m_Est.EnsureSingleThread();
  CM_ASSERTE_RETURN(aEh, CM_ERROR_INVALID_ARG);
  Impl& impl = *m_impl;
  ValueType* node = impl.detach(aEh);
  const bool reused = node != nullptr;
  if (!node) node = new ValueType;
  node->handler = aEh;
  node->argument = aArg;
  node->interval = aInterval;
  node->count = aCount == 0 ? 4294967295u : aCount;

  CmResult rv = reused ? CM_ERROR_FOUND : CM_OK;
  if (aInterval == CCmTimeValue::get_tvZero()) {
    impl.immediate.push_front(node);
    if (!impl.eventPosted) {
      impl.eventPosted = true;
      const CmResult post =
          impl.eventQueue ? impl.eventQueue->PostEvent(this, kTimerEventPriority, nullptr) : CM_ERROR_NULL_POINTER;
      if (post == CM_OK) {
        rv = CM_OK;
      } else {
        impl.eventPosted = false;
        rv = post;
      }
    }
    return rv;
  }
  m_impl->insert(this, node);
  return rv;
}

CmResult CCmTimerQueueCalendar::CancelTimer(ICmTimerHandler* aEh) {
  m_Est.EnsureSingleThread();
  CM_ASSERTE_RETURN(aEh, CM_ERROR_INVALID_ARG);
  ValueType* node = m_impl->detach(aEh);
  if (!node) return CM_ERROR_NOT_FOUND;
  delete node;
  return CM_OK;
}

void CCmTimerQueueCalendar::TimerTick() {
  m_Est.EnsureSingleThread();
  Impl& impl = *m_impl;
  impl.dwCurrentSlot = impl.dwCurrentSlot == impl.dwMaxSlotNumber ? 0 : impl.dwCurrentSlot + 1;
  // Take the slot's nodes into this pass's own list, so that a node re-armed into this
  // same slot (an interval under 1 ms) waits for the next revolution.
  Impl::PassScope pass(impl, impl.slots[impl.dwCurrentSlot].head);
  impl.slots[impl.dwCurrentSlot].head = nullptr;
  bool haveNow = false;
  CCmTimeValue now;
  while (ValueType* node = pass.nodes().pop_front()) {
    if (!haveNow) {
      now = cm_timer_now();
      haveNow = true;
    }
    ICmTimerHandler* handler = node->handler;
    void* argument = node->argument;
    const unsigned int before = node->count--;
    if (before == 1) {
      impl.handlers.erase(handler);
      delete node;
    } else {
      m_impl->insert(this, node);
    }
    handler->OnTimeout(now, argument);
  }
}

CmResult CCmTimerQueueCalendar::OnEventFire() {
  Impl& impl = *m_impl;
  impl.eventPosted = false;
  const CCmTimeValue now = cm_timer_now();
  // Zero-interval timers scheduled by these callbacks wait for the next event.
  Impl::PassScope pass(impl, impl.immediate.head);
  impl.immediate.head = nullptr;
  while (ValueType* node = pass.nodes().pop_front()) {
    ICmTimerHandler* handler = node->handler;
    void* argument = node->argument;
    delete node;
    handler->OnTimeout(now, argument);
  }
  return CM_OK;
}

void CCmTimerQueueCalendar::OnDestorySelf() {}
