#include <cstring>
#include <new>

#include "cmutil/base/CmAssert.h"
#include "cmutil/buffer/CmMetaData.h"
#include "cmutil/buffer/CmParameterList.h"

// Expression texts of the assertions below read as the checks always have.
#ifndef IS_KEL_OK
#define IS_KEL_OK(rv) ((rv) == CM_OK)
#endif
#ifndef FALSE
#define FALSE 0
#endif

namespace {

const unsigned int kRawHeader = 4;

unsigned char* NewRaw(const unsigned char* aBytes, unsigned int aLen) {
  unsigned char* raw = new unsigned char[kRawHeader + aLen];
  std::memcpy(raw, &aLen, kRawHeader);
  if (aBytes) std::memcpy(raw + kRawHeader, aBytes, aLen);
  return raw;
}

unsigned int RawLength(const unsigned char* aRaw) {
  unsigned int len = 0;
  if (aRaw) std::memcpy(&len, aRaw, kRawHeader);
  return len;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// CCmMetaData

CCmMetaData::CCmMetaData() : m_nType(CM_DATA_UNKNOW), m_qwSlot(0) {}

CCmMetaData::~CCmMetaData() { FreeOwned(); }

void CCmMetaData::FreeOwned() {
  if (m_nType == CM_DATA_STRING)
    delete[] m_pString;
  else if (m_nType == CM_DATA_RAW)
    delete[] m_pRaw;
  else
    return;
  m_qwSlot = 0;
}

CmResult CCmMetaData::Set(char aValue) {
  CM_ASSERTE_RETURN(CM_DATA_BYTE == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_BYTE;
  m_qwSlot = 0;
  m_cValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(short aValue) {
  CM_ASSERTE_RETURN(CM_DATA_SHORT == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_SHORT;
  m_qwSlot = 0;
  m_sValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(int aValue) {
  CM_ASSERTE_RETURN(CM_DATA_INT == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_INT;
  m_qwSlot = 0;
  m_nValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(long aValue) {
  CM_ASSERTE_RETURN(CM_DATA_LONG == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_LONG;
  m_lValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(unsigned short aValue) {
  CM_ASSERTE_RETURN(CM_DATA_WORD == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_WORD;
  m_qwSlot = 0;
  m_wValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(unsigned int aValue) {
  CM_ASSERTE_RETURN(CM_DATA_DWORD == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_DWORD;
  m_qwSlot = 0;
  m_dwValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(float aValue) {
  CM_ASSERTE_RETURN(CM_DATA_FLOAT == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  m_nType = CM_DATA_FLOAT;
  m_qwSlot = 0;
  m_fValue = aValue;
  return CM_OK;
}

CmResult CCmMetaData::Set(const char* aStr) {
  CM_ASSERTE_RETURN(CM_DATA_STRING == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  char* copy = nullptr;
  if (aStr) {
    size_t len = std::strlen(aStr);
    copy = new char[len + 1];
    std::memcpy(copy, aStr, len + 1);
  }
  FreeOwned();
  m_nType = CM_DATA_STRING;
  m_pString = copy;
  return CM_OK;
}

CmResult CCmMetaData::Set(const unsigned char* aRaw, unsigned int aLen) {
  CM_ASSERTE_RETURN(CM_DATA_RAW == m_nType || m_nType == CM_DATA_UNKNOW, CM_ERROR_INVALID_ARG);
  unsigned char* copy = (aRaw && aLen) ? NewRaw(aRaw, aLen) : nullptr;
  FreeOwned();
  m_nType = CM_DATA_RAW;
  m_pRaw = copy;
  return CM_OK;
}

CmResult CCmMetaData::Get(char& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_BYTE == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_cValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(short& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_SHORT == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_sValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(int& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_INT == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_nValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(long& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_LONG == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_lValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(unsigned short& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_WORD == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_wValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(unsigned int& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_DWORD == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_dwValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(float& aValue) const {
  CM_ASSERTE_RETURN(CM_DATA_FLOAT == m_nType, CM_ERROR_INVALID_ARG);
  aValue = m_fValue;
  return CM_OK;
}

CmResult CCmMetaData::Get(const char*& aStr) const {
  CM_ASSERTE_RETURN(CM_DATA_STRING == m_nType, CM_ERROR_INVALID_ARG);
  aStr = m_pString;
  return CM_OK;
}

CmResult CCmMetaData::Get(unsigned char*& aRaw, unsigned int& aLen) const {
  CM_ASSERTE_RETURN(CM_DATA_RAW == m_nType, CM_ERROR_INVALID_ARG);
  aRaw = m_pRaw ? m_pRaw + kRawHeader : nullptr;
  aLen = RawLength(m_pRaw);
  return CM_OK;
}

CmResult CCmMetaData::GetStreamLength(unsigned int& aLen) const {
  CM_ASSERTE_RETURN(m_nType != CM_DATA_UNKNOW, CM_ERROR_FAILURE);
  switch (m_nType) {
    case CM_DATA_BYTE:
      aLen = 2;
      break;
    case CM_DATA_SHORT:
    case CM_DATA_WORD:
      aLen = 3;
      break;
    case CM_DATA_INT:
    case CM_DATA_DWORD:
    case CM_DATA_FLOAT:
      aLen = 5;
      break;
    case CM_DATA_LONG:
      aLen = 9;
      break;
    case CM_DATA_STRING:
      aLen = (m_pString ? static_cast<unsigned int>(std::strlen(m_pString)) : 0) + 3;
      break;
    case CM_DATA_RAW:
      // Four bytes more than StreamTo writes; callers size their buffers with it.
      aLen = RawLength(m_pRaw) + 9;
      break;
    default:
      CM_ASSERTE_RETURN(FALSE, CM_ERROR_FAILURE);
  }
  return CM_OK;
}

CmResult CCmMetaData::StreamTo(CCmByteStreamNetwork& aStream) const {
  CM_ASSERTE_RETURN(m_nType != CM_DATA_UNKNOW, CM_ERROR_FAILURE);
  aStream << static_cast<unsigned char>(m_nType);
  switch (m_nType) {
    case CM_DATA_BYTE:
      aStream << m_cValue;
      break;
    case CM_DATA_SHORT:
      aStream << m_sValue;
      break;
    case CM_DATA_INT:
      aStream << m_nValue;
      break;
    case CM_DATA_LONG:
      aStream << static_cast<long long>(m_lValue);
      break;
    case CM_DATA_WORD:
      aStream << m_wValue;
      break;
    case CM_DATA_DWORD:
      aStream << m_dwValue;
      break;
    case CM_DATA_FLOAT:
      aStream << m_fValue;
      break;
    case CM_DATA_STRING:
      aStream << static_cast<const char*>(m_pString);
      break;
    case CM_DATA_RAW: {
      unsigned int len = RawLength(m_pRaw);
      aStream << len;
      if (len) aStream.Write(m_pRaw + kRawHeader, len);
      break;
    }
    default:
      CM_ASSERTE_RETURN(FALSE, CM_ERROR_FAILURE);
  }
  bool bGood = aStream.IsGood();
  CM_ASSERTE_RETURN(bGood, CM_ERROR_FAILURE);
  return CM_OK;
}

CmResult CCmMetaData::StreamFrom(CCmByteStreamNetwork& aStream) {
  // The object takes on whatever the stream holds: drop an owned string or buffer first.
  FreeOwned();
  m_qwSlot = 0;
  unsigned char tag = CM_DATA_UNKNOW;
  aStream >> tag;
  m_nType = tag;
  switch (m_nType) {
    case CM_DATA_BYTE:
      aStream >> m_cValue;
      break;
    case CM_DATA_SHORT:
      aStream >> m_sValue;
      break;
    case CM_DATA_INT:
      aStream >> m_nValue;
      break;
    case CM_DATA_LONG: {
      long long v = 0;
      aStream >> v;
      m_lValue = static_cast<long>(v);
      break;
    }
    case CM_DATA_WORD:
      aStream >> m_wValue;
      break;
    case CM_DATA_DWORD:
      aStream >> m_dwValue;
      break;
    case CM_DATA_FLOAT:
      aStream >> m_fValue;
      break;
    case CM_DATA_STRING: {
      unsigned short len = 0;
      aStream >> len;
      if (aStream.IsGood() && len > 0) {
        m_pString = new char[size_t(len) + 1]();
        aStream.Read(m_pString, len);
      }
      break;
    }
    case CM_DATA_RAW: {
      unsigned int len = 0;
      aStream >> len;
      if (aStream.IsGood() && len > 0) {
        // A hostile length cannot make us allocate more than the input holds: the
        // chain's Read never copies more than it has, and the stream fails anyway.
        unsigned int have = aStream.GetBlock().GetChainedLength();
        unsigned int keep = len < have ? len : have;
        m_pRaw = NewRaw(nullptr, keep);
        if (keep) std::memset(m_pRaw + kRawHeader, 0, keep);
        aStream.Read(m_pRaw + kRawHeader, len);
      }
      break;
    }
    case CM_DATA_UNKNOW:
      CM_ASSERTE_RETURN(m_nType != CM_DATA_UNKNOW, CM_ERROR_FAILURE);
      break;
    default:
      CM_ASSERTE_RETURN(FALSE, CM_ERROR_FAILURE);
  }
  bool bGood = aStream.IsGood();
  CM_ASSERTE_RETURN(bGood, CM_ERROR_FAILURE);
  return CM_OK;
}

// ---------------------------------------------------------------------------------------
// CCmParameterByIndex

CCmParameterByIndex::CCmParameterByIndex(unsigned int aIndex) : m_dwIndex(aIndex) {}

#define CM_PARAMETER_CTOR(T) \
  CCmParameterByIndex::CCmParameterByIndex(unsigned int aIndex, T aValue) : m_dwIndex(aIndex) { m_Value.Set(aValue); }
CM_PARAMETER_CTOR(char)
CM_PARAMETER_CTOR(short)
CM_PARAMETER_CTOR(int)
CM_PARAMETER_CTOR(long)
CM_PARAMETER_CTOR(unsigned short)
CM_PARAMETER_CTOR(unsigned int)
CM_PARAMETER_CTOR(float)
CM_PARAMETER_CTOR(const char*)
#undef CM_PARAMETER_CTOR

CCmParameterByIndex::CCmParameterByIndex(unsigned int aIndex, const unsigned char* aRaw, unsigned int aLen)
    : m_dwIndex(aIndex) {
  m_Value.Set(aRaw, aLen);
}

CCmParameterByIndex::~CCmParameterByIndex() = default;

CmResult CCmParameterByIndex::GetStreamLength(unsigned int& aLen) const {
  CM_ASSERTE_RETURN(m_dwIndex != 0, CM_ERROR_FAILURE);
  unsigned int len = 0;
  CmResult rv = m_Value.GetStreamLength(len);
  if (CM_FAILED(rv)) return rv;
  aLen = len + 4;
  return CM_OK;
}

CmResult CCmParameterByIndex::StreamTo(CCmByteStreamNetwork& aStream) const {
  CM_ASSERTE_RETURN(m_dwIndex != 0, CM_ERROR_FAILURE);
  aStream << m_dwIndex;
  return m_Value.StreamTo(aStream);
}

CmResult CCmParameterByIndex::StreamFrom(CCmByteStreamNetwork& aStream) {
  aStream >> m_dwIndex;
  return m_Value.StreamFrom(aStream);
}

// ---------------------------------------------------------------------------------------
// CCmParameterList

CCmParameterList::CCmParameterList() = default;

CCmParameterList::~CCmParameterList() { Clear(); }

CmResult CCmParameterList::AddParameter(CCmParameterByIndex* pParam) {
  CM_ASSERTE_RETURN(pParam, CM_ERROR_NULL_POINTER);
  pParam->AddReference();
  CCmParameterByIndex*& slot = m_Params[pParam->GetIndex()];
  CCmParameterByIndex* old = slot;
  slot = pParam;
  if (old) old->ReleaseReference();
  return CM_OK;
}

CmResult CCmParameterList::GetParameter(unsigned int aIndex, const CCmParameterByIndex*& aParam) const {
  ParameterMap::const_iterator it = m_Params.find(aIndex);
  if (it == m_Params.end()) return CM_ERROR_NOT_FOUND;
  aParam = it->second;
  return CM_OK;
}

CmResult CCmParameterList::RemoveParameter(unsigned int aIndex) {
  ParameterMap::iterator it = m_Params.find(aIndex);
  if (it == m_Params.end()) return CM_ERROR_NOT_FOUND;
  CCmParameterByIndex* param = it->second;
  m_Params.erase(it);
  if (param) param->ReleaseReference();
  return CM_OK;
}

void CCmParameterList::Clear() {
  // Entries are taken out of the map as they are released, so the list never holds a
  // pointer to a released entry.
  while (!m_Params.empty()) {
    ParameterMap::iterator it = m_Params.begin();
    CCmParameterByIndex* pParam = it->second;
    CM_ASSERTE_RETURN_VOID(pParam);
    m_Params.erase(it);
    pParam->ReleaseReference();
  }
}

CmResult CCmParameterList::GetStreamLength(unsigned int& aLen) const {
  unsigned int total = 4;
  for (ParameterMap::const_iterator it = m_Params.begin(); it != m_Params.end(); ++it) {
    const CCmParameterByIndex* pParam = it->second;
    CM_ASSERTE_RETURN(pParam, CM_ERROR_NULL_POINTER);
    unsigned int len = 0;
    CmResult rv = pParam->GetStreamLength(len);
    if (CM_FAILED(rv)) return rv;
    total += len;
  }
  aLen = total;
  return CM_OK;
}

CmResult CCmParameterList::StreamTo(CCmByteStreamNetwork& aStream) const {
  unsigned int dwCount = static_cast<unsigned int>(m_Params.size());
  aStream << dwCount;
  for (ParameterMap::const_iterator it = m_Params.begin(); it != m_Params.end(); ++it) {
    const CCmParameterByIndex* pParam = it->second;
    CM_ASSERTE_RETURN(pParam, CM_ERROR_NULL_POINTER);
    CmResult ret = pParam->StreamTo(aStream);
    CM_ASSERTE_RETURN(IS_KEL_OK(ret), ret);
    --dwCount;
  }
  CM_ASSERTE_RETURN(0 == dwCount, CM_ERROR_FAILURE);
  return CM_OK;
}

CmResult CCmParameterList::StreamFrom(CCmByteStreamNetwork& aStream) {
  unsigned int dwCount = 0;
  aStream >> dwCount;
  if (dwCount == 0) return CM_OK;
  for (unsigned int i = 0; i < dwCount; ++i) {
    CCmParameterByIndex* pParam = new CCmParameterByIndex(0);
    // Hold a reference while parsing so that a failure can drop the fresh entry.
    pParam->AddReference();
    CmResult rv = pParam->StreamFrom(aStream);
    if (CM_FAILED(rv)) {
      pParam->ReleaseReference();
      return rv;
    }
    AddParameter(pParam);
    pParam->ReleaseReference();
  }
  return CM_OK;
}
