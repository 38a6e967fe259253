#pragma once
/// Parameter lists: typed values (`CCmMetaData`) keyed by a non-zero 32-bit index,
/// serialisable into a message block and parsed back. The library's generic container
/// for option sets passed between components and across the wire.
///
/// Wire form (big-endian): a 4-byte entry count, then per entry in ascending index the
/// 4-byte index and the value's tag and bytes. Index 1 = int 5 and index 7 = "x":
/// 00 00 00 02 | 00 00 00 01 02 00 00 00 05 | 00 00 00 07 07 00 01 78.
///
/// Ownership: `CCmParameterByIndex` is reference counted (starts at 0). The list takes
/// one reference on every entry it holds and releases it when the entry is replaced,
/// removed or the list dies; an entry added and then dropped by the list is deleted.
/// Entry counts are atomic so entries may be shared; a list belongs to one thread.
///
/// ```
///   CCmParameterList list;
///   list.AddParameter(new CCmParameterByIndex(1, 5));
///   list.AddParameter(new CCmParameterByIndex(7, "x"));
///   CCmMessageBlock mb(64);
///   CCmByteStreamNetwork os(mb);
///   list.StreamTo(os);
/// ```

#include <map>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmReferenceControl.h"
#include "cmutil/buffer/CmMetaData.h"

class CM_EXPORT CCmParameterByIndex : public CCmReferenceControlT<CCmMutexThread> {
 public:
  /// An entry with an unset value. Index 0 is invalid for streaming.
  explicit CCmParameterByIndex(unsigned int aIndex);
  CCmParameterByIndex(unsigned int aIndex, char aValue);
  CCmParameterByIndex(unsigned int aIndex, short aValue);
  CCmParameterByIndex(unsigned int aIndex, int aValue);
  CCmParameterByIndex(unsigned int aIndex, long aValue);
  CCmParameterByIndex(unsigned int aIndex, unsigned short aValue);
  CCmParameterByIndex(unsigned int aIndex, unsigned int aValue);
  CCmParameterByIndex(unsigned int aIndex, float aValue);
  CCmParameterByIndex(unsigned int aIndex, const char* aValue);
  CCmParameterByIndex(unsigned int aIndex, const unsigned char* aRaw, unsigned int aLen);

  unsigned int GetIndex() const { return m_dwIndex; }
  const CCmMetaData& GetValue() const { return m_Value; }
  CCmMetaData& GetValue() { return m_Value; }

  /// The value's stream length + 4. Index 0: assertion, `CM_ERROR_FAILURE`.
  CmResult GetStreamLength(unsigned int& aLen) const;
  /// The index, then the value. Index 0: assertion "m_dwIndex != 0", `CM_ERROR_FAILURE`.
  CmResult StreamTo(CCmByteStreamNetwork& aStream) const;
  /// Reads the index (any value) and the value; the value's result.
  CmResult StreamFrom(CCmByteStreamNetwork& aStream);

 protected:
  ~CCmParameterByIndex() override;

 private:
  unsigned int m_dwIndex;
  CCmMetaData m_Value;
};

class CM_EXPORT CCmParameterList {
 public:
  typedef std::map<unsigned int, CCmParameterByIndex*> ParameterMap;

  CCmParameterList();
  /// Releases every entry.
  virtual ~CCmParameterList();

  CCmParameterList(const CCmParameterList&) = delete;
  CCmParameterList& operator=(const CCmParameterList&) = delete;

  /// Takes a reference on `pParam` and stores it under its index, releasing an entry
  /// already there. Null: assertion "pParam", `CM_ERROR_NULL_POINTER`.
  CmResult AddParameter(CCmParameterByIndex* pParam);
  /// The entry under `aIndex` (no reference taken), or `CM_ERROR_NOT_FOUND` with
  /// `aParam` untouched.
  CmResult GetParameter(unsigned int aIndex, const CCmParameterByIndex*& aParam) const;
  /// Releases and removes the entry; `CM_ERROR_NOT_FOUND` if absent.
  CmResult RemoveParameter(unsigned int aIndex);
  /// Releases every entry in index order and empties the list.
  void Clear();
  size_t GetCount() const { return m_Params.size(); }
  const ParameterMap& GetParameters() const { return m_Params; }

  /// 4 plus the entries' stream lengths; the first failing entry's code.
  CmResult GetStreamLength(unsigned int& aLen) const;
  /// Count, then the entries in ascending index. An entry that fails gives the
  /// assertion "IS_KEL_OK(ret)" and its code.
  CmResult StreamTo(CCmByteStreamNetwork& aStream) const;
  /// Reads a count and that many entries, adding each to the list (replacing entries
  /// of the same index; the list is NOT cleared first). On a failing entry returns its
  /// code and keeps the entries parsed so far.
  CmResult StreamFrom(CCmByteStreamNetwork& aStream);

 private:
  ParameterMap m_Params;
};
