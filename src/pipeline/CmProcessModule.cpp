#include "cmutil/pipeline/CmProcessModule.h"

#include "pipeline/CmProcessModuleImpl.h"

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

// ---------------------------------------------------------------- reference count

namespace {
// The count as callers see it: the pending drain events' shared reference counted once
// per event.
unsigned int PerEventCount(unsigned int aHeld, uint32_t aPending) {
  return aPending != 0 && aHeld != 0 ? aHeld - 1 + aPending : aHeld;
}
}  // namespace

unsigned int ProcessModule::AddRef() {
  const unsigned int held = KelAddRef();
  return PerEventCount(held, m_pImpl->pendingDrains.load(std::memory_order_acquire));
}

unsigned int ProcessModule::Release() {
  // Read before: once the reference is given back, the module may be gone.
  const uint32_t pending = m_pImpl->pendingDrains.load(std::memory_order_acquire);
  const unsigned int held = KelRelease();
  return PerEventCount(held, pending);
}

unsigned int ProcessModule::GetReference() {
  return PerEventCount(KelGetReference(), m_pImpl->pendingDrains.load(std::memory_order_acquire));
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
      CmResult rv =
          pEventQueue->PostEvent(new CCmInvokeEvent<DrainCall>(DrainCall(this, aChannel, &m_pImpl->pendingDrains)),
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
  m_pImpl->PushBack(aData, aChannel);
  return CM_OK;
}

CmResult ProcessModule::_DrainQueueData(unsigned short aChannel) {
  if (aChannel >= PROCESS_MODULE_MAX_INPUT_CHANNELS) return CM_ERROR_FAILURE;
  if (_ProcessQueueData(aChannel) != CM_OK || m_pImpl->Empty(aChannel)) return CM_OK;
  // More items behind the first: enter the unit's slot once for the rest of them.
  UnitSlot::Holder hold(m_pImpl->unit);
  for (int i = 1; i < kMaxDrainPerEvent; ++i) {
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
  if (!m_pImpl->deliverMirror.Read(nOutputChannelId, targets)) {
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
  return m_pImpl->Size(aChannel);
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
