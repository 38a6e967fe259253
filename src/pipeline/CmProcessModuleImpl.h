#pragma once
// The inside of a ProcessModule, shared by its data path (CmProcessModule.cpp) and its
// links (CmProcessModuleLinks.cpp).

#include "cmutil/pipeline/CmProcessModule.h"

#include <array>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "base/CmFutexLock.h"
#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/pipeline/CmProcessUnit.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace cm_pipeline {

// Items drained by one fired event at most, so one busy channel cannot hold the thread.
constexpr int kMaxDrainPerEvent = 8;

// A queued item with the reference the queue holds on it: AddRef when queued, Release
// when the holder goes. The same contract as a shared pointer made by
// KelUnknownPtrWithRef_to_shared_ptr, without a control block per item.
class QueuedData {
 public:
  explicit QueuedData(IProcessData* aData) : m_pData(aData) {
    if (m_pData) m_pData->AddRef();
  }
  QueuedData(QueuedData&& aOther) noexcept : m_pData(aOther.m_pData) { aOther.m_pData = nullptr; }
  QueuedData& operator=(QueuedData&& aOther) noexcept {
    if (this != &aOther) {
      reset();
      m_pData = aOther.m_pData;
      aOther.m_pData = nullptr;
    }
    return *this;
  }
  ~QueuedData() { reset(); }
  QueuedData(const QueuedData&) = delete;
  QueuedData& operator=(const QueuedData&) = delete;

  IProcessData* get() const { return m_pData; }
  // Hands the reference to the caller.
  IProcessData* release() {
    IProcessData* p = m_pData;
    m_pData = nullptr;
    return p;
  }
  void reset() {
    if (m_pData) {
      IProcessData* p = m_pData;
      m_pData = nullptr;
      p->Release();
    }
  }

 private:
  IProcessData* m_pData;
};

struct DeliverEntry {
  IProcessModule* module;
  unsigned short channel;
};

// A copy of a link list taken under the link lock. Lists are short, so up to eight
// entries live on the stack and the hot path allocates nothing.
class LinkSnapshot {
 public:
  static constexpr size_t kInline = 8;

  void Assign(const std::vector<DeliverEntry>& aList) {
    m_nSize = aList.size();
    if (m_nSize <= m_Small.size()) {
      for (size_t i = 0; i < m_nSize; ++i) m_Small[i] = aList[i];
      m_pData = m_Small.data();
    } else {
      m_Large = aList;
      m_pData = m_Large.data();
    }
  }
  // The inline entries, to be filled by the caller, then kept with UseInline.
  DeliverEntry* InlineEntries() { return m_Small.data(); }
  void UseInline(size_t aSize) {
    m_nSize = aSize;
    m_pData = m_Small.data();
  }
  void Append(const std::vector<DeliverEntry>& aList) {
    std::vector<DeliverEntry> all(begin(), end());
    all.insert(all.end(), aList.begin(), aList.end());
    m_Large.swap(all);
    m_nSize = m_Large.size();
    m_pData = m_Large.data();
  }
  const DeliverEntry* begin() const { return m_pData; }
  const DeliverEntry* end() const { return m_pData + m_nSize; }

 private:
  std::array<DeliverEntry, kInline> m_Small{};
  std::vector<DeliverEntry> m_Large;
  const DeliverEntry* m_pData = nullptr;
  size_t m_nSize = 0;
};

// A copy of every deliver list that delivering threads read without the link lock: each
// item sent on would otherwise take and give back that lock. A sequence lock: writers
// hold the link lock and keep the sequence odd while they change the copy; a reader
// that saw it odd or changed reads the list under the lock instead. Lists longer than
// a snapshot holds inline are always read under the lock.
class DeliverMirror {
 public:
  DeliverMirror() {
    for (auto& count : m_Count) count.store(0, std::memory_order_relaxed);
  }

  // Copies aList as the new state of output channel aChannel. Link lock held.
  void Publish(unsigned short aChannel, const std::vector<DeliverEntry>& aList) {
    const uint32_t seq = m_Seq.load(std::memory_order_relaxed);
    m_Seq.store(seq + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    const bool fits = aList.size() <= LinkSnapshot::kInline;
    for (size_t i = 0; fits && i < aList.size(); ++i) {
      m_Entries[aChannel][i].module.store(aList[i].module, std::memory_order_relaxed);
      m_Entries[aChannel][i].channel.store(aList[i].channel, std::memory_order_relaxed);
    }
    m_Count[aChannel].store(static_cast<uint32_t>(fits ? aList.size() : kTooLong), std::memory_order_relaxed);
    m_Seq.store(seq + 2, std::memory_order_release);
  }

  // Fills aOut with the list of aChannel; false when it must be read under the lock.
  bool Read(unsigned short aChannel, LinkSnapshot& aOut) const {
    const uint32_t seq = m_Seq.load(std::memory_order_acquire);
    if (seq & 1u) return false;
    const uint32_t n = m_Count[aChannel].load(std::memory_order_relaxed);
    if (n > LinkSnapshot::kInline) return false;
    DeliverEntry* out = aOut.InlineEntries();
    for (uint32_t i = 0; i < n; ++i) {
      out[i].module = m_Entries[aChannel][i].module.load(std::memory_order_relaxed);
      out[i].channel = m_Entries[aChannel][i].channel.load(std::memory_order_relaxed);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (m_Seq.load(std::memory_order_relaxed) != seq) return false;
    aOut.UseInline(n);
    return true;
  }

 private:
  static constexpr size_t kTooLong = LinkSnapshot::kInline + 1;
  struct Entry {
    std::atomic<IProcessModule*> module{nullptr};
    std::atomic<unsigned short> channel{0};
  };

  std::atomic<uint32_t> m_Seq{0};
  std::atomic<uint32_t> m_Count[PROCESS_MODULE_MAX_OUTPUT_CHANNELS];
  Entry m_Entries[PROCESS_MODULE_MAX_OUTPUT_CHANNELS][LinkSnapshot::kInline];
};

// The callable of a drain event: _DrainQueueData(channel) on the module thread. While
// the event exists it keeps a reference-counted module alive, so an owner may release
// the module with items still in flight; the module then goes with the last event. The
// events count themselves in aPending, a counter on a line of its own, and hold one
// module reference among them all: taken when the first becomes pending, given back
// when the last goes. A module nobody holds a reference on (count 0) is not counted:
// its owner must keep it alive until its thread has run the events.
class DrainCall {
 public:
  DrainCall(ProcessModule* aModule, unsigned short aChannel, std::atomic<uint32_t>* aPending)
      : m_pModule(aModule), m_pPending(aPending), m_wChannel(aChannel), m_bCounted(aModule->GetReference() > 0) {
    if (m_bCounted && m_pPending->fetch_add(1, std::memory_order_acq_rel) == 0) m_pModule->AddRef();
  }
  DrainCall(DrainCall&& aOther) noexcept
      : m_pModule(aOther.m_pModule),
        m_pPending(aOther.m_pPending),
        m_wChannel(aOther.m_wChannel),
        m_bCounted(aOther.m_bCounted) {
    aOther.m_bCounted = false;
    aOther.m_pModule = nullptr;
  }
  DrainCall(const DrainCall&) = delete;
  DrainCall& operator=(const DrainCall&) = delete;
  DrainCall& operator=(DrainCall&&) = delete;
  ~DrainCall() {
    if (m_bCounted && m_pPending->fetch_sub(1, std::memory_order_acq_rel) == 1) m_pModule->Release();
  }
  void operator()() { m_pModule->_DrainQueueData(m_wChannel); }

 private:
  ProcessModule* m_pModule;
  std::atomic<uint32_t>* m_pPending;
  unsigned short m_wChannel;
  bool m_bCounted;
};

// The module's unit, replaceable while items flow. A caller enters the slot (one atomic
// increment), reads the pointer, calls the unit and leaves (one decrement). A unit
// replaced while someone may be inside is parked, and released by whoever next finds
// the slot empty, so a call in progress never sees its unit freed.
class UnitSlot {
 public:
  UnitSlot() = default;
  UnitSlot(const UnitSlot&) = delete;
  UnitSlot& operator=(const UnitSlot&) = delete;
  ~UnitSlot() {
    if (IProcessUnit* unit = m_pCurrent.exchange(nullptr)) unit->Release();
    ReleaseRetired();
  }

  // One call of the unit. Inside a Holder of its own thread it need not enter: no unit
  // is released while the Holder is inside.
  class Reader {
   public:
    explicit Reader(UnitSlot& aSlot) : m_Slot(aSlot), m_bEntered(!aSlot.HeldByThisThread()) {
      if (m_bEntered) m_Slot.Enter();
      m_pUnit = m_Slot.m_pCurrent.load(std::memory_order_seq_cst);
    }
    ~Reader() {
      if (m_bEntered) m_Slot.Leave();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    IProcessUnit* get() const { return m_pUnit; }

   private:
    UnitSlot& m_Slot;
    const bool m_bEntered;
    IProcessUnit* m_pUnit;
  };

  // Several calls in a row (a drain of several items) enter once for all. Only Readers
  // of the holding thread skip their entry: it records its thread, and clears it before
  // it leaves. Of two threads holding at once, the later one's record stands, and the
  // other's Readers simply enter as usual.
  class Holder {
   public:
    explicit Holder(UnitSlot& aSlot) : m_Slot(aSlot) {
      m_Slot.Enter();
      m_Slot.m_Holder.store(GetThreadSelfId(), std::memory_order_relaxed);
    }
    ~Holder() {
      m_Slot.m_Holder.store(CM_THREAD_ID(), std::memory_order_relaxed);
      m_Slot.Leave();
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

   private:
    UnitSlot& m_Slot;
  };

  // Installs aUnit, whose reference the slot now owns; returns the previous unit, whose
  // reference must be handed back through Retire.
  IProcessUnit* Exchange(IProcessUnit* aUnit) { return m_pCurrent.exchange(aUnit, std::memory_order_seq_cst); }

  // Releases aUnit's slot reference now if no caller is inside, else when the last
  // caller inside leaves.
  void Retire(IProcessUnit* aUnit) {
    if (!aUnit) return;
    {
      CCmFutexGuard guard(m_RetiredLock);
      m_Retired.push_back(aUnit);
      m_bHasRetired.store(true, std::memory_order_release);
    }
    if (m_nReaders.load(std::memory_order_seq_cst) == 0) ReleaseRetired();
  }

  IProcessUnit* Peek() const { return m_pCurrent.load(std::memory_order_acquire); }

 private:
  void Enter() { m_nReaders.fetch_add(1, std::memory_order_seq_cst); }
  void Leave() {
    if (m_nReaders.fetch_sub(1, std::memory_order_acq_rel) == 1 && m_bHasRetired.load(std::memory_order_acquire))
      ReleaseRetired();
  }
  // A thread reads back its own record only while it holds: it cleared it on leaving.
  bool HeldByThisThread() const { return IsThreadEqual(m_Holder.load(std::memory_order_relaxed), GetThreadSelfId()); }

  void ReleaseRetired() {
    std::vector<IProcessUnit*> retired;
    {
      CCmFutexGuard guard(m_RetiredLock);
      retired.swap(m_Retired);
      m_bHasRetired.store(false, std::memory_order_relaxed);
    }
    for (IProcessUnit* unit : retired) unit->Release();
  }

  std::atomic<IProcessUnit*> m_pCurrent{nullptr};
  std::atomic<uint32_t> m_nReaders{0};
  std::atomic<CM_THREAD_ID> m_Holder{CM_THREAD_ID()};
  std::atomic<bool> m_bHasRetired{false};
  CCmFutexLock m_RetiredLock;
  std::vector<IProcessUnit*> m_Retired CM_GUARDED_BY(m_RetiredLock);
};

}  // namespace cm_pipeline

using namespace cm_pipeline;

struct ProcessModule::Impl {
  std::string name;
  uint32_t type = 0;

  // Per input channel: whether the queue-or-not decision was taken, and its outcome.
  // Read by every delivering thread: kept off the lines that the queues write.
  alignas(64) std::atomic<uint8_t> queueDecided[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  std::atomic<uint8_t> queueNeeded[PROCESS_MODULE_MAX_INPUT_CHANNELS];

  // Each channel's queue is two lists with a lock each, so that delivering threads and
  // the module thread touch shared lines once per batch instead of once per item:
  // items are pushed to the incoming list, and popped from the front of the outgoing
  // list, which takes the whole incoming list when it runs dry. Outgoing items are
  // always the older ones, so the order stays that of the pushes.
  alignas(64) std::deque<QueuedData> incoming[PROCESS_MODULE_MAX_INPUT_CHANNELS] CM_GUARDED_BY(pushLock);
  // Items ever pushed and ever popped: their difference is the queue's size, read
  // without either lock by size queries and traces.
  std::atomic<uint32_t> pushed[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  CCmFutexLock pushLock;

  alignas(64) std::deque<QueuedData> outgoing[PROCESS_MODULE_MAX_INPUT_CHANNELS] CM_GUARDED_BY(popLock);
  std::atomic<uint32_t> popped[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  // Items ever moved from the incoming list to the outgoing one: equal to popped when
  // the outgoing list is empty.
  std::atomic<uint32_t> moved[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  CCmFutexLock popLock;

  alignas(64) std::vector<DeliverEntry> delivers[PROCESS_MODULE_MAX_OUTPUT_CHANNELS] CM_GUARDED_BY(linkLock);
  std::vector<DeliverEntry> inputters CM_GUARDED_BY(linkLock);
  CCmFutexLock linkLock;
  DeliverMirror deliverMirror;  // written under linkLock, read without it

  alignas(64) UnitSlot unit;
  std::map<std::string, std::string> attributes;  // kept for derived modules
  ProcessConfig config;
  std::atomic<uint32_t> status{PROCESS_MODULE_STATUS_CREATED};
  std::unordered_map<uint32_t, ProcessModuleValue> options;

  // Drain events pending (see DrainCall): written by every post and every fired event,
  // so it is kept off the lines above and off the module's own count.
  alignas(64) std::atomic<uint32_t> pendingDrains{0};

  Impl() {
    for (unsigned i = 0; i < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++i) {
      queueDecided[i].store(0, std::memory_order_relaxed);
      queueNeeded[i].store(0, std::memory_order_relaxed);
      pushed[i].store(0, std::memory_order_relaxed);
      popped[i].store(0, std::memory_order_relaxed);
      moved[i].store(0, std::memory_order_relaxed);
    }
    options.max_load_factor(1.0f);
  }

  // Appends an item, with a new reference, to a channel's queue.
  void PushBack(IProcessData* aData, unsigned short aChannel) {
    CCmFutexGuard guard(pushLock);
    incoming[aChannel].emplace_back(aData);
    pushed[aChannel].store(pushed[aChannel].load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }

  // Whether a channel is empty, without a lock: most drains end on an empty queue.
  // popped is read first; counters only grow and popped never passes pushed, so when
  // pushed then reads the same, the queue was empty at that moment. A push racing with
  // this has its own drain event still to come.
  bool Empty(unsigned short aChannel) const {
    const uint32_t poppedSeen = popped[aChannel].load(std::memory_order_acquire);
    return moved[aChannel].load(std::memory_order_acquire) == poppedSeen &&
           pushed[aChannel].load(std::memory_order_acquire) == poppedSeen;
  }

  // Removes the oldest item of a channel; empty holder when none.
  QueuedData PopFront(unsigned short aChannel) {
    if (Empty(aChannel)) return QueuedData(nullptr);

    CCmFutexGuard guard(popLock);
    std::deque<QueuedData>& q = outgoing[aChannel];
    const uint32_t poppedBefore = popped[aChannel].load(std::memory_order_relaxed);
    if (q.empty()) {
      // Nothing pushed since the last pop: leave the delivering threads' lock alone.
      if (pushed[aChannel].load(std::memory_order_acquire) == poppedBefore) return QueuedData(nullptr);
      CCmFutexGuard pushGuard(pushLock);
      q.swap(incoming[aChannel]);
      if (q.empty()) return QueuedData(nullptr);
      moved[aChannel].store(poppedBefore + static_cast<uint32_t>(q.size()), std::memory_order_release);
    }
    QueuedData item(std::move(q.front()));
    q.pop_front();
    popped[aChannel].store(poppedBefore + 1, std::memory_order_release);
    return item;
  }

  // Items waiting in a channel: popped is read first, so that the difference is never
  // negative.
  uint32_t Size(unsigned short aChannel) const {
    const uint32_t gone = popped[aChannel].load(std::memory_order_acquire);
    return pushed[aChannel].load(std::memory_order_acquire) - gone;
  }
};
