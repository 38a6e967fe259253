#pragma once
/// Interfaces of the processing pipeline.
///
/// A pipeline is a graph of process modules (IProcessModule, implemented by
/// ProcessModule in CmProcessModule.h). A module receives data items (IProcessData) on
/// one of 16 input channels, runs them through its process unit (IProcessUnit, base
/// ProcessUnit in CmProcessUnit.h) and hands the results to the modules registered as
/// its delivers on one of 4 output channels. Observers (IProcessModuleEventNotify)
/// receive status and sample-count events.
///
/// Every interface here is reference counted through kel::IKelUnknown: an object is
/// deleted by its own Release() at zero, never by the caller.

#include <cstdint>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/KelUnknown.h"

class ACmThread;

/// Input channel ids are 0 .. PROCESS_MODULE_MAX_INPUT_CHANNELS - 1.
constexpr unsigned short PROCESS_MODULE_MAX_INPUT_CHANNELS = 16;
/// Output channel ids are 0 .. PROCESS_MODULE_MAX_OUTPUT_CHANNELS - 1.
constexpr unsigned short PROCESS_MODULE_MAX_OUTPUT_CHANNELS = 4;

/// A small value copied whole: a 64-bit field (zero in every value the library
/// creates) and a 32-bit unsigned value. Carried by module options and module events.
struct ProcessModuleValue {
  uint64_t llValue = 0;
  uint32_t dwValue = 0;

  ProcessModuleValue() = default;
  explicit ProcessModuleValue(uint32_t aValue) : llValue(0), dwValue(aValue) {}
  ProcessModuleValue(uint64_t aLong, uint32_t aValue) : llValue(aLong), dwValue(aValue) {}
};

inline bool operator==(const ProcessModuleValue& a, const ProcessModuleValue& b) {
  return a.llValue == b.llValue && a.dwValue == b.dwValue;
}
inline bool operator!=(const ProcessModuleValue& a, const ProcessModuleValue& b) { return !(a == b); }

/// Module status.
enum ProcessModuleStatus : uint32_t {
  PROCESS_MODULE_STATUS_CREATED = 0,  ///< after construction
  PROCESS_MODULE_STATUS_INITED = 1,   ///< after InitModule()
  PROCESS_MODULE_STATUS_STARTED = 2,  ///< after Start()
  PROCESS_MODULE_STATUS_STOPPED = 3,  ///< after Stop()
};

/// Event types passed to observers, with their listen groups.
enum : uint32_t {
  /// Value: the new status. Listen group 1.
  PROCESS_MODULE_EVENT_STATUS_CHANGED = 1,
  /// Value: the input count of channel 0 after the increment. Listen group 2.
  PROCESS_MODULE_EVENT_INPUT_SAMPLES = 2,
  /// Value: the output count of channel 0 after the increment. Listen group 2.
  PROCESS_MODULE_EVENT_OUTPUT_SAMPLES = 3,
};

/// Listen groups (bits of an observer's listen mask). Event types other than the
/// three above go to every group.
constexpr uint64_t PROCESS_MODULE_LISTEN_STATUS = 1;
constexpr uint64_t PROCESS_MODULE_LISTEN_SAMPLES = 2;
constexpr uint64_t PROCESS_MODULE_LISTEN_ALL = ~static_cast<uint64_t>(0);

/// Option ids. Option 1's 32-bit value is a bit set: bit 0 asks for an
/// PROCESS_MODULE_EVENT_INPUT_SAMPLES event on every input of channel 0, bit 1 for an
/// PROCESS_MODULE_EVENT_OUTPUT_SAMPLES event on every output counted for channel 0.
/// Other ids are stored and returned but mean nothing to the module itself.
enum : uint32_t {
  PROCESS_MODULE_OPTION_STAT_EVENTS = 1,
};
constexpr uint32_t PROCESS_MODULE_STAT_INPUT = 1u << 0;
constexpr uint32_t PROCESS_MODULE_STAT_OUTPUT = 1u << 1;

/// A data item travelling through the pipeline. Modules keep a reference while an item
/// waits in a queue; the data itself is never read by the modules (pointer and length
/// appear only in detail traces).
class CM_EXPORT IProcessData : public kel::IKelUnknown {
 public:
  /// A type tag of the producer's choosing; the pipeline does not look at it.
  virtual uint32_t GetDataType() = 0;
  /// The payload.
  virtual void* GetData() = 0;
  /// The payload's length in bytes.
  virtual uint32_t GetDataLength() = 0;
};

/// Receives module events. Called on whatever thread raised the event (the thread that
/// delivered the item, or the one that changed the status), outside the module's locks.
class CM_EXPORT IProcessModuleEventNotify {
 public:
  virtual void OnProcessModuleEvent(uint32_t aEventType, const ProcessModuleValue& aValue) = 0;
  virtual ~IProcessModuleEventNotify() {}
};

/// A small string key/value store (see ProcessConfig).
class CM_EXPORT IProcessConfig {
 public:
  /// Sets aKey to aValue (insert or overwrite). Null key or value: CM_ERROR_INVALID_ARG.
  virtual CmResult ConfigProcess(const char* aKey, const char* aValue) = 0;
  /// Copies the value of aKey into aBuf (aSize bytes) and sets aSize to its length.
  /// Null key or buffer or a size of 0, or a value longer than aSize - 1:
  /// CM_ERROR_INVALID_ARG (buffer and size untouched); absent key: CM_ERROR_FAILURE; an
  /// empty value: CM_OK with buffer and size untouched.
  virtual CmResult GetProcessConfigValue(const char* aKey, char* aBuf, unsigned int& aSize) = 0;
  virtual ~IProcessConfig() {}
};

class IProcessModule;

/// The work a module runs on each item (see ProcessUnit).
class CM_EXPORT IProcessUnit : public kel::IKelUnknown {
 public:
  /// Processes one item received on aChannel; runs on the module's thread when the
  /// module queues its input. Always CM_OK for ProcessUnit.
  virtual CmResult Process(IProcessData* aData, unsigned short aChannel) = 0;
  /// Attaches the unit to its module (the module owns the unit; the unit does not own
  /// the module). Null detaches.
  virtual CmResult SetProcessModule(IProcessModule* aModule) = 0;
  virtual IProcessModule* GetProcessModule() = 0;
  /// Set-up called by the module's InitModule(); a non-zero result fails it.
  virtual CmResult InitProcessUnit() = 0;
};

/// A process module (see ProcessModule for the rules).
class CM_EXPORT IProcessModule : public kel::IKelUnknown {
 public:
  virtual CmResult DeliverData(IProcessData* aData, unsigned short aChannel) = 0;
  virtual CmResult Start() = 0;
  virtual CmResult Stop() = 0;
  virtual CmResult InitModule() = 0;
  virtual CmResult SetProcessModuleOption(unsigned int aId, const ProcessModuleValue& aValue) = 0;
  virtual CmResult GetProcessModuleOption(unsigned int aId, ProcessModuleValue& aValue) = 0;
  virtual const char* GetProcessModuleName() = 0;
  virtual unsigned int GetProcessModuleType() = 0;
  virtual ProcessModuleStatus GetProcessModuleStatus() = 0;
  virtual CmResult AddDeliver(IProcessModule* aNext, unsigned short nChannelId, unsigned short nOutputChannelId) = 0;
  virtual CmResult RemoveDeliver(IProcessModule* aNext) = 0;
  virtual CmResult RemoveDeliver(unsigned short nChannelId, unsigned short nOutputChannelId) = 0;
  virtual CmResult SetProcessModuleThread(ACmThread* aThread) = 0;
  virtual CmResult SetProcessUnit(IProcessUnit* aUnit) = 0;
  virtual IProcessUnit* GetProcessUnit() = 0;
  virtual CmResult DeliverDataToNextModule(IProcessData* aData, unsigned short nOutputChannelId) = 0;
  virtual unsigned int GetProcessModuleQueueSize(unsigned short aChannel) = 0;
  virtual CmResult AddInputer(IProcessModule* aPrev, unsigned short nChannelId) = 0;
  virtual CmResult RemoveInputer(IProcessModule* aPrev) = 0;
};
