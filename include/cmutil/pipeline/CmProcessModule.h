#pragma once
/// ProcessModule: the library's process module, a node of the processing pipeline.
///
/// A module receives IProcessData items on input channels 0..15 (DeliverData) and
/// hands them to its process unit; the unit's results go to the modules registered as
/// delivers on output channels 0..3. Routing of one item:
///
///   not started, or no unit   -> passed straight on through output channel 0
///   started, module thread T set and the caller is not on T
///                             -> queued on its input channel; an event (priority 128)
///                                posted to T drains at most 8 items of that channel,
///                                so the unit runs on T
///   started, otherwise        -> handed to the unit at once, on the caller's thread
///
/// The queue-or-not decision is taken once per channel, on the first item, from the
/// thread that delivered it, and kept until SetProcessModuleThread() is called again.
///
///   ProcessModule* a = new ProcessModule;   // count 0: take a reference
///   a->AddRef();
///   a->SetProcessModuleInfo("decoder", 7);
///   a->SetProcessUnit(unit);                 // the module takes a reference
///   a->SetProcessModuleThread(taskThread);   // not owned
///   a->AddDeliver(b, 0, 0);                  // a's output 0 -> b's input 0
///   a->InitModule(); a->Start();
///   a->DeliverData(item, 0);                 // from any thread
///   ...
///   a->Stop(); a->RemoveDeliver(b); a->Release();
///
/// Threads and ownership:
/// - DeliverData may be called from any thread. The module keeps a reference to each
///   queued item until it is processed, popped or the module dies.
/// - Delivers, inputters and the module thread are plain pointers, not owned: unlink a
///   module before it dies, and keep the module thread alive while the module is
///   started. The drain events pending on the module thread keep the module alive
///   (when it is reference counted, i.e. its count is above 0; the count then includes
///   one reference per pending event), so the last Release may come while items are
///   in flight; the module then dies on its thread after the last event. A module
///   used without references must outlive the events posted to its thread.
/// - Options, the unit and the thread are set-up values: set them before data flows.
///   Options are not locked against concurrent DeliverData calls. The unit may be
///   replaced while data flows (a call in progress keeps the old unit alive until it
///   returns), and so may the thread, but either change while started can break the
///   per-channel order: items already queued for the old thread or being processed by
///   the old unit may be overtaken by items that reach the new one first.
/// - Observers are called outside every lock, on a copy of the observer table, on the
///   thread that raised the event.
/// - No synchronous cycles: a chain that leads back into a module on the same thread
///   without a queue in between recurses without bound.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/KelUnknown.h"
#include "cmutil/pipeline/CmProcessInterfaces.h"

/// Observer table: observers of type T registered under 64-bit listen masks. Events
/// carry a listen group; an observer is told of an event when its mask shares a bit
/// with the group. Registration and the table copy are guarded by one plain mutex;
/// observers are never called under it. Observers are not owned: remove them before
/// they die.
template <class T>
class KELObserverMgr {
 public:
  typedef std::map<uint64_t, std::vector<T*>> ObserverMap;

  KELObserverMgr() : m_pRecord(new Record) {}
  virtual ~KELObserverMgr() {}

  KELObserverMgr(const KELObserverMgr&) = delete;
  KELObserverMgr& operator=(const KELObserverMgr&) = delete;

  /// Adds aObserver under aListenMask (appended after those already there). Null or a
  /// zero mask: CM_ERROR_INVALID_ARG; the same observer under the same mask twice:
  /// CM_ERROR_FOUND. Any thread.
  CmResult AddObserver(T* aObserver, uint64_t aListenMask) {
    if (!aObserver || aListenMask == 0) return CM_ERROR_INVALID_ARG;
    std::lock_guard<std::mutex> lock(m_pRecord->mutex);
    std::vector<T*>& list = m_pRecord->observers[aListenMask];
    for (T* o : list)
      if (o == aObserver) return CM_ERROR_FOUND;
    list.push_back(aObserver);
    return CM_OK;
  }

  /// Removes aObserver from every mask. CM_ERROR_NOT_FOUND when it was not there. Any
  /// thread; an event already being delivered on another thread may still reach it.
  CmResult RemoveObserver(T* aObserver) {
    std::lock_guard<std::mutex> lock(m_pRecord->mutex);
    bool found = false;
    for (auto it = m_pRecord->observers.begin(); it != m_pRecord->observers.end();) {
      std::vector<T*>& list = it->second;
      for (auto o = list.begin(); o != list.end();) {
        if (*o == aObserver) {
          o = list.erase(o);
          found = true;
        } else {
          ++o;
        }
      }
      it = list.empty() ? m_pRecord->observers.erase(it) : std::next(it);
    }
    return found ? CM_OK : CM_ERROR_NOT_FOUND;
  }

  /// A copy of the table taken under the mutex.
  ObserverMap GetObserverMap() const {
    std::lock_guard<std::mutex> lock(m_pRecord->mutex);
    return m_pRecord->observers;
  }

  /// Calls aFunc(observer) for every observer whose mask shares a bit with aGroup, in
  /// ascending mask order and registration order within a mask, on a copy of the table
  /// and outside the mutex (so an observer may add or remove observers).
  template <class F>
  void NotifyObservers(uint64_t aGroup, F&& aFunc) const {
    ObserverMap copy = GetObserverMap();
    for (const auto& entry : copy) {
      if ((entry.first & aGroup) == 0) continue;
      for (T* o : entry.second) aFunc(o);
    }
  }

 private:
  struct Record {
    ObserverMap observers;
    mutable std::mutex mutex;
  };
  std::unique_ptr<Record> m_pRecord;
};

class CM_EXPORT ProcessModule : public IProcessModule,
                                public IProcessConfig,
                                public KELObserverMgr<IProcessModuleEventNotify>,
                                public kel::CKelUnknownImpl {
 public:
  struct Impl;

  /// Status created, counters and flags zero, no thread, no unit, reference count 0.
  ProcessModule();
  /// Detaches the unit (SetProcessModule(null)), then releases options, configuration,
  /// the unit, the links and every queued item.
  ~ProcessModule() override;

  /// The reference count. Drain events pending on the module thread share one
  /// reference (taken by the first, given back by the last), so that posting an item
  /// does not move the count's cache line between threads; the count returned still
  /// holds one reference per pending drain event.
  unsigned int AddRef() override;
  unsigned int Release() override;
  unsigned int GetReference() override;
  CmResult QueryInterface(const kel::_tagUUID& aIid, void** aPpv) override {
    return kel::CKelUnknownImpl::KelQueryInterface(this, aIid, aPpv);
  }

  /// Null data or channel >= 16: CM_ERROR_INVALID_ARG, nothing counted. Otherwise
  /// counts the input and routes the item (see the overview); CM_OK. On the queued
  /// path a missing thread or event queue is an assertion ("pThread != NULL",
  /// "pEventQueue != NULL") and the item stays queued.
  CmResult DeliverData(IProcessData* aData, unsigned short aChannel) override;
  /// Created: CM_ERROR_FAILURE. Otherwise started (also from stopped), CM_OK.
  CmResult Start() override;
  /// Created: CM_ERROR_FAILURE. Otherwise stopped, CM_OK.
  CmResult Stop() override;
  /// Calls the unit's InitProcessUnit() when there is a unit; a non-zero result is
  /// returned and the status stays. Otherwise the status becomes initialised, CM_OK.
  CmResult InitModule() override;
  /// Stores aValue under aId in every case. Option 1 also sets the stat flags and
  /// gives CM_OK; every other id gives CM_ERROR_FAILURE although it was stored.
  CmResult SetProcessModuleOption(unsigned int aId, const ProcessModuleValue& aValue) override;
  /// The stored value and CM_OK; CM_ERROR_NOT_IMPLEMENTED for an id never set.
  CmResult GetProcessModuleOption(unsigned int aId, ProcessModuleValue& aValue) override;
  const char* GetProcessModuleName() override;
  unsigned int GetProcessModuleType() override;
  ProcessModuleStatus GetProcessModuleStatus() override;

  /// Links aNext's input nChannelId to this module's output nOutputChannelId. Bad ids or
  /// null: CM_ERROR_INVALID_ARG with a level-0 trace. aNext == this, aNext already on
  /// that output channel, or aNext (a ProcessModule) refusing the inputter:
  /// CM_ERROR_FAILURE.
  CmResult AddDeliver(IProcessModule* aNext, unsigned short nChannelId, unsigned short nOutputChannelId) override;
  /// Removes the first link to aNext on each output channel; CM_ERROR_FAILURE when
  /// there was none.
  CmResult RemoveDeliver(IProcessModule* aNext) override;
  /// Removes the first link of output nOutputChannelId whose input channel is
  /// nChannelId; CM_ERROR_FAILURE when there is none or the output id is >= 4.
  CmResult RemoveDeliver(unsigned short nChannelId, unsigned short nOutputChannelId) override;
  /// Sets the module thread (not owned; null allowed) and forgets every cached
  /// queue-or-not decision. Changing it while started can break the per-channel order
  /// (see the overview).
  CmResult SetProcessModuleThread(ACmThread* aThread) override;
  /// Takes a reference on aUnit (null allowed), detaches the old unit, attaches the new
  /// one. CM_OK. Safe while data flows, but see the ordering note in the overview.
  CmResult SetProcessUnit(IProcessUnit* aUnit) override;
  /// The current unit, without a reference: valid until it is replaced.
  IProcessUnit* GetProcessUnit() override;
  /// Counts the output (even for a bad id), then, for ids 0..3, calls DeliverData on
  /// every deliver of that output channel in link order, outside the link lock.
  /// Id >= 4: CM_ERROR_FAILURE. Downstream results are not reported.
  CmResult DeliverDataToNextModule(IProcessData* aData, unsigned short nOutputChannelId) override;
  /// Items waiting in a channel's queue; 0 for channels >= 16.
  unsigned int GetProcessModuleQueueSize(unsigned short aChannel) override;
  /// Forwarded to the embedded ProcessConfig.
  CmResult ConfigProcess(const char* aKey, const char* aValue) override;
  CmResult GetProcessConfigValue(const char* aKey, char* aBuf, unsigned int& aSize) override;
  /// Records aPrev as feeding input nChannelId. Null: CM_ERROR_INVALID_ARG (traced);
  /// aPrev == this, or another inputter already on that channel (unless shared input
  /// is allowed): CM_ERROR_FAILURE.
  CmResult AddInputer(IProcessModule* aPrev, unsigned short nChannelId) override;
  /// Removes the first inputter entry of aPrev; CM_ERROR_FAILURE when absent or null.
  CmResult RemoveInputer(IProcessModule* aPrev) override;

  /// Name (a null name leaves it) and type.
  void SetProcessModuleInfo(const char* aName, unsigned int aType);

  /// Like DeliverDataToNextModule, but only to the deliver at aIndex of the output
  /// channel; the entry is copied under the link lock (with a reference on a
  /// reference-counted target) and called outside it. The output is counted only for
  /// index 0. Bad id or index: CM_ERROR_FAILURE.
  CmResult DeliverDataToNextModuleByDeliverIndex(IProcessData* aData, unsigned short nOutputChannelId,
                                                 unsigned short aIndex);

  // ---- Queue access for derived modules that run their own loops ----

  /// Removes the front item of aChannel into *aOut with one reference the caller now
  /// owns. Null out or channel >= 16: CM_ERROR_INVALID_ARG; empty: CM_ERROR_GENERIC.
  CmResult _PopProcessDataFromQueue(IProcessData** aOut, unsigned short aChannel);
  /// One pass over channels 0..15: for each non-empty queue, removes the front item and
  /// calls aFunc(item, channel, aContext) with a borrowed pointer. A non-zero result
  /// stops the pass with CM_ERROR_GENERIC.
  CmResult _PopProcessDataFromQueue(int (*aFunc)(IProcessData*, unsigned short, void*), void* aContext);
  /// Removes the items of aChannel one by one, calling aFunc(item, aContext) with a
  /// borrowed pointer, until the queue is empty (CM_OK) or aFunc returns non-zero
  /// (CM_ERROR_GENERIC; that item is consumed). Channel >= 16: CM_ERROR_INVALID_ARG.
  CmResult _PopProcessDataFromQueue(int (*aFunc)(IProcessData*, void*), unsigned short aChannel, void* aContext);
  /// Processes at most 8 items of aChannel, stopping early when the queue is empty.
  /// Channel >= 16: CM_ERROR_FAILURE; otherwise CM_OK. Module thread.
  CmResult _DrainQueueData(unsigned short aChannel);
  /// Drains the even channels 0, 2, ..., 14 in that order; odd channels are skipped.
  CmResult _DrainQueueData();
  /// No unit: CM_ERROR_FAILURE. Otherwise one item of each channel 0..15; CM_OK.
  CmResult _ProcessQueueDataOnce();
  /// Takes the front item of aChannel and gives it to the unit, or (without a unit)
  /// passes it on through output 0. Empty: CM_ERROR_FAILURE.
  CmResult _ProcessQueueData(unsigned short aChannel);
  /// The unit if there is one, else output channel 0; CM_OK.
  CmResult _HandleOneProcessData(IProcessData* aData, unsigned short aChannel);
  /// The cached queue-or-not decision for aChannel (taken now if not yet taken).
  bool _NeedQueuedProcess(unsigned short aChannel);
  unsigned int _GetProcessDataToQueueSize(unsigned short aChannel);
  /// Items waiting in all 16 queues.
  unsigned int _GetProcessDataToQueueSize();

  // ---- Status, counters and events ----

  /// Changes the status atomically and fires PROCESS_MODULE_EVENT_STATUS_CHANGED; an
  /// unchanged status does nothing.
  void _UpdateModuleStatus(ProcessModuleStatus aStatus);
  void _UpdateStatInputOneProcessedSample(IProcessData* aData, unsigned short aChannel);
  void _UpdateStatOutputOneProcessedSample(IProcessData* aData, unsigned short aChannel);
  /// Input and output sample counters (channels >= 16 give 0).
  uint32_t GetInputSampleCount(unsigned short aChannel) const;
  uint32_t GetOutputSampleCount(unsigned short aChannel) const;
  /// Tells the observers whose mask shares a bit with the event's listen group, on a
  /// copy of the table, outside its mutex, on the calling thread.
  CmResult _FireOnStatusChangedEvent(unsigned int aEventType, const ProcessModuleValue& aValue);
  /// SetProcessModuleOption on every deliver of all 4 output channels (list copied
  /// under the link lock, calls made outside it). CM_OK.
  CmResult _FireOptionToDelivers(unsigned int aId, const ProcessModuleValue& aValue);
  /// The same on every inputter.
  CmResult _FireOptionToInputters(unsigned int aId, const ProcessModuleValue& aValue);

 protected:
  /// Gives the item to the unit (its result ignored) and returns true; false without a
  /// unit.
  virtual bool _DeliverDataToProcessUnit(IProcessData* aData, unsigned short aChannel);
  /// Listen group of an event type: 1 for status, 2 for sample events, all bits else.
  virtual uint64_t _EventTypeToListenTypeGroup(unsigned int aEventType);
  /// Appends the item, with a new reference, to the channel's queue under the queue
  /// lock. The channel is not checked here (callers do).
  virtual CmResult _PushProcessDataToQueue(IProcessData* aData, unsigned short aChannel);

  /// Sample counters, unguarded (a racing increment may be lost). Input counts are
  /// written by the delivering threads, output counts by the module's own thread, so
  /// each array has a cache line of its own.
  alignas(64) std::atomic<uint32_t> m_dwInputSamples[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  alignas(64) std::atomic<uint32_t> m_dwOutputSamples[PROCESS_MODULE_MAX_INPUT_CHANNELS];
  std::atomic<uint32_t> m_dwStatFlags;
  std::atomic<ACmThread*> m_pThread;
  /// When true, AddInputer accepts several inputters on one channel.
  bool m_bAllowSharedInput;

 private:
  /// Whether aNext is already a deliver of output nOutputChannelId (under the link lock).
  bool _HasDeliver(IProcessModule* aNext, unsigned short nOutputChannelId);
  /// Removes the last inputter entry of aPrev on nChannelId (undoes a raced AddInputer).
  void _RemoveInputerEntry(IProcessModule* aPrev, unsigned short nChannelId);

  std::unique_ptr<Impl> m_pImpl;
};
