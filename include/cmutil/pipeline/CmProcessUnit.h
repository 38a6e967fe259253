#pragma once
/// ProcessUnit: base of the work a ProcessModule runs on each data item; and
/// ProcessConfig, the string key/value store embedded in every module.
///
/// A concrete unit overrides _Process (and InitProcessUnit where it needs set-up). The
/// module hands it each item while started; _Process returns a new item carrying one
/// reference for the caller (or null), which Process() delivers on output channel 0
/// and then releases. A unit that emits on other output channels, or several items
/// for one input, calls _DeliverDataToNextModule itself and returns null:
///
///   class CScale : public ProcessUnit {
///    protected:
///     IProcessData* _Process(IProcessData* aIn, unsigned short) override {
///       IProcessData* out = MakeScaled(aIn);   // count 1, owned by the caller
///       return out;
///     }
///   };
///
/// _Process runs on the thread the module calls it from: the module thread when the
/// module queues its input. The module owns the unit (one reference); the unit's
/// module pointer is not a reference. _DeliverDataToNextModule holds the unit's spin
/// lock while delivering downstream, so a synchronous path must never come back into
/// the same unit.

#include <map>
#include <string>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/KelUnknown.h"
#include "cmutil/pipeline/CmProcessInterfaces.h"

class CM_EXPORT ProcessUnit : public IProcessUnit, public kel::CKelUnknownImpl {
 public:
  ProcessUnit();
  ~ProcessUnit() override;

  KEL_IMPLEMENT_UNKNOWN()

  /// Runs _Process, delivers a non-null result on output channel 0 and releases it.
  /// Always CM_OK; delivery errors are not reported.
  CmResult Process(IProcessData* aData, unsigned short aChannel) override;
  /// Stores the module under the spin lock. CM_OK.
  CmResult SetProcessModule(IProcessModule* aModule) override;
  /// The module, read without the lock.
  IProcessModule* GetProcessModule() override;
  /// Base: nothing to set up, CM_OK.
  CmResult InitProcessUnit() override;

  /// Under the spin lock: the module's DeliverDataToNextModule result, or
  /// CM_ERROR_FAILURE without a module.
  CmResult _DeliverDataToNextModule(IProcessData* aData, unsigned short nOutputChannelId);
  /// The module's name, or "" without a module.
  const char* GetProcessModuleName();
  /// The module's type, or 0.
  unsigned int GetProcessModuleType();
  /// The module's option, or CM_ERROR_FAILURE without a module.
  CmResult GetProcessModuleOption(unsigned int aId, ProcessModuleValue& aValue);
  /// Forwards to the module's _FireOnStatusChangedEvent when it is a ProcessModule.
  /// Always CM_OK.
  CmResult _FireOnStatusChangedEvent(unsigned int aEventType, const ProcessModuleValue& aValue);

 protected:
  /// The work. Returns a new item with one reference that passes to the caller, or
  /// null for no output. Base: null.
  virtual IProcessData* _Process(IProcessData* aData, unsigned short aChannel);

 private:
  CCmSpinLock m_ModuleLock;
  IProcessModule* m_pModule;
};

/// Ordered string map behind a recursive mutex; every operation may be called from
/// any thread.
class CM_EXPORT ProcessConfig : public IProcessConfig {
 public:
  ProcessConfig();
  ~ProcessConfig() override;

  CmResult ConfigProcess(const char* aKey, const char* aValue) override;
  CmResult GetProcessConfigValue(const char* aKey, char* aBuf, unsigned int& aSize) override;

 private:
  std::map<std::string, std::string> m_Values CM_GUARDED_BY(m_Lock);
  CCmMutexThreadRecursive m_Lock;
};
