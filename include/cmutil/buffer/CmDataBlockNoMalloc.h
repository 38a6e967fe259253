#pragma once
/// `CCmDataBlockNoMalloc`: a read cursor and a write cursor over a caller-supplied fixed
/// buffer. It never allocates and owns nothing; the buffer must outlive it.
///
/// The two cursors are independent: a read is bounded by the end of the buffer, not by
/// what has been written, so a read may return bytes that were never written. Callers
/// that want a queue keep their own count. One thread only.
///
/// ```
///   m_pBegin        m_pCurrentRead      m_pCurrentWrite           m_pEnd
///      |..................|....................|.......................|
/// ```

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

class CM_EXPORT CCmDataBlockNoMalloc {
 public:
  /// begin = read = write = `aStr`, end = `aStr` + `aLen`.
  CCmDataBlockNoMalloc(const char* aStr, unsigned int aLen);

  /// Copies min(`aCount`, bytes up to the end) from the read cursor and advances it;
  /// stores that number in `*aBytesRead` when given. `CM_ERROR_PARTIAL_DATA` when fewer
  /// than `aCount` bytes were left (the bytes that were there are still moved).
  /// Null `aDst`: `CM_ERROR_INVALID_ARG`; null or overrun cursor:
  /// `CM_ERROR_NOT_INITIALIZED` (both with an assertion).
  CmResult Read(void* aDst, unsigned int aCount, unsigned int* aBytesRead = nullptr);

  /// The mirror of `Read` with the write cursor. The caller's buffer is written through
  /// the pointer it passed in as `const char*`: pass writable memory.
  CmResult Write(const void* aSrc, unsigned int aCount, unsigned int* aBytesWritten = nullptr);

  const char* GetBegin() const { return m_pBegin; }
  const char* GetEnd() const { return m_pEnd; }
  const char* GetCurrentRead() const { return m_pCurrentRead; }
  const char* GetCurrentWrite() const { return m_pCurrentWrite; }

 private:
  const char* m_pBegin;
  const char* m_pEnd;
  const char* m_pCurrentRead;
  const char* m_pCurrentWrite;
};
