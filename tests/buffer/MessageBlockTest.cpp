#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cmutil/buffer/CmDataBlock.h"
#include "cmutil/buffer/CmMessageBlock.h"
#include "common/CmTraceCapture.h"

namespace {

/// Two caller-memory blocks, 10 readable bytes then 5: "0123456789" + "abcde".
struct TwoBlocks {
  char a[10];
  char b[5];
  CCmMessageBlock first;
  CCmMessageBlock second;
  TwoBlocks() {
    memcpy(a, "0123456789", 10);
    memcpy(b, "abcde", 5);
    first.SetData(10, a, 0, 10);
    second.SetData(5, b, 0, 5);
    first.Append(&second);
  }
};

/// Three data-block blocks with the given contents and some spare space each.
struct ThreeDataBlocks {
  CCmMessageBlock m1{8};
  CCmMessageBlock m2{8};
  CCmMessageBlock m3{8};
  ThreeDataBlocks(const char* s1, const char* s2, const char* s3) {
    m1.Write(s1, static_cast<unsigned int>(strlen(s1)));
    m2.Write(s2, static_cast<unsigned int>(strlen(s2)));
    m3.Write(s3, static_cast<unsigned int>(strlen(s3)));
    m1.Append(&m2);
    m2.Append(&m3);
  }
};

std::string Flat(CCmMessageBlock* mb) { return mb ? mb->FlattenChained() : std::string("<null>"); }

TEST(MessageBlock, SetDataOnCallerMemoryAndOnANewDataBlock) {
  char buf[16] = {};
  CCmMessageBlock user(16, buf, CCmMessageBlock::READ_LOCKED | 0x10, 4);
  EXPECT_EQ(buf, user.GetTopLevelBeginPtr());
  EXPECT_EQ(nullptr, user.GetDataBlock());
  EXPECT_EQ(static_cast<unsigned int>(CCmMessageBlock::USER_MEMORY | 0x10), user.GetFlag());  // lock not stored
  EXPECT_EQ(4u, user.GetTopLevelLength());
  EXPECT_EQ(12u, user.GetTopLevelSpace());

  const char text[] = "not copied";
  CCmMessageBlock copy(10, text, CCmMessageBlock::COPY_ON_SET | CCmMessageBlock::USER_MEMORY);
  ASSERT_NE(nullptr, copy.GetDataBlock());
  EXPECT_NE(text, copy.GetTopLevelBeginPtr());
  EXPECT_EQ(0u, copy.GetFlag());  // 0x1 and 0x2 both dropped
  EXPECT_EQ(10u, copy.GetTopLevelSpace());
  EXPECT_EQ(1u, copy.GetDataBlock()->GetReference());

  CCmMessageBlock none(0u);
  EXPECT_EQ(nullptr, none.GetDataBlock());
  EXPECT_EQ(nullptr, none.GetTopLevelBeginPtr());
}

TEST(MessageBlock, SetDataTwiceIsRefusedAndChangesNothing) {
  CmTraceCapture cap;
  CCmMessageBlock mb(8u, nullptr, 0, 3);
  char* begin = mb.GetTopLevelBeginPtr();
  char other[4];
  EXPECT_EQ(CM_ERROR_FAILURE, mb.SetData(4, other, 0, 0));
  EXPECT_EQ(begin, mb.GetTopLevelBeginPtr());
  EXPECT_EQ(3u, mb.GetTopLevelLength());

  CCmDataBlock* db = nullptr;
  ASSERT_EQ(CM_OK, CCmDataBlock::CreateInstance(db, 4, nullptr));
  EXPECT_EQ(CM_ERROR_FAILURE, mb.SetData(db, 0, 0));
  EXPECT_TRUE(cap.contains(1, "CCmMessageBlock::SetData failed, m_pBeginPtr is not NULL [this="));
  EXPECT_EQ(1u, db->GetReference());
  db->ReleaseReference();
}

TEST(MessageBlock, DataBlockFormSharesAndClearsUserAndLockBits) {
  CCmDataBlock* db = nullptr;
  ASSERT_EQ(CM_OK, CCmDataBlock::CreateInstance(db, 20, "abcdefghijklmnopqrst"));
  {
    CCmMessageBlock mb(db, CCmMessageBlock::USER_MEMORY | CCmMessageBlock::WRITE_LOCKED | 0x40, 5);
    EXPECT_EQ(2u, db->GetReference());
    EXPECT_EQ(0x40u, mb.GetFlag());
    EXPECT_EQ(db->GetBasePtr(), mb.GetTopLevelReadPtr());
    EXPECT_EQ("abcde", mb.FlattenChained());
  }
  EXPECT_EQ(1u, db->GetReference());
  db->ReleaseReference();
}

TEST(MessageBlock, AdvanceTopLevelWritePtrPastTheEnd) {
  CmTraceCapture cap;
  CCmMessageBlock mb(4u);
  EXPECT_EQ(CM_OK, mb.AdvanceTopLevelWritePtr(3));
  EXPECT_EQ(CM_ERROR_INCOMPLETE, mb.AdvanceTopLevelWritePtr(2));
  EXPECT_TRUE(cap.contains(0, "CmMessageBlock.h:"));
  EXPECT_TRUE(cap.contains(0, "Assert failed: (DWORD)(m_pEndPtr - m_pWritePtr) >= aStep"));
  EXPECT_EQ(3u, mb.GetTopLevelLength());
  // The constructor's advance goes through the same check.
  cap.clear();
  CCmMessageBlock over(4u, nullptr, 0, 5);
  EXPECT_TRUE(cap.contains("(DWORD)(m_pEndPtr - m_pWritePtr) >= aStep"));
  EXPECT_EQ(0u, over.GetTopLevelLength());
}

TEST(MessageBlock, LockFlags) {
  CmTraceCapture cap;
  CCmMessageBlock mb(8u, nullptr, 0, 4);
  mb.LockReading();
  EXPECT_EQ(nullptr, mb.GetTopLevelReadPtr());
  EXPECT_TRUE(cap.contains("Assert failed: CM_BIT_DISABLED(m_Flag, READ_LOCKED)"));
  char out[4];
  unsigned int n = 99;
  EXPECT_EQ(CM_ERROR_FAILURE, mb.Read(out, 2, &n));
  EXPECT_EQ(0u, n);
  EXPECT_EQ(CM_ERROR_FAILURE, mb.AdvanceChainedReadPtr(1));
  EXPECT_EQ(4u, mb.GetTopLevelLength());
  EXPECT_NE(nullptr, mb.GetTopLevelWritePtr());  // writing is still allowed
  EXPECT_EQ(CM_OK, mb.Write("xy", 2));
  mb.UnLockReading();
  EXPECT_NE(nullptr, mb.GetTopLevelReadPtr());

  cap.clear();
  mb.LockWriting();
  EXPECT_EQ(nullptr, mb.GetTopLevelWritePtr());
  EXPECT_TRUE(cap.contains("Assert failed: CM_BIT_DISABLED(m_Flag, WRITE_LOCKED)"));
  EXPECT_EQ(CM_ERROR_FAILURE, mb.Write("z", 1, &n));
  EXPECT_EQ(0u, n);
  EXPECT_EQ(CM_ERROR_FAILURE, mb.AdvanceTopLevelWritePtr(1));
  EXPECT_EQ(CM_ERROR_FAILURE, mb.AdvanceChainedWritePtr(1));
  EXPECT_EQ(6u, mb.GetTopLevelLength());
  EXPECT_EQ(CM_OK, mb.Read(out, 2));  // reading is still allowed

  // A lock on a later block stops a chained read there.
  CCmMessageBlock a(4u, nullptr, 0, 2), b(4u, nullptr, 0, 2);
  a.Append(&b);
  b.LockReading();
  EXPECT_EQ(CM_ERROR_FAILURE, a.Read(out, 4, &n));
  EXPECT_EQ(2u, n);
}

TEST(MessageBlock, ChainedReadAcrossBlocks) {
  TwoBlocks t;
  EXPECT_EQ(15u, t.first.GetChainedLength());
  char out[32] = {};
  unsigned int n = 0;
  EXPECT_EQ(CM_OK, t.first.Read(out, 12, &n));
  EXPECT_EQ(12u, n);
  EXPECT_EQ(0, memcmp(out, "0123456789ab", 12));
  EXPECT_EQ(0u, t.first.GetTopLevelLength());
  EXPECT_EQ(3u, t.second.GetTopLevelLength());
  EXPECT_EQ(CM_ERROR_PARTIAL_DATA, t.first.Read(out, 20, &n));
  EXPECT_EQ(3u, n);
  EXPECT_EQ(0, memcmp(out, "cde", 3));
}

TEST(MessageBlock, ChainedWriteFillsSpaceBlockByBlock) {
  CCmMessageBlock a(4u), b(3u), c(5u);
  a.Append(&b);
  a.Append(&c);
  EXPECT_EQ(12u, a.GetChainedSpace());
  unsigned int n = 0;
  EXPECT_EQ(CM_OK, a.Write("abcdefghi", 9, &n));
  EXPECT_EQ(9u, n);
  EXPECT_EQ(4u, a.GetTopLevelLength());
  EXPECT_EQ(3u, b.GetTopLevelLength());
  EXPECT_EQ(2u, c.GetTopLevelLength());
  EXPECT_EQ("abcdefghi", a.FlattenChained());
  EXPECT_EQ(CM_ERROR_PARTIAL_DATA, a.Write("0123456", 7, &n));
  EXPECT_EQ(3u, n);
  EXPECT_EQ("abcdefghi012", a.FlattenChained());
  EXPECT_EQ(0u, a.GetChainedSpace());

  CCmMessageBlock d(6u);
  EXPECT_EQ(CM_OK, d.Write(nullptr, 4, &n));  // null source only advances
  EXPECT_EQ(4u, d.GetTopLevelLength());
}

TEST(MessageBlock, AdvanceChainedWritePtrOnlyOverUnreadBlocks) {
  CmTraceCapture cap;
  CCmMessageBlock a(4u), b(4u), c(4u);
  a.Append(&b);
  b.Append(&c);
  unsigned int n = 99;
  EXPECT_EQ(CM_ERROR_PARTIAL_DATA, a.AdvanceChainedWritePtr(0, &n));
  EXPECT_EQ(0u, n);
  EXPECT_EQ(CM_OK, a.AdvanceChainedWritePtr(6, &n));
  EXPECT_EQ(6u, n);
  EXPECT_EQ(4u, a.GetTopLevelLength());
  EXPECT_EQ(2u, b.GetTopLevelLength());

  // b has been read from: the walk stops there with the trace.
  b.AdvanceTopLevelReadPtr(1);
  CCmMessageBlock x(4u), y(4u);
  x.Append(&b);
  EXPECT_EQ(CM_ERROR_PARTIAL_DATA, x.AdvanceChainedWritePtr(10, &n));
  EXPECT_EQ(4u, n);
  EXPECT_TRUE(cap.contains(0, "CCmMessageBlock::AdvanceChainedWritePtr, can't advance. m_pBeginPtr="));
  EXPECT_TRUE(cap.contains(0, " m_pReadPtr="));
  EXPECT_EQ(1u, b.GetTopLevelLength());
}

TEST(MessageBlock, AdvanceChainedWritePtrStopsAtALaterWriteLockedBlock) {
  CCmMessageBlock a(4u, nullptr, 0, 0);
  CCmMessageBlock b(4u, nullptr, 0, 0);
  a.Append(&b);
  b.LockWriting();
  CmTraceCapture cap;
  unsigned int n = 99;
  EXPECT_EQ(CM_ERROR_FAILURE, a.AdvanceChainedWritePtr(6, &n));
  EXPECT_TRUE(cap.contains("Assert failed: CM_BIT_DISABLED(m_Flag, WRITE_LOCKED)"));
  EXPECT_EQ(4u, n);  // the first block was filled before the locked one was reached
  EXPECT_EQ(4u, a.GetTopLevelLength());
  EXPECT_EQ(0u, b.GetTopLevelLength());
  b.UnLockWriting();
}

TEST(MessageBlock, FillIovSkipsEmptyBlocksAndHonoursTheMaximum) {
  ThreeDataBlocks t("ab", "", "cde");
  iovec iov[4];
  EXPECT_EQ(2u, t.m1.FillIov(iov, 4));
  EXPECT_EQ(t.m1.GetTopLevelReadPtr(), iov[0].iov_base);
  EXPECT_EQ(2u, iov[0].iov_len);
  EXPECT_EQ(t.m3.GetTopLevelReadPtr(), iov[1].iov_base);
  EXPECT_EQ(3u, iov[1].iov_len);

  ThreeDataBlocks full("a", "b", "c");
  EXPECT_EQ(1u, full.m1.FillIov(iov, 1));
  EXPECT_EQ(1u, iov[0].iov_len);
  EXPECT_EQ(0u, full.m1.FillIov(iov, 0));
}

TEST(MessageBlock, RewindChainedPutsWritePointersAtTheFirstBegin) {
  CCmMessageBlock single(8u, nullptr, 0, 6);
  single.AdvanceTopLevelReadPtr(2);
  single.RewindChained();
  EXPECT_EQ(0u, single.GetTopLevelLength());
  EXPECT_EQ(8u, single.GetTopLevelSpace());

  ThreeDataBlocks t("abc", "de", "f");
  t.m1.AdvanceTopLevelReadPtr(1);
  t.m2.AdvanceTopLevelReadPtr(1);
  t.m1.RewindChained();
  char* firstBegin = t.m1.GetTopLevelBeginPtr();
  EXPECT_EQ(firstBegin, t.m1.GetTopLevelReadPtr());
  EXPECT_EQ(firstBegin, t.m1.GetTopLevelWritePtr());
  EXPECT_EQ(t.m2.GetTopLevelBeginPtr(), t.m2.GetTopLevelReadPtr());
  EXPECT_EQ(firstBegin, t.m2.GetTopLevelWritePtr());  // in the first block's storage
  EXPECT_EQ(t.m3.GetTopLevelBeginPtr(), t.m3.GetTopLevelReadPtr());
  EXPECT_EQ(firstBegin, t.m3.GetTopLevelWritePtr());
}

TEST(MessageBlock, PeekAndUpdateAcrossBlocks) {
  CmTraceCapture cap;
  TwoBlocks t;
  t.first.AdvanceTopLevelReadPtr(2);  // "23456789" + "abcde"
  unsigned char out[8] = {};
  EXPECT_EQ(CM_OK, t.first.Peek(out, 5, 6));
  EXPECT_EQ(0, memcmp(out, "89abc", 5));
  EXPECT_EQ(13u, t.first.GetChainedLength());
  EXPECT_EQ(CM_OK, t.first.Peek(out, 3, 10));
  EXPECT_EQ(0, memcmp(out, "cde", 3));
  EXPECT_EQ(CM_OK, t.first.Peek(nullptr, 0, 99));

  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Peek(out, 4, 10));
  EXPECT_TRUE(cap.contains("Assert failed: nPeekLen + nOffset <= this->GetChainedLength()"));
  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Peek(out, 2, 0xFFFFFFFFu));  // no wrap-around
  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Peek(nullptr, 1, 0));
  EXPECT_TRUE(cap.contains("Assert failed: pPeekBuffer"));

  const unsigned char patch[] = {'X', 'Y', 'Z'};
  EXPECT_EQ(CM_OK, t.first.Update(patch, 3, 7));
  EXPECT_EQ("2345678XYZcde", t.first.FlattenChained());
  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Update(patch, 3, 11));
  EXPECT_TRUE(cap.contains("Assert failed: nSrcLen + nOffset <= this->GetChainedLength()"));
  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Update(nullptr, 1, 0));
  EXPECT_TRUE(cap.contains("Assert failed: pSrc"));
  EXPECT_EQ("2345678XYZcde", t.first.FlattenChained());
}

TEST(MessageBlock, FlattenChained) {
  ThreeDataBlocks t("abc", "", "defg");
  CCmString s = t.m1.FlattenChained();
  EXPECT_EQ("abcdefg", s);
  EXPECT_GE(s.capacity(), 8u);
}

TEST(MessageBlock, DuplicateSharesDataBlocksAndCopiesCallerMemory) {
  CCmMessageBlock shared(8u, nullptr, 0x40, 0);
  shared.Write("abcdef", 6);
  shared.AdvanceTopLevelReadPtr(1);
  shared.LockWriting();
  CCmMessageBlock* dup = shared.DuplicateTopLevel();
  ASSERT_NE(nullptr, dup);
  EXPECT_EQ(shared.GetDataBlock(), dup->GetDataBlock());
  EXPECT_EQ(2u, shared.GetDataBlock()->GetReference());
  EXPECT_EQ(static_cast<unsigned int>(CCmMessageBlock::DUPLICATED | 0x40), dup->GetFlag());
  EXPECT_EQ("bcdef", dup->FlattenChained());
  EXPECT_EQ(nullptr, dup->GetNext());
  dup->DestroyChained();
  EXPECT_EQ(1u, shared.GetDataBlock()->GetReference());

  char user[6];
  memcpy(user, "uvwxyz", 6);
  CCmMessageBlock mine(6, user, 0, 6);
  mine.AdvanceTopLevelReadPtr(2);
  dup = mine.DuplicateTopLevel();
  ASSERT_NE(nullptr, dup);
  ASSERT_NE(nullptr, dup->GetDataBlock());
  EXPECT_NE(user, dup->GetTopLevelBeginPtr());
  EXPECT_EQ(static_cast<unsigned int>(CCmMessageBlock::DUPLICATED), dup->GetFlag());
  EXPECT_EQ("wxyz", dup->FlattenChained());
  user[3] = '!';
  EXPECT_EQ("wxyz", dup->FlattenChained());  // a copy, not a view
  dup->DestroyChained();
}

TEST(MessageBlock, ReserveCapacityKeepsOffsetsAndUserMemoryFlag) {
  char user[4];
  memcpy(user, "abcd", 4);
  CCmMessageBlock mb(4, user, 0, 4);
  mb.AdvanceTopLevelReadPtr(1);
  EXPECT_EQ(CM_OK, mb.ReserveCapacity(2));  // already big enough: nothing
  EXPECT_EQ(user, mb.GetTopLevelBeginPtr());
  EXPECT_EQ(CM_OK, mb.ReserveCapacity(16));
  ASSERT_NE(nullptr, mb.GetDataBlock());
  EXPECT_NE(user, mb.GetTopLevelBeginPtr());
  EXPECT_EQ(16u, mb.GetTopLevelCapacity());
  EXPECT_EQ(1u, mb.GetTopLevelReadOffset());
  EXPECT_EQ("bcd", mb.FlattenChained());
  EXPECT_EQ(12u, mb.GetTopLevelSpace());
  EXPECT_TRUE(CM_BIT_ENABLED(mb.GetFlag(), CCmMessageBlock::USER_MEMORY));

  // Because USER_MEMORY stayed, a duplicate copies instead of sharing.
  CCmMessageBlock* dup = mb.DuplicateTopLevel();
  ASSERT_NE(nullptr, dup);
  EXPECT_NE(mb.GetDataBlock(), dup->GetDataBlock());
  EXPECT_EQ(1u, mb.GetDataBlock()->GetReference());
  EXPECT_EQ("bcd", dup->FlattenChained());
  dup->DestroyChained();

  // ReserveSpace grows from the write offset.
  CCmMessageBlock small(8u, nullptr, 0, 6);
  EXPECT_EQ(CM_OK, small.ReserveSpace(2));
  EXPECT_EQ(8u, small.GetTopLevelCapacity());
  EXPECT_EQ(CM_OK, small.ReserveSpace(10));
  EXPECT_EQ(16u, small.GetTopLevelCapacity());
  EXPECT_EQ(6u, small.GetTopLevelLength());

  // Lock bits are cleared by a reallocation.
  small.LockReading();
  EXPECT_EQ(CM_OK, small.ReserveCapacity(32));
  EXPECT_TRUE(CM_BIT_DISABLED(small.GetFlag(), CCmMessageBlock::READ_LOCKED));
}

TEST(MessageBlock, DisjointAtABlockBoundary) {
  TwoBlocks t;
  CmTraceCapture cap;
  CCmMessageBlock* rest = t.first.Disjoint(10);
  ASSERT_NE(nullptr, rest);
  // The second block is not DUPLICATED, so it is replaced by a duplicate, with the trace.
  EXPECT_NE(&t.second, rest);
  EXPECT_TRUE(cap.contains(
      0, "CCmMessageBlock::Disjoint, there are not DUPLICATED blocks behind the disjointed block. [this="));
  EXPECT_EQ("abcde", Flat(rest));
  EXPECT_EQ(nullptr, t.first.GetNext());
  EXPECT_EQ("0123456789", t.first.FlattenChained());
  rest->DestroyChained();

  TwoBlocks u;
  EXPECT_EQ(nullptr, u.first.Disjoint(15));  // at the very end: nothing follows
  EXPECT_EQ(nullptr, u.first.Disjoint(16));  // beyond the chain
  EXPECT_EQ(15u, u.first.GetChainedLength());
}

TEST(MessageBlock, DisjointInsideABlock) {
  TwoBlocks t;
  CmTraceCapture cap;
  CCmMessageBlock* rest = t.first.Disjoint(4);
  ASSERT_NE(nullptr, rest);
  EXPECT_EQ(6u, rest->GetTopLevelLength());
  EXPECT_TRUE(CM_BIT_ENABLED(rest->GetFlag(), CCmMessageBlock::DUPLICATED));
  ASSERT_NE(nullptr, rest->GetNext());
  EXPECT_NE(&t.second, rest->GetNext());  // a duplicate of the second block
  EXPECT_EQ(1u, cap.count("there are not DUPLICATED blocks"));
  EXPECT_EQ("456789abcde", Flat(rest));
  EXPECT_EQ("0123", t.first.FlattenChained());
  EXPECT_EQ(nullptr, t.first.GetNext());
  rest->DestroyChained();
}

TEST(MessageBlock, DisjointLeavesTheCallersLinksAlone) {
  // a -> b (owns c through the flag) -> c; the cut falls at a's end.
  CCmMessageBlock a(4u, nullptr, 0, 4);
  CCmMessageBlock* b = new CCmMessageBlock(4u, nullptr, 0, 4);
  CCmMessageBlock* c = new CCmMessageBlock(4u, nullptr, 0, 4);
  a.Append(b);
  b->Append(c);
  b->SetRtpChainedFlag(true);
  CmTraceCapture cap;
  CCmMessageBlock* rest = a.Disjoint(4);
  ASSERT_NE(nullptr, rest);
  EXPECT_EQ(2u, cap.count("there are not DUPLICATED blocks"));
  EXPECT_NE(b, rest);
  ASSERT_NE(nullptr, rest->GetNext());
  EXPECT_NE(c, rest->GetNext());
  EXPECT_EQ(nullptr, a.GetNext());
  EXPECT_EQ(c, b->GetNext());  // b still owns c
  EXPECT_EQ(2u, c->GetDataBlock()->GetReference());
  rest->DestroyChained();
  EXPECT_EQ(1u, c->GetDataBlock()->GetReference());
  delete b;  // takes c with it; LeakSanitizer reports c otherwise
}

TEST(MessageBlock, DisjointAtZeroBehindAnEmptyFirstBlock) {
  CCmMessageBlock empty(4u, nullptr, 0, 0);
  CCmMessageBlock b(4u, nullptr, 0, 0);
  CCmMessageBlock c(4u, nullptr, 0, 0);
  b.Write("abc", 3);
  c.Write("de", 2);
  empty.Append(&b);
  b.Append(&c);
  CmTraceCapture cap;
  CCmMessageBlock* rest = empty.Disjoint(0);
  ASSERT_NE(nullptr, rest);
  EXPECT_EQ(2u, cap.count("there are not DUPLICATED blocks"));
  EXPECT_EQ("abcde", Flat(rest));
  EXPECT_NE(&b, rest);
  EXPECT_EQ(nullptr, empty.GetNext());
  EXPECT_EQ(&c, b.GetNext());  // the originals keep their chain
  EXPECT_EQ("abcde", b.FlattenChained());
  EXPECT_EQ(2u, b.GetDataBlock()->GetReference());
  rest->DestroyChained();
  EXPECT_EQ(1u, b.GetDataBlock()->GetReference());
  EXPECT_EQ(1u, c.GetDataBlock()->GetReference());
}

TEST(MessageBlock, DisjointOfDuplicatesSharesStorage) {
  ThreeDataBlocks t("abcd", "efgh", "ijkl");
  CCmMessageBlock* dup = t.m1.DuplicateChained();
  ASSERT_NE(nullptr, dup);
  CmTraceCapture cap;
  CCmMessageBlock* rest = dup->Disjoint(6);
  ASSERT_NE(nullptr, rest);
  EXPECT_EQ(0u, cap.count("there are not DUPLICATED blocks"));  // all duplicates already
  EXPECT_EQ("abcdef", dup->FlattenChained());
  EXPECT_EQ("ghijkl", Flat(rest));
  EXPECT_EQ(t.m2.GetDataBlock(), rest->GetDataBlock());
  EXPECT_EQ(3u, t.m2.GetDataBlock()->GetReference());  // m2, its duplicate and the split-off half
  rest->DestroyChained();
  dup->DestroyChained();
  EXPECT_EQ(1u, t.m1.GetDataBlock()->GetReference());
  EXPECT_EQ(1u, t.m2.GetDataBlock()->GetReference());
  EXPECT_EQ(1u, t.m3.GetDataBlock()->GetReference());
  EXPECT_EQ("abcdefghijkl", t.m1.FlattenChained());  // the originals are untouched
}

TEST(MessageBlock, CombineSingleBuffer) {
  ThreeDataBlocks t("abc", "de", "fgh");
  CCmMessageBlock* one = t.m1.CombineSingleBuffer();
  ASSERT_NE(nullptr, one);
  EXPECT_EQ(nullptr, one->GetNext());
  EXPECT_EQ("abcdefgh", one->FlattenChained());
  EXPECT_TRUE(CM_BIT_ENABLED(one->GetFlag(), CCmMessageBlock::DUPLICATED));
  EXPECT_EQ(1u, one->GetDataBlock()->GetReference());  // the temporary block let go
  one->DestroyChained();

  // The head holds everything: a plain duplicate of the chain.
  ThreeDataBlocks h("abcdefgh", "", "");
  CCmMessageBlock* dup = h.m1.CombineSingleBuffer();
  ASSERT_NE(nullptr, dup);
  EXPECT_EQ(h.m1.GetDataBlock(), dup->GetDataBlock());
  EXPECT_EQ("abcdefgh", dup->FlattenChained());
  dup->DestroyChained();
}

TEST(MessageBlock, DestroyChainedDeletesOnlyDuplicates) {
  CCmMessageBlock owned(4u, nullptr, 0, 4);
  CCmMessageBlock* d1 = owned.DuplicateTopLevel();
  CCmMessageBlock* d2 = owned.DuplicateTopLevel();
  d1->Append(&owned);
  owned.Append(d2);
  EXPECT_EQ(3u, owned.GetDataBlock()->GetReference());
  d1->DestroyChained();  // deletes d1 and d2, leaves `owned` alone (ASan checks)
  EXPECT_EQ(1u, owned.GetDataBlock()->GetReference());
}

TEST(MessageBlock, RtpChainedFlagDestroysTheNextBlocks) {
  CCmMessageBlock* a = new CCmMessageBlock(4u, nullptr, 0, 4);
  CCmMessageBlock* b = new CCmMessageBlock(4u, nullptr, 0, 4);
  CCmMessageBlock* c = new CCmMessageBlock(4u, nullptr, 0, 4);
  a->Append(b);
  b->Append(c);
  a->SetRtpChainedFlag(true);
  b->SetRtpChainedFlag(true);
  delete a;  // takes b and c with it; ASan reports a leak otherwise

  // DestroyChained unlinks a flagged duplicate before deleting it.
  CCmMessageBlock base(4u, nullptr, 0, 4);
  CCmMessageBlock* d1 = base.DuplicateTopLevel();
  CCmMessageBlock* d2 = base.DuplicateTopLevel();
  d1->Append(d2);
  d1->SetRtpChainedFlag(true);
  d1->DestroyChained();  // d2 deleted exactly once
  EXPECT_EQ(1u, base.GetDataBlock()->GetReference());
}

TEST(MessageBlock, ReclaimGarbage) {
  CCmMessageBlock base(8u, nullptr, 0, 8);
  CCmMessageBlock* d1 = base.DuplicateTopLevel();
  CCmMessageBlock* d2 = base.DuplicateTopLevel();
  CCmMessageBlock* d3 = base.DuplicateTopLevel();
  d1->AdvanceChainedReadPtr(8);
  d2->AdvanceChainedReadPtr(8);
  d1->Append(d2);
  d2->Append(d3);
  EXPECT_EQ(4u, base.GetDataBlock()->GetReference());
  CCmMessageBlock* head = d1->ReclaimGarbage();
  EXPECT_EQ(d3, head);
  EXPECT_EQ(2u, base.GetDataBlock()->GetReference());

  // An empty block that is not DUPLICATED is skipped, not deleted, and relinked.
  CCmMessageBlock owned;
  CCmMessageBlock* e = base.DuplicateTopLevel();
  e->AdvanceChainedReadPtr(8);
  owned.Append(e);
  e->Append(d3);
  EXPECT_EQ(d3, owned.ReclaimGarbage());
  EXPECT_EQ(d3, owned.GetNext());
  d3->DestroyChained();
  EXPECT_EQ(&base, base.ReclaimGarbage());  // not empty: returned as it is

  CmTraceCapture cap;
  CCmMessageBlock flagged(4u, nullptr, 0, 0);
  flagged.SetRtpChainedFlag(true);
  EXPECT_EQ(nullptr, flagged.ReclaimGarbage());
  EXPECT_TRUE(cap.contains(
      0, "CCmMessageBlock::ReclaimGarbage, this function should not be called when m_bRtpChainedFlag = 1 [this="));
  flagged.SetRtpChainedFlag(false);
}

}  // namespace
