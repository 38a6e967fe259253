#include <algorithm>
#include <cstring>

#include "cmutil/base/CmAssert.h"
#include "cmutil/buffer/CmDataBlockNoMalloc.h"

CCmDataBlockNoMalloc::CCmDataBlockNoMalloc(const char* aStr, unsigned int aLen)
    : m_pBegin(aStr), m_pEnd(aStr ? aStr + aLen : nullptr), m_pCurrentRead(aStr), m_pCurrentWrite(aStr) {}

CmResult CCmDataBlockNoMalloc::Read(void* aDst, unsigned int aCount, unsigned int* aBytesRead) {
  CM_ASSERTE_RETURN(aDst, CM_ERROR_INVALID_ARG);
  CM_ASSERTE_RETURN(m_pCurrentRead, CM_ERROR_NOT_INITIALIZED);
  CM_ASSERTE_RETURN(m_pCurrentRead <= m_pEnd, CM_ERROR_NOT_INITIALIZED);
  unsigned int available = static_cast<unsigned int>(m_pEnd - m_pCurrentRead);
  const unsigned int n = std::min(available, aCount);
  if (n) std::memcpy(aDst, m_pCurrentRead, n);
  m_pCurrentRead += n;
  if (aBytesRead) *aBytesRead = n;
  return available < aCount ? CM_ERROR_PARTIAL_DATA : CM_OK;
}

CmResult CCmDataBlockNoMalloc::Write(const void* aSrc, unsigned int aCount, unsigned int* aBytesWritten) {
  CM_ASSERTE_RETURN(aSrc, CM_ERROR_INVALID_ARG);
  CM_ASSERTE_RETURN(m_pCurrentWrite, CM_ERROR_NOT_INITIALIZED);
  CM_ASSERTE_RETURN(m_pCurrentWrite <= m_pEnd, CM_ERROR_NOT_INITIALIZED);
  unsigned int available = static_cast<unsigned int>(m_pEnd - m_pCurrentWrite);
  const unsigned int n = std::min(available, aCount);
  // The buffer belongs to the caller, who handed it over for writing.
  if (n) std::memcpy(const_cast<char*>(m_pCurrentWrite), aSrc, n);
  m_pCurrentWrite += n;
  if (aBytesWritten) *aBytesWritten = n;
  return available < aCount ? CM_ERROR_PARTIAL_DATA : CM_OK;
}
