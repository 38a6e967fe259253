#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <utility>

#include "cmutil/buffer/CmDataBlock.h"
#include "cmutil/buffer/CmMessageBlock.h"
#include "common/CmTraceCapture.h"

namespace {

/// Two caller-memory blocks, 10 readable bytes then 5: "0123456789" + "abcde".
struct TwoBlocks {
  char a[10] = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'};
  char b[5] = {'a', 'b', 'c', 'd', 'e'};
  CCmMessageBlock first{10u, a, 0, 10}, second{5u, b, 0, 5};
  TwoBlocks() { first.Append(&second); }
};

TEST(MessageBlock, SetDataOnCallerMemoryAndOnANewDataBlock) {
  char buf[16] = {};
  CCmMessageBlock user(16, buf, CCmMessageBlock::READ_LOCKED | 0x10, 4);
  // The lock flag is not stored.
  EXPECT_EQ(std::make_tuple(buf, static_cast<CCmDataBlock*>(nullptr),
                            static_cast<unsigned int>(CCmMessageBlock::USER_MEMORY | 0x10), 4u, 12u),
            std::make_tuple(user.GetTopLevelBeginPtr(), user.GetDataBlock(), user.GetFlag(), user.GetTopLevelLength(),
                            user.GetTopLevelSpace()));
  ASSERT_TRUE(user.Read(nullptr, 1) == CM_OK && user.ReserveCapacity(32) == CM_OK);  // a new block, offsets kept
  EXPECT_TRUE(user.GetTopLevelBeginPtr() != buf && user.GetTopLevelReadPtr() == user.GetTopLevelBeginPtr() + 1);
  EXPECT_TRUE(user.GetTopLevelLength() == 3 && user.GetTopLevelSpace() == 28);

  const char text[] = "not copied";
  CCmMessageBlock copy(10, text, CCmMessageBlock::COPY_ON_SET | CCmMessageBlock::USER_MEMORY);
  ASSERT_NE(nullptr, copy.GetDataBlock());
  EXPECT_NE(text, copy.GetTopLevelBeginPtr());
  // 0x1 and 0x2 are both dropped from the flag.
  EXPECT_EQ(std::make_tuple(0u, 10u, 1u),
            std::make_tuple(copy.GetFlag(), copy.GetTopLevelSpace(), copy.GetDataBlock()->GetReference()));

  CCmMessageBlock none(0u);
  EXPECT_TRUE(none.GetDataBlock() == nullptr && none.GetTopLevelBeginPtr() == nullptr);
}

// Peek and Update address the readable bytes across blocks without moving a pointer;
// Read then moves them.
TEST(MessageBlock, ChainedPeekUpdateAndReadAcrossBlocks) {
  TwoBlocks t;
  unsigned char peeked[8] = {};
  EXPECT_EQ(CM_OK, t.first.Peek(peeked, 6, 7));
  EXPECT_EQ(0, memcmp(peeked, "789abc", 6));
  EXPECT_EQ(CM_OK, t.first.Update(reinterpret_cast<const unsigned char*>("XYZ"), 3, 9));
  CmTraceCapture capture;
  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Peek(peeked, 2, 14));  // one byte beyond the chain
  EXPECT_EQ(CM_ERROR_FAILURE, t.first.Update(nullptr, 1, 0));
  char out[32] = {};
  unsigned int n = 0;
  EXPECT_TRUE(t.first.Read(out, 12, &n) == CM_OK && n == 12) << n;
  EXPECT_EQ(0, memcmp(out, "012345678XYZ", 12));
  EXPECT_EQ(std::make_pair(0u, 3u), std::make_pair(t.first.GetTopLevelLength(), t.second.GetTopLevelLength()));
  EXPECT_TRUE(t.first.Read(out, 20, &n) == CM_ERROR_PARTIAL_DATA && n == 3) << n;
  EXPECT_EQ(0, memcmp(out, "cde", 3));
}

TEST(MessageBlock, ChainedWriteFillsSpaceBlockByBlock) {
  CCmMessageBlock a(4u), b(3u), c(5u);
  a.Append(&b);
  a.Append(&c);
  EXPECT_EQ(12u, a.GetChainedSpace());
  unsigned int n = 0;
  EXPECT_EQ(CM_OK, a.Write("abcdefghi", 9, &n));
  EXPECT_EQ(std::make_tuple(9u, 4u, 3u, 2u),
            std::make_tuple(n, a.GetTopLevelLength(), b.GetTopLevelLength(), c.GetTopLevelLength()));
  EXPECT_EQ("abcdefghi", a.FlattenChained());
  EXPECT_TRUE(a.Write("0123456", 7, &n) == CM_ERROR_PARTIAL_DATA && n == 3u) << n;
  EXPECT_EQ(std::make_pair(std::string("abcdefghi012"), 0u), std::make_pair(a.FlattenChained(), a.GetChainedSpace()));

  CCmMessageBlock d(6u);
  EXPECT_TRUE(d.Write(nullptr, 4, &n) == CM_OK && d.GetTopLevelLength() == 4u);  // null source only advances
}

TEST(MessageBlock, DuplicateSharesDataBlocksAndCopiesCallerMemory) {
  CCmMessageBlock shared(8u, nullptr, 0x40, 0);
  shared.Write("abcdef", 6);
  shared.AdvanceTopLevelReadPtr(1);
  shared.LockWriting();
  CCmMessageBlock* dup = shared.DuplicateTopLevel();
  ASSERT_NE(nullptr, dup);
  EXPECT_EQ(std::make_tuple(shared.GetDataBlock(), 2u, static_cast<unsigned int>(CCmMessageBlock::DUPLICATED | 0x40),
                            std::string("bcdef"), static_cast<CCmMessageBlock*>(nullptr)),
            std::make_tuple(dup->GetDataBlock(), shared.GetDataBlock()->GetReference(), dup->GetFlag(),
                            dup->FlattenChained(), dup->GetNext()));
  dup->DestroyChained();
  EXPECT_EQ(1u, shared.GetDataBlock()->GetReference());

  char user[6] = {'u', 'v', 'w', 'x', 'y', 'z'};
  CCmMessageBlock mine(6, user, 0, 6);
  mine.AdvanceTopLevelReadPtr(2);
  dup = mine.DuplicateTopLevel();
  ASSERT_TRUE(dup && dup->GetDataBlock());
  EXPECT_NE(user, dup->GetTopLevelBeginPtr());
  EXPECT_EQ(static_cast<unsigned int>(CCmMessageBlock::DUPLICATED), dup->GetFlag());
  user[3] = '!';
  EXPECT_EQ("wxyz", dup->FlattenChained());  // a copy, not a view
  dup->DestroyChained();
}

// Split at a block boundary or inside a block: the part after comes back as duplicates
// (the second block, not DUPLICATED, is replaced, with one error line) and the first
// part stays. At the very end or beyond, nothing is split.
TEST(MessageBlock, DisjointAtABoundaryAndInsideABlock) {
  const struct {
    unsigned int at, restTopLength;
    const char *rest, *kept;
  } cases[] = {{10, 5, "abcde", "0123456789"}, {4, 6, "456789abcde", "0123"}};
  for (const auto& c : cases) {
    TwoBlocks t;
    CmTraceCapture cap;
    CCmMessageBlock* rest = t.first.Disjoint(c.at);
    ASSERT_NE(nullptr, rest);
    EXPECT_EQ(c.restTopLength, rest->GetTopLevelLength());
    EXPECT_TRUE(CM_BIT_ENABLED(rest->GetFlag(), CCmMessageBlock::DUPLICATED));
    for (CCmMessageBlock* b = rest; b; b = b->GetNext()) EXPECT_NE(&t.second, b);
    EXPECT_TRUE(cap.contains(
        0, "CCmMessageBlock::Disjoint, there are not DUPLICATED blocks behind the disjointed block. [this="));
    EXPECT_EQ(1u, cap.count("there are not DUPLICATED blocks"));
    EXPECT_EQ(std::make_tuple(std::string(c.rest), static_cast<CCmMessageBlock*>(nullptr), std::string(c.kept)),
              std::make_tuple(rest->FlattenChained(), t.first.GetNext(), t.first.FlattenChained()));
    rest->DestroyChained();
  }
  TwoBlocks u;
  EXPECT_EQ(nullptr, u.first.Disjoint(15));  // at the very end: nothing follows
  EXPECT_EQ(nullptr, u.first.Disjoint(16));  // beyond the chain
  EXPECT_EQ(15u, u.first.GetChainedLength());
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

}  // namespace
