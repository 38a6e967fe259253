// Links of a ProcessModule: the modules it delivers to and the ones that feed it.

#include "cmutil/pipeline/CmProcessModule.h"

#include "pipeline/CmProcessModuleImpl.h"

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
      m_pImpl->deliverMirror.Publish(nOutputChannelId, list);
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
      m_pImpl->deliverMirror.Publish(nOutputChannelId, list);
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
    for (unsigned short ch = 0; ch < PROCESS_MODULE_MAX_OUTPUT_CHANNELS; ++ch) {
      std::vector<DeliverEntry>& list = m_pImpl->delivers[ch];
      for (auto it = list.begin(); it != list.end(); ++it) {
        if (it->module != aNext) continue;
        list.erase(it);
        m_pImpl->deliverMirror.Publish(ch, list);
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
