#pragma once
/// `CCmMessageBlock`: the chained buffer in which packets and frames travel. A chain is a
/// singly linked list of blocks; each block is a view onto a reference-counted
/// `CCmDataBlock` or onto caller-owned memory (`USER_MEMORY`):
///
/// ```
///   m_pBeginPtr      m_pReadPtr              m_pWritePtr            m_pEndPtr
///       |  consumed      |   readable (length)    |   space            |
///       v                v                        v                    v
///       [################|========================|....................]
///                         <- GetTopLevelLength() -> <- GetTopLevelSpace() ->
///
///   block --m_pNext--> block --m_pNext--> block --> null
/// ```
///
/// Invariant begin <= read <= write <= end (broken on purpose only by
/// `RewindChained` on chains, see there).
///
/// Ownership: blocks made with the constructors belong to their creator (stack or heap).
/// Blocks made by `DuplicateTopLevel`, `DuplicateChained`, `Disjoint` and
/// `CombineSingleBuffer` carry `DUPLICATED` and are freed with `DestroyChained` (or
/// `ReclaimGarbage`), never with `delete`. Storage lives while any block references its
/// data block; caller-owned storage must outlive every block over it.
///
/// Threads: a chain is used by one thread at a time. Only the data block's count is
/// atomic, so duplicates may travel to other threads.
///
/// Costs: duplication shares storage (one atomic increment per block) except for
/// caller-owned storage, which is copied. Chained operations walk the chain: O(blocks).

#include <sys/uio.h>

#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmString.h"

class CCmDataBlock;

/// True when none of the bits of `mask` is set in `flags`.
#ifndef CM_BIT_DISABLED
#define CM_BIT_DISABLED(flags, mask) (((flags) & (mask)) == 0)
#endif
#ifndef CM_BIT_ENABLED
#define CM_BIT_ENABLED(flags, mask) (((flags) & (mask)) != 0)
#endif

class CM_EXPORT CCmMessageBlock {
 public:
  typedef unsigned int DWORD;
  typedef unsigned long MFlag;

  enum {
    /// Storage is caller memory, not a data block (set by `SetData` on a caller buffer).
    USER_MEMORY = 0x1,
    /// Request to `SetData`: allocate a data block even though a buffer is given.
    /// Never stored.
    COPY_ON_SET = 0x2,
    /// Reads and read-pointer moves are refused.
    READ_LOCKED = 0x100,
    /// Writes and write-pointer moves are refused.
    WRITE_LOCKED = 0x200,
    /// The block object was allocated by a duplicate operation.
    DUPLICATED = 0x20000,
  };

  /// An empty block: no storage, no data block, flags 0.
  CCmMessageBlock();
  /// See `SetData(unsigned int, const char*, MFlag, unsigned int)`.
  explicit CCmMessageBlock(unsigned int aSize, const char* aData = nullptr, MFlag aFlag = 0,
                           unsigned int aAdvanceWrite = 0);
  /// See `SetData(CCmDataBlock*, MFlag, unsigned int)`.
  explicit CCmMessageBlock(CCmDataBlock* aDb, MFlag aFlag = 0, unsigned int aAdvanceWrite = 0);
  /// Releases the data block reference. With `m_bRtpChainedFlag` set, also destroys and
  /// deletes the next block (and so on down the chain).
  ~CCmMessageBlock();

  CCmMessageBlock(const CCmMessageBlock&) = delete;
  CCmMessageBlock& operator=(const CCmMessageBlock&) = delete;

  /// Gives a block without storage its span. `CM_ERROR_FAILURE` if it already has one.
  /// With `aData` and without `COPY_ON_SET`: the span is the caller's `aSize` bytes at
  /// `aData` (not copied, must outlive the block), flag `USER_MEMORY`. Otherwise a new
  /// data block of `aSize` bytes (none for 0), left uninitialised: `aData` is NOT
  /// copied. Read = write = begin, then the write pointer is advanced by
  /// `aAdvanceWrite`. `COPY_ON_SET` and the lock bits 0x100..0x8000 of `aFlag` are not
  /// stored.
  CmResult SetData(unsigned int aSize, const char* aData = nullptr, MFlag aFlag = 0, unsigned int aAdvanceWrite = 0);
  /// Gives a block without storage the payload of `aDb` (one more reference on it).
  /// Already has storage: warning trace and `CM_ERROR_FAILURE`. Flags 0x3 and 0xff00
  /// are not stored.
  CmResult SetData(CCmDataBlock* aDb, MFlag aFlag = 0, unsigned int aAdvanceWrite = 0);

  /// The read pointer, or null (with an assertion) when the block is read-locked.
  char* GetTopLevelReadPtr() const {
    CM_ASSERTE_RETURN(CM_BIT_DISABLED(m_Flag, READ_LOCKED), nullptr);
    return m_pReadPtr;
  }
  /// The write pointer, or null (with an assertion) when the block is write-locked.
  char* GetTopLevelWritePtr() const {
    CM_ASSERTE_RETURN(CM_BIT_DISABLED(m_Flag, WRITE_LOCKED), nullptr);
    return m_pWritePtr;
  }
  /// Moves the write pointer by `aStep`: `CM_ERROR_FAILURE` when write-locked,
  /// `CM_ERROR_INCOMPLETE` when the space is smaller than `aStep` (both with assertions).
  CmResult AdvanceTopLevelWritePtr(unsigned int aStep) {
    CM_ASSERTE_RETURN(CM_BIT_DISABLED(m_Flag, WRITE_LOCKED), CM_ERROR_FAILURE);
    CM_ASSERTE_RETURN((DWORD)(m_pEndPtr - m_pWritePtr) >= aStep, CM_ERROR_INCOMPLETE);
    m_pWritePtr += aStep;
    return CM_OK;
  }
  /// Moves the read pointer by `aStep`: `CM_ERROR_FAILURE` when read-locked,
  /// `CM_ERROR_INCOMPLETE` when fewer than `aStep` bytes are readable.
  CmResult AdvanceTopLevelReadPtr(unsigned int aStep) {
    CM_ASSERTE_RETURN(CM_BIT_DISABLED(m_Flag, READ_LOCKED), CM_ERROR_FAILURE);
    CM_ASSERTE_RETURN((DWORD)(m_pWritePtr - m_pReadPtr) >= aStep, CM_ERROR_INCOMPLETE);
    m_pReadPtr += aStep;
    return CM_OK;
  }
  /// Readable bytes of this block (write - read).
  unsigned int GetTopLevelLength() const { return (DWORD)(m_pWritePtr - m_pReadPtr); }
  /// Free bytes of this block (end - write).
  unsigned int GetTopLevelSpace() const { return (DWORD)(m_pEndPtr - m_pWritePtr); }
  /// Size of the whole storage span (end - begin).
  unsigned int GetTopLevelCapacity() const { return (DWORD)(m_pEndPtr - m_pBeginPtr); }
  char* GetTopLevelBeginPtr() const { return m_pBeginPtr; }
  /// Bytes already consumed (read - begin); no lock check.
  unsigned int GetTopLevelReadOffset() const { return (DWORD)(m_pReadPtr - m_pBeginPtr); }
  char* GetTopLevelEndPtr() const { return m_pEndPtr; }
  /// The shared storage, or null for caller memory. No reference is taken.
  CCmDataBlock* GetDataBlock() const { return m_pDataBlock; }
  CCmMessageBlock* GetNext() const { return m_pNext; }

  DWORD GetFlag() const { return m_Flag; }
  void LockReading() { m_Flag |= READ_LOCKED; }
  void UnLockReading() { m_Flag &= ~static_cast<DWORD>(READ_LOCKED); }
  void LockWriting() { m_Flag |= WRITE_LOCKED; }
  void UnLockWriting() { m_Flag &= ~static_cast<DWORD>(WRITE_LOCKED); }

  /// When set, the destructor also destroys the next block and `ReclaimGarbage`
  /// refuses to run. Set by the media engine for chains it builds itself.
  void SetRtpChainedFlag(bool aFlag) { m_bRtpChainedFlag = aFlag; }
  bool GetRtpChainedFlag() const { return m_bRtpChainedFlag; }

  /// Makes the span at least `aCapacity` bytes: a new data block of exactly that size
  /// receives the whole old span, read and write offsets are kept. Clears
  /// `COPY_ON_SET` and the lock bits but KEEPS `USER_MEMORY`, so such a block is still
  /// copied (not shared) when duplicated.
  CmResult ReserveCapacity(unsigned int aCapacity);
  /// Makes the space after the write pointer at least `aSpace` bytes.
  CmResult ReserveSpace(unsigned int aSpace);

  /// Copies `aCount` readable bytes from this block on into `aDst` (null: only
  /// counts), consuming them when `aAdvance`, crossing block boundaries. Reports the
  /// bytes obtained in `*aBytesRead`; `CM_ERROR_PARTIAL_DATA` when the chain ran out,
  /// `CM_ERROR_FAILURE` (assertion) at a read-locked block.
  CmResult Read(void* aDst, unsigned int aCount, unsigned int* aBytesRead = nullptr, bool aAdvance = true);
  /// Fills the space of this block, then of the following ones, from `aSrc` (null: only
  /// moves the write pointers). `CM_ERROR_PARTIAL_DATA` when the chain ran out,
  /// `CM_ERROR_FAILURE` (assertion) at a write-locked block.
  CmResult Write(const void* aSrc, unsigned int aCount, unsigned int* aBytesWritten = nullptr);
  /// `Read(NULL, aStep, aBytes, true)`.
  CmResult AdvanceChainedReadPtr(unsigned int aStep, unsigned int* aBytes = nullptr);
  /// Moves write pointers over blocks that were never read from (read == begin),
  /// filling each block's space in turn. A block whose read pointer has moved stops the
  /// walk with an error trace. `CM_OK` for the full step, else `CM_ERROR_PARTIAL_DATA`
  /// (also for a step of 0).
  CmResult AdvanceChainedWritePtr(unsigned int aStep, unsigned int* aBytes = nullptr);

  /// Readable bytes of the whole chain.
  unsigned int GetChainedLength() const;
  /// Free bytes of the whole chain.
  unsigned int GetChainedSpace() const;
  /// Links `aMb` behind the last block. A block already in the chain is refused with
  /// the assertion "aMb != pMbMove" (a cycle would follow).
  void Append(CCmMessageBlock* aMb);
  /// One iovec per non-empty block (read pointer, length), at most `aMax`; returns the
  /// number filled. The entries point into the chain's storage.
  unsigned int FillIov(iovec* aIov, unsigned int aMax) const;
  /// Every block: read pointer = its own begin, write pointer = the FIRST block's begin.
  /// On a single block this empties it for rewriting. On a chain the later blocks'
  /// write pointers land in the first block's storage and their lengths mean nothing
  /// until they are set again: this is the long-standing behaviour and is kept.
  void RewindChained();
  /// Copies `nPeekLen` bytes starting `nOffset` bytes into the readable data, without
  /// moving any pointer. 0 bytes: `CM_OK`. Null buffer or a range beyond the chain:
  /// assertion and `CM_ERROR_FAILURE`.
  CmResult Peek(unsigned char* pPeekBuffer, unsigned int nPeekLen, unsigned int nOffset = 0);
  /// Overwrites readable bytes in place, same addressing and results as `Peek`.
  CmResult Update(const unsigned char* pSrc, unsigned int nSrcLen, unsigned int nOffset = 0);
  /// All readable bytes of the chain in one string (capacity total + 1 reserved).
  CCmString FlattenChained();

  /// A new `DUPLICATED` block over the same span with the same read and write offsets
  /// and no successor. Shares the data block (one more reference); caller memory
  /// (`USER_MEMORY`) is copied into a new data block instead. Null on allocation failure.
  CCmMessageBlock* DuplicateTopLevel() const;
  /// `DuplicateTopLevel` of every block, linked in order. Free with `DestroyChained`.
  CCmMessageBlock* DuplicateChained() const;
  /// Splits the chain after `aStart` readable bytes and returns the second part (null
  /// when nothing follows or `aStart` is beyond the chain). A cut inside a block
  /// duplicates that block; blocks of the returned part that are not `DUPLICATED` are
  /// replaced by duplicates (error trace for each), so `DestroyChained` frees the whole
  /// returned chain. This block keeps the first part.
  CCmMessageBlock* Disjoint(unsigned int aStart);
  /// All readable bytes in one `DUPLICATED` block (or `DuplicateChained` when the head
  /// already holds everything). Free with `DestroyChained`.
  CCmMessageBlock* CombineSingleBuffer();

  /// Deletes every `DUPLICATED` block of the chain; other blocks belong to their
  /// creators and are left alone. Do not use the chain afterwards.
  void DestroyChained();
  /// Deletes the leading empty `DUPLICATED` blocks (skipping empty ones that are not)
  /// and returns the first non-empty block, or null. Refused (error trace, null) when
  /// `m_bRtpChainedFlag` is set.
  CCmMessageBlock* ReclaimGarbage();

 private:
  /// Shares or copies this block's span into `aDup` (which has no storage yet).
  CmResult DuplicateInto(CCmMessageBlock& aDup) const;

  CCmMessageBlock* m_pNext;
  CCmDataBlock* m_pDataBlock;
  char* m_pReadPtr;
  char* m_pWritePtr;
  char* m_pBeginPtr;
  char* m_pEndPtr;
  DWORD m_Flag;
  bool m_bRtpChainedFlag;
};
