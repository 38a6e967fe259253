#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <tuple>

#include "cmutil/buffer/CmDataBlock.h"
#include "cmutil/buffer/CmDataBlockNoMalloc.h"
#include "common/CmTraceCapture.h"

namespace {

TEST(DataBlock, CreateInstanceCopiesAndTheLastReleaseFrees) {
  CCmDataBlock* db = nullptr;
  ASSERT_EQ(CM_OK, CCmDataBlock::CreateInstance(db, 5, "hello"));
  ASSERT_NE(nullptr, db);
  EXPECT_EQ(std::make_tuple(uint32_t{1}, 5u, 0u, false),
            std::make_tuple(db->GetReference(), db->GetLength(), db->GetAlignOffset(), db->IsReleaseWithFree()));
  EXPECT_EQ(0, memcmp(db->GetBasePtr(), "hello", 5));
  // The payload lives in the same allocation, right after the header.
  EXPECT_GT(reinterpret_cast<uintptr_t>(db->GetBasePtr()), reinterpret_cast<uintptr_t>(db));
  EXPECT_LE(reinterpret_cast<uintptr_t>(db->GetBasePtr()), reinterpret_cast<uintptr_t>(db) + 64);
  // Shared: freed once, by the last release (ASan reports a leak or double free otherwise).
  EXPECT_EQ(2u, db->AddReference());
  EXPECT_EQ(3u, db->AddReference());
  EXPECT_EQ(2u, db->ReleaseReference());
  EXPECT_EQ(1u, db->ReleaseReference());
  db->GetBasePtr()[4] = 1;  // still alive
  EXPECT_EQ(0u, db->ReleaseReference());
}

TEST(DataBlock, AlignedPayload) {
  // The payload starts at the first multiple of the alignment at or after the header's end
  // (100: not a power of two) and counts every byte up to the end of the allocation.
  const std::tuple<unsigned int, const char*, unsigned int> cases[] = {
      {100, nullptr, 64}, {10, "0123456789", 100}, {1, nullptr, 2048}, {7, nullptr, 1}};
  for (const auto& [size, data, align] : cases) {
    CCmDataBlock* db = nullptr;
    ASSERT_EQ(CM_OK, CCmDataBlock::CreateInstanceWithAlignByte(db, size, data, align));
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(db->GetBasePtr()) % align) << align;
    EXPECT_LT(db->GetAlignOffset(), align);
    EXPECT_EQ(size + align - db->GetAlignOffset(), db->GetLength());
    EXPECT_TRUE(!data || memcmp(db->GetBasePtr(), data, size) == 0);
    memset(db->GetBasePtr(), 0xab, db->GetLength());  // every counted byte is usable
    db->ReleaseReference();
  }
}

TEST(DataBlock, CreationRefusesBadArguments) {
  CmTraceCapture cap;
  CCmDataBlock* db = nullptr;
  EXPECT_EQ(CM_ERROR_INVALID_ARG, CCmDataBlock::CreateInstanceWithAlignByte(db, 100, nullptr, 2049));
  EXPECT_TRUE(cap.contains("Assert failed: alignByte <= 2048"));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, CCmDataBlock::CreateInstanceWithAlignByte(db, 100, nullptr, 0));
  EXPECT_TRUE(cap.contains("Assert failed: alignByte > 0"));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, CCmDataBlock::CreateInstanceWithAlignByte(db, 0, nullptr, 16));
  EXPECT_TRUE(cap.contains("Assert failed: aSize > 0"));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, CCmDataBlock::CreateInstance(db, 0, nullptr));
  EXPECT_EQ(nullptr, db);
}

// GCC follows a speculative path through the base class's `delete this` here and warns
// about malloc/delete; the block's own release hook hands the storage to free().
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
TEST(DataBlock, HeaderOverCallerStorageReleasedWithFree) {
  const unsigned int payload = 32;
  void* storage = malloc(sizeof(CCmDataBlock) + payload);
  ASSERT_NE(nullptr, storage);
  char* data = static_cast<char*>(storage) + sizeof(CCmDataBlock);
  CCmDataBlock* db = new (storage) CCmDataBlock(payload, data, 0);
  EXPECT_EQ(std::make_tuple(0u, payload, data), std::make_tuple(db->GetReference(), db->GetLength(), db->GetBasePtr()));
  db->SetReleaseWithFree(true);
  db->AddReference();
  EXPECT_EQ(0u, db->ReleaseReference());  // ASan reports an alloc/dealloc mismatch if not free()
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

TEST(DataBlockNoMalloc, ReadIsBoundedByTheEndNotByWrites) {
  char buf[10] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j'};
  CCmDataBlockNoMalloc cursor(buf, 10);
  char out[16] = {};
  unsigned int n = 99;
  EXPECT_TRUE(cursor.Read(out, 16, &n) == CM_ERROR_PARTIAL_DATA && n == 10u) << n;
  EXPECT_EQ(0, memcmp(out, "abcdefghij", 10));
  EXPECT_TRUE(cursor.Read(out, 16, &n) == CM_ERROR_PARTIAL_DATA && n == 0u) << n;
  EXPECT_EQ(CM_OK, cursor.Read(out, 0, &n));
}

TEST(DataBlockNoMalloc, WriteThenReadAndIndependentCursors) {
  char buf[8] = {};
  CCmDataBlockNoMalloc cursor(buf, 8);
  unsigned int n = 0;
  EXPECT_TRUE(cursor.Write("abc", 3, &n) == CM_OK && n == 3u) << n;
  EXPECT_TRUE(cursor.Write("defghijk", 8, &n) == CM_ERROR_PARTIAL_DATA && n == 5u) << n;
  EXPECT_EQ(0, memcmp(buf, "abcdefgh", 8));
  char out[4] = {};
  EXPECT_EQ(CM_OK, cursor.Read(out, 4));
  EXPECT_EQ(0, memcmp(out, "abcd", 4));
  EXPECT_EQ(std::make_tuple(buf + 4, buf + 8), std::make_tuple(cursor.GetCurrentRead(), cursor.GetCurrentWrite()));
}

TEST(DataBlockNoMalloc, BadArguments) {
  CmTraceCapture cap;
  char buf[4] = {};
  CCmDataBlockNoMalloc cursor(buf, 4);
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cursor.Read(nullptr, 1));
  EXPECT_TRUE(cap.contains("CmDataBlockNoMalloc.cpp:") && cap.contains("Assert failed: aDst"));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cursor.Write(nullptr, 1));
  EXPECT_TRUE(cap.contains("Assert failed: aSrc"));

  CCmDataBlockNoMalloc empty(nullptr, 0);
  char out[1];
  EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, empty.Read(out, 1));
  EXPECT_TRUE(cap.contains("Assert failed: m_pCurrentRead"));
  EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, empty.Write("x", 1));
  EXPECT_TRUE(cap.contains("Assert failed: m_pCurrentWrite"));
}

}  // namespace
