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

namespace {

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
  std::array<DeliverEntry, 8> m_Small{};
  std::vector<DeliverEntry> m_Large;
  const DeliverEntry* m_pData = nullptr;
  size_t m_nSize = 0;
};

// The callable of a drain event: _DrainQueueData(channel) on the module thread. While
// the event exists it holds a reference on a reference-counted module, so an owner may
// release the module with items still in flight; the module then goes with the last
// event. A module nobody holds a reference on (count 0) is not counted: its owner must
// keep it alive until its thread has run the events.
class DrainCall {
 public:
  DrainCall(ProcessModule* aModule, unsigned short aChannel)
      : m_pModule(aModule), m_wChannel(aChannel), m_bCounted(aModule->GetReference() > 0) {
    if (m_bCounted) m_pModule->AddRef();
  }
  DrainCall(DrainCall&& aOther) noexcept
      : m_pModule(aOther.m_pModule), m_wChannel(aOther.m_wChannel), m_bCounted(aOther.m_bCounted) {
    aOther.m_bCounted = false;
    aOther.m_pModule = nullptr;
  }
  DrainCall(const DrainCall&) = delete;
  DrainCall& operator=(const DrainCall&) = delete;
  DrainCall& operator=(DrainCall&&) = delete;
  ~DrainCall() {
    if (m_bCounted) m_pModule->Release();
  }
  void operator()() { m_pModule->_DrainQueueData(m_wChannel); }

 private:
  ProcessModule* m_pModule;
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

  class Reader {
   public:
    explicit Reader(UnitSlot& aSlot) : m_Slot(aSlot) {
      m_Slot.m_nReaders.fetch_add(1, std::memory_order_seq_cst);
      m_pUnit = m_Slot.m_pCurrent.load(std::memory_order_seq_cst);
    }
    ~Reader() {
      if (m_Slot.m_nReaders.fetch_sub(1, std::memory_order_acq_rel) == 1 &&
          m_Slot.m_bHasRetired.load(std::memory_order_acquire))
        m_Slot.ReleaseRetired();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    IProcessUnit* get() const { return m_pUnit; }

   private:
    UnitSlot& m_Slot;
    IProcessUnit* m_pUnit;
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
  std::atomic<bool> m_bHasRetired{false};
  CCmFutexLock m_RetiredLock;
  std::vector<IProcessUnit*> m_Retired CM_GUARDED_BY(m_RetiredLock);
};

}  // namespace

struct ProcessModule::Impl {
  std::string name;
  uint32_t type = 0;

  // Per input channel: whether the queue-or-not decision was taken, and its outcome.
  // Read by every delivering thread: kept off the lines that the queues write.
  alignas(64) std::atomic<uint8_t> queueDecided[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  std::atomic<uint8_t> queueNeeded[PROCESS_MODULE_MAX_INPUT_CHANNELS];

  alignas(64) std::deque<QueuedData> queues[PROCESS_MODULE_MAX_INPUT_CHANNELS] CM_GUARDED_BY(queueLock);
  // Sizes mirrored outside the lock so that size queries and traces need not lock.
  std::atomic<uint32_t> queueSizes[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  CCmFutexLock queueLock;

  alignas(64) std::vector<DeliverEntry> delivers[PROCESS_MODULE_MAX_OUTPUT_CHANNELS] CM_GUARDED_BY(linkLock);
  std::vector<DeliverEntry> inputters CM_GUARDED_BY(linkLock);
  CCmFutexLock linkLock;

  alignas(64) UnitSlot unit;
  std::map<std::string, std::string> attributes;  // kept for derived modules
  ProcessConfig config;
  std::atomic<uint32_t> status{PROCESS_MODULE_STATUS_CREATED};
  std::unordered_map<uint32_t, ProcessModuleValue> options;

  Impl() {
    for (unsigned i = 0; i < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++i) {
      queueDecided[i].store(0, std::memory_order_relaxed);
      queueNeeded[i].store(0, std::memory_order_relaxed);
      queueSizes[i].store(0, std::memory_order_relaxed);
    }
    options.max_load_factor(1.0f);
  }

  // Removes the front item of a channel under the queue lock; empty holder when none.
  QueuedData PopFront(unsigned short aChannel) {
    CCmFutexGuard guard(queueLock);
    std::deque<QueuedData>& q = queues[aChannel];
    if (q.empty()) return QueuedData(nullptr);
    QueuedData item(std::move(q.front()));
    q.pop_front();
    queueSizes[aChannel].store(static_cast<uint32_t>(q.size()), std::memory_order_release);
    return item;
  }
};

ProcessModule::ProcessModule() : m_dwStatFlags(0), m_pThread(nullptr), m_bAllowSharedInput(false), m_pImpl(new Impl) {
  for (unsigned i = 0; i < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++i) {
    m_dwInputSamples[i].store(0, std::memory_order_relaxed);
    m_dwOutputSamples[i].store(0, std::memory_order_relaxed);
  }
}

ProcessModule::~ProcessModule() {
  if (IProcessUnit* unit = m_pImpl->unit.Peek()) unit->SetProcessModule(nullptr);
  // Impl's members go in reverse order of declaration: options, configuration, unit,
  // links, queues (releasing every queued item), name.
  m_pImpl.reset();
}

// ---------------------------------------------------------------- data path

CmResult ProcessModule::DeliverData(IProcessData* aData, unsigned short aChannel) {
  if (!aData || aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return CM_ERROR_INVALID_ARG;
  _UpdateStatInputOneProcessedSample(aData, aChannel);

  if (m_pImpl->status.load(std::memory_order_acquire) == PROCESS_MODULE_STATUS_STARTED) {
    if (_NeedQueuedProcess(aChannel)) {
      _PushProcessDataToQueue(aData, aChannel);
      ACmThread* pThread = m_pThread.load(std::memory_order_acquire);
      CM_ASSERTE_RETURN(pThread != NULL, CM_OK);
      ICmEventQueue* pEventQueue = pThread->GetEventQueue();
      CM_ASSERTE_RETURN(pEventQueue != NULL, CM_OK);
      CmResult rv = pEventQueue->PostEvent(new CCmInvokeEvent<DrainCall>(DrainCall(this, aChannel)),
                                           ICmEventQueue::EPRIORITY_NORMAL);
      if (CM_FAILED(rv)) {
        // The item stays queued; a later drain event of this channel takes it.
        CM_WARNING_TRACE_THIS("ProcessModule::DeliverData, PostEvent failed, rv="
                              << rv << " channel_id=" << aChannel
                              << " queue_size=" << _GetProcessDataToQueueSize(aChannel));
      }
      return CM_OK;
    }
    if (_DeliverDataToProcessUnit(aData, aChannel)) return CM_OK;
  }
  DeliverDataToNextModule(aData, 0);
  return CM_OK;
}

bool ProcessModule::_NeedQueuedProcess(unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return false;
  if (m_pImpl->queueDecided[aChannel].load(std::memory_order_acquire))
    return m_pImpl->queueNeeded[aChannel].load(std::memory_order_relaxed) != 0;
  ACmThread* pThread = m_pThread.load(std::memory_order_acquire);
  const bool need = pThread != nullptr && !IsThreadEqual(pThread->GetThreadId(), GetThreadSelfId());
  m_pImpl->queueNeeded[aChannel].store(need ? 1 : 0, std::memory_order_relaxed);
  m_pImpl->queueDecided[aChannel].store(1, std::memory_order_release);
  return need;
}

bool ProcessModule::_DeliverDataToProcessUnit(IProcessData* aData, unsigned short aChannel) {
  // A copy: SetProcessUnit on another thread cannot free the unit under this call.
  UnitSlot::Reader unit(m_pImpl->unit);
  if (!unit.get()) return false;
  unit.get()->Process(aData, aChannel);
  return true;
}

CmResult ProcessModule::_PushProcessDataToQueue(IProcessData* aData, unsigned short aChannel) {
  CCmFutexGuard guard(m_pImpl->queueLock);
  std::deque<QueuedData>& q = m_pImpl->queues[aChannel];
  q.emplace_back(aData);
  m_pImpl->queueSizes[aChannel].store(static_cast<uint32_t>(q.size()), std::memory_order_release);
  return CM_OK;
}

CmResult ProcessModule::_DrainQueueData(unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return CM_ERROR_FAILURE;
  for (int i = 0; i < kMaxDrainPerEvent; ++i) {
    if (_ProcessQueueData(aChannel) != CM_OK) break;
  }
  return CM_OK;
}

CmResult ProcessModule::_DrainQueueData() {
  // Even channels only, by design of this form.
  for (unsigned short ch = 0; ch < PROCESS_MODULE_MAX_INPUT_CHANNELS; ch += 2) _DrainQueueData(ch);
  return CM_OK;
}

CmResult ProcessModule::_ProcessQueueData(unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return CM_ERROR_FAILURE;
  // Most drain events find their item already taken by an earlier event's batch: skip
  // the lock then. A push racing with this read has its own event still to come.
  if (m_pImpl->queueSizes[aChannel].load(std::memory_order_acquire) == 0) return CM_ERROR_FAILURE;
  QueuedData item = m_pImpl->PopFront(aChannel);
  if (!item.get()) return CM_ERROR_FAILURE;
  if (!_DeliverDataToProcessUnit(item.get(), aChannel)) DeliverDataToNextModule(item.get(), 0);
  return CM_OK;  // the queue's reference is dropped with the holder
}

CmResult ProcessModule::_ProcessQueueDataOnce() {
  if (!m_pImpl->unit.Peek()) return CM_ERROR_FAILURE;
  for (unsigned short ch = 0; ch < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++ch) _ProcessQueueData(ch);
  return CM_OK;
}

CmResult ProcessModule::_HandleOneProcessData(IProcessData* aData, unsigned short aChannel) {
  if (!_DeliverDataToProcessUnit(aData, aChannel)) DeliverDataToNextModule(aData, 0);
  return CM_OK;
}

CmResult ProcessModule::_PopProcessDataFromQueue(IProcessData** aOut, unsigned short aChannel) {
  if (!aOut || aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return CM_ERROR_INVALID_ARG;
  QueuedData item = m_pImpl->PopFront(aChannel);
  if (!item.get()) return CM_ERROR_GENERIC;
  *aOut = item.release();
  return CM_OK;
}

CmResult ProcessModule::_PopProcessDataFromQueue(int (*aFunc)(IProcessData*, unsigned short, void*), void* aContext) {
  if (!aFunc) return CM_ERROR_INVALID_ARG;
  for (unsigned short ch = 0; ch < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++ch) {
    QueuedData item = m_pImpl->PopFront(ch);
    if (!item.get()) continue;
    if (aFunc(item.get(), ch, aContext) != 0) return CM_ERROR_GENERIC;
  }
  return CM_OK;
}

CmResult ProcessModule::_PopProcessDataFromQueue(int (*aFunc)(IProcessData*, void*), unsigned short aChannel,
                                                 void* aContext) {
  if (!aFunc || aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return CM_ERROR_INVALID_ARG;
  for (;;) {
    QueuedData item = m_pImpl->PopFront(aChannel);
    if (!item.get()) return CM_OK;
    if (aFunc(item.get(), aContext) != 0) return CM_ERROR_GENERIC;
  }
}

CmResult ProcessModule::DeliverDataToNextModule(IProcessData* aData, unsigned short nOutputChannelId) {
  _UpdateStatOutputOneProcessedSample(aData, nOutputChannelId);
  if (nOutputChannelId >= PROCESS_MODULE_MAX_OUTPUT_CHANNELS) return CM_ERROR_FAILURE;
  LinkSnapshot targets;
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    targets.Assign(m_pImpl->delivers[nOutputChannelId]);
  }
  for (const DeliverEntry& e : targets) e.module->DeliverData(aData, e.channel);
  return CM_OK;
}

CmResult ProcessModule::DeliverDataToNextModuleByDeliverIndex(IProcessData* aData, unsigned short nOutputChannelId,
                                                              unsigned short aIndex) {
  if (nOutputChannelId >= PROCESS_MODULE_MAX_OUTPUT_CHANNELS) return CM_ERROR_FAILURE;
  DeliverEntry target;
  bool counted;
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    const std::vector<DeliverEntry>& list = m_pImpl->delivers[nOutputChannelId];
    if (aIndex >= list.size()) return CM_ERROR_FAILURE;
    target = list[aIndex];
    // A reference keeps a reference-counted target alive should it be unlinked and
    // released while the call below runs outside the lock.
    counted = target.module->GetReference() > 0;
    if (counted) target.module->AddRef();
  }
  if (aIndex == 0) _UpdateStatOutputOneProcessedSample(aData, nOutputChannelId);
  target.module->DeliverData(aData, target.channel);
  if (counted) target.module->Release();
  return CM_OK;
}

unsigned int ProcessModule::GetProcessModuleQueueSize(unsigned short aChannel) {
  return _GetProcessDataToQueueSize(aChannel);
}

unsigned int ProcessModule::_GetProcessDataToQueueSize(unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return 0;
  return m_pImpl->queueSizes[aChannel].load(std::memory_order_relaxed);
}

unsigned int ProcessModule::_GetProcessDataToQueueSize() {
  unsigned int total = 0;
  for (unsigned short ch = 0; ch < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++ch) total += _GetProcessDataToQueueSize(ch);
  return total;
}

// ---------------------------------------------------------------- status and counters

CmResult ProcessModule::Start() {
  if (m_pImpl->status.load(std::memory_order_acquire) == PROCESS_MODULE_STATUS_CREATED) return CM_ERROR_FAILURE;
  _UpdateModuleStatus(PROCESS_MODULE_STATUS_STARTED);
  return CM_OK;
}

CmResult ProcessModule::Stop() {
  if (m_pImpl->status.load(std::memory_order_acquire) == PROCESS_MODULE_STATUS_CREATED) return CM_ERROR_FAILURE;
  _UpdateModuleStatus(PROCESS_MODULE_STATUS_STOPPED);
  return CM_OK;
}

CmResult ProcessModule::InitModule() {
  UnitSlot::Reader unit(m_pImpl->unit);
  if (unit.get()) {
    CmResult rv = unit.get()->InitProcessUnit();
    if (rv != CM_OK) return rv;
  }
  _UpdateModuleStatus(PROCESS_MODULE_STATUS_INITED);
  return CM_OK;
}

ProcessModuleStatus ProcessModule::GetProcessModuleStatus() {
  return static_cast<ProcessModuleStatus>(m_pImpl->status.load(std::memory_order_acquire));
}

void ProcessModule::_UpdateModuleStatus(ProcessModuleStatus aStatus) {
  if (m_pImpl->status.load(std::memory_order_acquire) == aStatus) return;
  const uint32_t old = m_pImpl->status.exchange(aStatus, std::memory_order_acq_rel);
  if (old == aStatus) return;  // another thread made the same change first
  _FireOnStatusChangedEvent(PROCESS_MODULE_EVENT_STATUS_CHANGED, ProcessModuleValue(static_cast<uint32_t>(aStatus)));
}

void ProcessModule::_UpdateStatInputOneProcessedSample(IProcessData* aData, unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return;
  // Unguarded counter: a plain increment (no locked instruction on the hot path).
  const uint32_t count = m_dwInputSamples[aChannel].load(std::memory_order_relaxed) + 1;
  m_dwInputSamples[aChannel].store(count, std::memory_order_relaxed);
  if (aChannel == 0 && (m_dwStatFlags.load(std::memory_order_relaxed) & PROCESS_MODULE_STAT_INPUT))
    _FireOnStatusChangedEvent(PROCESS_MODULE_EVENT_INPUT_SAMPLES, ProcessModuleValue(count));
  CM_DEBUG_TRACE(
      "module_name:" << m_pImpl->name << " ProcessModule::Info Input"
                     << ", "
                     << "this"
                     << "=" << static_cast<const void*>(this) << ",data_ptr=" << (aData ? aData->GetData() : nullptr)
                     << ",data_length=" << (aData ? aData->GetDataLength() : 0u) << ",channel_id=" << aChannel
                     << ",input_samples=" << count << ",queue_size=" << _GetProcessDataToQueueSize(aChannel));
}

void ProcessModule::_UpdateStatOutputOneProcessedSample(IProcessData* aData, unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return;
  const uint32_t count = m_dwOutputSamples[aChannel].load(std::memory_order_relaxed) + 1;
  m_dwOutputSamples[aChannel].store(count, std::memory_order_relaxed);
  if (aChannel == 0 && (m_dwStatFlags.load(std::memory_order_relaxed) & PROCESS_MODULE_STAT_OUTPUT))
    _FireOnStatusChangedEvent(PROCESS_MODULE_EVENT_OUTPUT_SAMPLES, ProcessModuleValue(count));
  CM_DEBUG_TRACE(
      "module_name:" << m_pImpl->name << " ProcessModule::Info output"
                     << ", "
                     << "this"
                     << "=" << static_cast<const void*>(this) << ",data_ptr=" << (aData ? aData->GetData() : nullptr)
                     << ",data_length=" << (aData ? aData->GetDataLength() : 0u) << ",channel_id=" << aChannel
                     << ",output_samples=" << count << ",queue_size=" << _GetProcessDataToQueueSize(aChannel));
}

uint32_t ProcessModule::GetInputSampleCount(unsigned short aChannel) const {
  return aChannel < PROCESS_MODULE_MAX_INPUT_CHANNELS ? m_dwInputSamples[aChannel].load(std::memory_order_relaxed) : 0;
}

uint32_t ProcessModule::GetOutputSampleCount(unsigned short aChannel) const {
  return aChannel < PROCESS_MODULE_MAX_INPUT_CHANNELS ? m_dwOutputSamples[aChannel].load(std::memory_order_relaxed) : 0;
}

uint64_t ProcessModule::_EventTypeToListenTypeGroup(unsigned int aEventType) {
  switch (aEventType) {
    case PROCESS_MODULE_EVENT_STATUS_CHANGED:
      return PROCESS_MODULE_LISTEN_STATUS;
    case PROCESS_MODULE_EVENT_INPUT_SAMPLES:
    case PROCESS_MODULE_EVENT_OUTPUT_SAMPLES:
      return PROCESS_MODULE_LISTEN_SAMPLES;
    default:
      return PROCESS_MODULE_LISTEN_ALL;
  }
}

CmResult ProcessModule::_FireOnStatusChangedEvent(unsigned int aEventType, const ProcessModuleValue& aValue) {
  const uint64_t group = _EventTypeToListenTypeGroup(aEventType);
  NotifyObservers(group, [&](IProcessModuleEventNotify* o) { o->OnProcessModuleEvent(aEventType, aValue); });
  return CM_OK;
}

// ---------------------------------------------------------------- options and info

CmResult ProcessModule::SetProcessModuleOption(unsigned int aId, const ProcessModuleValue& aValue) {
  m_pImpl->options[aId] = aValue;  // stored even when the id is refused below
  if (aId == PROCESS_MODULE_OPTION_STAT_EVENTS) {
    m_dwStatFlags.store(aValue.dwValue, std::memory_order_relaxed);
    return CM_OK;
  }
  return CM_ERROR_FAILURE;
}

CmResult ProcessModule::GetProcessModuleOption(unsigned int aId, ProcessModuleValue& aValue) {
  auto it = m_pImpl->options.find(aId);
  if (it == m_pImpl->options.end()) return CM_ERROR_NOT_IMPLEMENTED;
  aValue = it->second;
  return CM_OK;
}

CmResult ProcessModule::_FireOptionToDelivers(unsigned int aId, const ProcessModuleValue& aValue) {
  LinkSnapshot targets;
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    for (const auto& list : m_pImpl->delivers) targets.Append(list);
  }
  for (const DeliverEntry& e : targets) e.module->SetProcessModuleOption(aId, aValue);
  return CM_OK;
}

CmResult ProcessModule::_FireOptionToInputters(unsigned int aId, const ProcessModuleValue& aValue) {
  LinkSnapshot targets;
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    targets.Assign(m_pImpl->inputters);
  }
  for (const DeliverEntry& e : targets) e.module->SetProcessModuleOption(aId, aValue);
  return CM_OK;
}

const char* ProcessModule::GetProcessModuleName() { return m_pImpl->name.c_str(); }

unsigned int ProcessModule::GetProcessModuleType() { return m_pImpl->type; }

void ProcessModule::SetProcessModuleInfo(const char* aName, unsigned int aType) {
  if (aName) m_pImpl->name = aName;
  m_pImpl->type = aType;
}

CmResult ProcessModule::SetProcessModuleThread(ACmThread* aThread) {
  m_pThread.store(aThread, std::memory_order_release);
  for (unsigned i = 0; i < PROCESS_MODULE_MAX_INPUT_CHANNELS; ++i)
    m_pImpl->queueDecided[i].store(0, std::memory_order_release);
  return CM_OK;
}

CmResult ProcessModule::SetProcessUnit(IProcessUnit* aUnit) {
  if (aUnit) aUnit->AddRef();
  IProcessUnit* old = m_pImpl->unit.Exchange(aUnit);
  if (old) old->SetProcessModule(nullptr);
  m_pImpl->unit.Retire(old);  // released now, or when a call in flight elsewhere returns
  if (aUnit) aUnit->SetProcessModule(this);
  return CM_OK;
}

IProcessUnit* ProcessModule::GetProcessUnit() { return m_pImpl->unit.Peek(); }

CmResult ProcessModule::ConfigProcess(const char* aKey, const char* aValue) {
  return m_pImpl->config.ConfigProcess(aKey, aValue);
}

CmResult ProcessModule::GetProcessConfigValue(const char* aKey, char* aBuf, unsigned int& aSize) {
  return m_pImpl->config.GetProcessConfigValue(aKey, aBuf, aSize);
}

// ---------------------------------------------------------------- links

CmResult ProcessModule::AddDeliver(IProcessModule* aNext, unsigned short nChannelId, unsigned short nOutputChannelId) {
  if (nChannelId >= PROCESS_MODULE_MAX_INPUT_CHANNELS || !aNext ||
      nOutputChannelId >= PROCESS_MODULE_MAX_OUTPUT_CHANNELS) {
    CM_ERROR_TRACE("ProcessModule::AddDeliver invalidate input params, pIProcessModule="
                   << static_cast<const void*>(aNext) << ",nChannelId=" << nChannelId
                   << ",nOutputChannelId=" << nOutputChannelId);
    return CM_ERROR_INVALID_ARG;
  }
  if (aNext == this) return CM_ERROR_FAILURE;

  // This module's link lock is never held while calling into aNext: two modules linking
  // to each other from two threads would otherwise take the two locks in opposite order.
  if (_HasDeliver(aNext, nOutputChannelId)) {
    CM_ERROR_TRACE("ProcessModule::AddDeliver fail deliver already exist");
    return CM_ERROR_FAILURE;
  }
  ProcessModule* next = dynamic_cast<ProcessModule*>(aNext);
  if (next && next->AddInputer(this, nChannelId) != CM_OK) {
    CM_ERROR_TRACE("ProcessModule::AddDeliver fail add inputter");
    return CM_ERROR_FAILURE;
  }
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    std::vector<DeliverEntry>& list = m_pImpl->delivers[nOutputChannelId];
    bool raced = false;
    for (const DeliverEntry& e : list) raced = raced || e.module == aNext;
    if (!raced) {
      list.push_back(DeliverEntry{aNext, nChannelId});
      return CM_OK;
    }
  }
  // The same link was made by another thread meanwhile: undo our inputter entry.
  if (next) next->_RemoveInputerEntry(this, nChannelId);
  CM_ERROR_TRACE("ProcessModule::AddDeliver fail deliver already exist");
  return CM_ERROR_FAILURE;
}

bool ProcessModule::_HasDeliver(IProcessModule* aNext, unsigned short nOutputChannelId) {
  CCmFutexGuard guard(m_pImpl->linkLock);
  for (const DeliverEntry& e : m_pImpl->delivers[nOutputChannelId])
    if (e.module == aNext) return true;
  return false;
}

void ProcessModule::_RemoveInputerEntry(IProcessModule* aPrev, unsigned short nChannelId) {
  CCmFutexGuard guard(m_pImpl->linkLock);
  std::vector<DeliverEntry>& list = m_pImpl->inputters;
  for (auto it = list.end(); it != list.begin();) {
    --it;
    if (it->module == aPrev && it->channel == nChannelId) {
      list.erase(it);
      return;
    }
  }
}

CmResult ProcessModule::AddInputer(IProcessModule* aPrev, unsigned short nChannelId) {
  if (!aPrev) {
    CM_ERROR_TRACE("ProcessModule::AddInputer add NULL deliver");
    return CM_ERROR_INVALID_ARG;
  }
  if (aPrev == this) return CM_ERROR_FAILURE;
  CCmFutexGuard guard(m_pImpl->linkLock);
  if (!m_bAllowSharedInput) {
    for (const DeliverEntry& e : m_pImpl->inputters) {
      if (e.channel == nChannelId) {
        CM_ERROR_TRACE("ProcessModule::AddInputer exist same inputer for nChannelId=" << nChannelId);
        return CM_ERROR_FAILURE;
      }
    }
  }
  m_pImpl->inputters.push_back(DeliverEntry{aPrev, nChannelId});
  return CM_OK;
}

CmResult ProcessModule::RemoveDeliver(unsigned short nChannelId, unsigned short nOutputChannelId) {
  if (nOutputChannelId >= PROCESS_MODULE_MAX_OUTPUT_CHANNELS) {
    CM_ERROR_TRACE("ProcessModule::RemoveDeliver: invalid output Channel ID nOutputChannelId >= "
                   << PROCESS_MODULE_MAX_OUTPUT_CHANNELS);
    return CM_ERROR_FAILURE;
  }
  IProcessModule* removed = nullptr;
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    std::vector<DeliverEntry>& list = m_pImpl->delivers[nOutputChannelId];
    for (auto it = list.begin(); it != list.end(); ++it) {
      if (it->channel != nChannelId) continue;
      removed = it->module;
      list.erase(it);
      break;
    }
  }
  if (!removed) return CM_ERROR_FAILURE;
  // Outside the lock, like AddDeliver: never hold ours while taking the next module's.
  if (ProcessModule* next = dynamic_cast<ProcessModule*>(removed)) next->RemoveInputer(this);
  return CM_OK;
}

CmResult ProcessModule::RemoveDeliver(IProcessModule* aNext) {
  if (!aNext) return CM_ERROR_FAILURE;
  int removed = 0;
  {
    CCmFutexGuard guard(m_pImpl->linkLock);
    for (auto& list : m_pImpl->delivers) {
      for (auto it = list.begin(); it != list.end(); ++it) {
        if (it->module != aNext) continue;
        list.erase(it);
        ++removed;
        break;
      }
    }
  }
  if (removed == 0) return CM_ERROR_FAILURE;
  // One inputter entry per link removed, outside this module's lock.
  if (ProcessModule* next = dynamic_cast<ProcessModule*>(aNext))
    for (int i = 0; i < removed; ++i) next->RemoveInputer(this);
  return CM_OK;
}

CmResult ProcessModule::RemoveInputer(IProcessModule* aPrev) {
  if (!aPrev) return CM_ERROR_FAILURE;
  CCmFutexGuard guard(m_pImpl->linkLock);
  auto& list = m_pImpl->inputters;
  for (auto it = list.begin(); it != list.end(); ++it) {
    if (it->module == aPrev) {
      list.erase(it);
      return CM_OK;
    }
  }
  return CM_ERROR_FAILURE;
}
