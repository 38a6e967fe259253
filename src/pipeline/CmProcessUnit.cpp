#include "cmutil/pipeline/CmProcessUnit.h"

#include "cmutil/pipeline/CmProcessModule.h"
#include "cmutil/safe/CmSafeLib.h"

namespace {

// Holds the single reference that _Process hands over and drops it at scope end.
class AdoptedData {
 public:
  explicit AdoptedData(IProcessData* aData) : m_pData(aData) {}
  ~AdoptedData() {
    if (m_pData) m_pData->Release();
  }
  AdoptedData(const AdoptedData&) = delete;
  AdoptedData& operator=(const AdoptedData&) = delete;
  IProcessData* get() const { return m_pData; }

 private:
  IProcessData* m_pData;
};

}  // namespace

ProcessUnit::ProcessUnit() : m_pModule(nullptr) {}

ProcessUnit::~ProcessUnit() = default;

CmResult ProcessUnit::Process(IProcessData* aData, unsigned short aChannel) {
  AdoptedData result(_Process(aData, aChannel));
  if (result.get()) _DeliverDataToNextModule(result.get(), 0);
  return CM_OK;
}

CmResult ProcessUnit::SetProcessModule(IProcessModule* aModule) {
  m_ModuleLock.lock();
  m_pModule = aModule;
  m_ModuleLock.unlock();
  return CM_OK;
}

IProcessModule* ProcessUnit::GetProcessModule() { return m_pModule; }

CmResult ProcessUnit::InitProcessUnit() { return CM_OK; }

IProcessData* ProcessUnit::_Process(IProcessData*, unsigned short) { return nullptr; }

CmResult ProcessUnit::_DeliverDataToNextModule(IProcessData* aData, unsigned short nOutputChannelId) {
  m_ModuleLock.lock();
  CmResult rv = m_pModule ? m_pModule->DeliverDataToNextModule(aData, nOutputChannelId) : CM_ERROR_FAILURE;
  m_ModuleLock.unlock();
  return rv;
}

const char* ProcessUnit::GetProcessModuleName() { return m_pModule ? m_pModule->GetProcessModuleName() : ""; }

unsigned int ProcessUnit::GetProcessModuleType() { return m_pModule ? m_pModule->GetProcessModuleType() : 0; }

CmResult ProcessUnit::GetProcessModuleOption(unsigned int aId, ProcessModuleValue& aValue) {
  return m_pModule ? m_pModule->GetProcessModuleOption(aId, aValue) : CM_ERROR_FAILURE;
}

CmResult ProcessUnit::_FireOnStatusChangedEvent(unsigned int aEventType, const ProcessModuleValue& aValue) {
  if (ProcessModule* module = dynamic_cast<ProcessModule*>(m_pModule))
    module->_FireOnStatusChangedEvent(aEventType, aValue);
  return CM_OK;
}

ProcessConfig::ProcessConfig() = default;

ProcessConfig::~ProcessConfig() = default;

CmResult ProcessConfig::ConfigProcess(const char* aKey, const char* aValue) {
  if (!aKey || !aValue) return CM_ERROR_INVALID_ARG;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_Lock);
  m_Values[aKey] = aValue;
  return CM_OK;
}

CmResult ProcessConfig::GetProcessConfigValue(const char* aKey, char* aBuf, unsigned int& aSize) {
  if (!aKey || !aBuf || aSize == 0) return CM_ERROR_INVALID_ARG;
  std::string value;
  {
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_Lock);
    auto it = m_Values.find(aKey);
    if (it == m_Values.end()) return CM_ERROR_FAILURE;
    value = it->second;
  }
  if (value.size() > aSize - 1) return CM_ERROR_INVALID_ARG;
  if (value.empty()) return CM_OK;
  strncpy_s(aBuf, aSize, value.c_str(), value.size());
  aSize = static_cast<unsigned int>(value.size());
  return CM_OK;
}
