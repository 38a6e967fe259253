#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>
#include <vector>

#include "cmutil/base/KelUnknown.h"
#include "common/CmTraceCapture.h"

namespace {

std::atomic<int> g_destroyed{0};

class ITestData : public kel::IKelUnknown {};

class CTestData : public ITestData, public kel::CKelUnknownImpl {
 public:
  explicit CTestData(unsigned int initial = 0) : kel::CKelUnknownImpl(initial) {}
  ~CTestData() override { ++g_destroyed; }
  KEL_IMPLEMENT_UNKNOWN()
};

class KelUnknown : public ::testing::Test {
  void SetUp() override { g_destroyed = 0; }
};

TEST_F(KelUnknown, CountsQueriesAndDeletesAtZero) {
  CTestData* d = new CTestData();
  EXPECT_EQ(std::vector<unsigned>({0, 1, 2, 1}),
            (std::vector<unsigned>{d->GetReference(), d->AddRef(), d->AddRef(), d->Release()}));
  EXPECT_EQ(0, g_destroyed.load());
  EXPECT_EQ(CM_ERROR_NULL_POINTER, d->QueryInterface(kel::IID_IKelUnknown, nullptr));

  void* out = nullptr;
  EXPECT_EQ(CM_OK, d->QueryInterface(kel::IID_IKelUnknown, &out));
  EXPECT_EQ(static_cast<kel::IKelUnknown*>(d), out);
  EXPECT_EQ(2u, d->GetReference());
  static_cast<kel::IKelUnknown*>(out)->Release();

  kel::_tagUUID other = kel::IID_IKelUnknown;
  other.data[15] ^= 1;
  out = &other;
  EXPECT_EQ(CM_ERROR_NO_INTERFACE, d->QueryInterface(other, &out));
  EXPECT_EQ(std::make_tuple(static_cast<void*>(nullptr), 1u), std::make_tuple(out, d->GetReference()));
  EXPECT_EQ(0u, d->Release());
  EXPECT_EQ(1, g_destroyed.load());
}

TEST_F(KelUnknown, ConcurrentAddRefReleaseDeletesOnce) {
  CTestData* d = new CTestData(1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([d] {
      for (int i = 0; i < 10000; ++i) {
        d->AddRef();
        d->Release();
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(std::make_tuple(1u, 0), std::make_tuple(d->GetReference(), g_destroyed.load()));
  d->Release();
  EXPECT_EQ(1, g_destroyed.load());
}

TEST_F(KelUnknown, ReleaseWithoutAReferenceIsRefused) {
  CTestData d;  // never referenced: the count is 0 and the object is not ours to delete
  CmTraceCapture cap;
  EXPECT_EQ(0u, d.Release());
  EXPECT_TRUE(cap.contains("Assert failed: count != 0"));
  EXPECT_EQ(std::make_tuple(0u, 0), std::make_tuple(d.GetReference(), g_destroyed.load()));  // not wrapped around
  EXPECT_EQ(1u, d.AddRef());
}

}  // namespace
