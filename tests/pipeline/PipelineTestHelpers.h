#pragma once
// Shared helpers of the pipeline tests: counted data items, recording units,
// latches; task threads come from the common helper.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/pipeline/CmProcessModule.h"
#include "cmutil/pipeline/CmProcessUnit.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "common/CmTaskThread.h"

namespace pipetest {

// Every TestData alive in the process; tests compare it before and after.
inline std::atomic<int>& LiveData() {
  static std::atomic<int> live{0};
  return live;
}

// A data item numbered by its producer. Created with one reference owned by the creator.
class TestData : public IProcessData, public kel::CKelUnknownImpl {
 public:
  explicit TestData(uint32_t aSeq, uint32_t aTag = 0) : kel::CKelUnknownImpl(1), m_dwSeq(aSeq), m_dwTag(aTag) {
    LiveData().fetch_add(1);
  }
  KEL_IMPLEMENT_UNKNOWN()
  uint32_t GetDataType() override { return m_dwTag; }
  void* GetData() override { return m_payload; }
  uint32_t GetDataLength() override { return sizeof m_payload; }
  uint32_t Seq() const { return m_dwSeq; }
  uint32_t Tag() const { return m_dwTag; }

 protected:
  ~TestData() override { LiveData().fetch_sub(1); }

 private:
  uint32_t m_dwSeq;
  uint32_t m_dwTag;
  char m_payload[3] = {'a', 'b', 'c'};
};

// Delivers a new item numbered aSeq on aChannel and drops the creator's reference.
// aModule is a module pointer or a Ref to one.
template <class Module>
CmResult Deliver(const Module& aModule, uint32_t aSeq, unsigned short aChannel, uint32_t aTag = 0) {
  TestData* d = new TestData(aSeq, aTag);
  const CmResult rv = aModule->DeliverData(d, aChannel);
  d->Release();
  return rv;
}

// Checks that each test leaves as many data items alive as it found.
class LeakCheckedTest : public ::testing::Test {
 protected:
  void SetUp() override { m_liveBefore = LiveData().load(); }
  void TearDown() override { EXPECT_EQ(m_liveBefore, LiveData().load()) << "data items leaked or over-released"; }
  int m_liveBefore = 0;
};

// One-shot latch with a generous wait.
class Latch {
 public:
  void CountDown() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_count > 0 && --m_count == 0) m_cv.notify_all();
  }
  bool Wait(std::chrono::milliseconds aTimeout = std::chrono::milliseconds(20000)) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, aTimeout, [&] { return m_count == 0; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  int m_count = 1;
};

struct Seen {
  uint32_t seq, tag;
  unsigned short channel;
  CM_THREAD_ID thread;
  unsigned int queueSizeAfterPop;
};

// A unit that records what it sees. Forward mode: hands the input on through the output
// channel equal to its input channel modulo 4 (by _DeliverDataToNextModule). Otherwise it
// swallows the item. It never returns a result.
class RecordingUnit : public ProcessUnit {
 public:
  enum Mode { kSwallow, kForward };
  explicit RecordingUnit(Mode aMode = kSwallow, Latch* aDone = nullptr, size_t aExpected = 0)
      : m_mode(aMode), m_pDone(aDone), m_nExpected(aExpected) {}

  std::vector<Seen> Seen_() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_seen;
  }
  size_t Count() { return Seen_().size(); }

 protected:
  IProcessData* _Process(IProcessData* aData, unsigned short aChannel) override {
    TestData* d = static_cast<TestData*>(aData);
    IProcessModule* module = GetProcessModule();
    Seen s{d->Seq(), d->Tag(), aChannel, GetThreadSelfId(), module ? module->GetProcessModuleQueueSize(aChannel) : 0u};
    size_t n;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_seen.push_back(s);
      n = m_seen.size();
    }
    if (m_mode == kForward) _DeliverDataToNextModule(aData, static_cast<unsigned short>(aChannel % 4));
    if (m_pDone && n == m_nExpected) m_pDone->CountDown();
    return nullptr;
  }

 private:
  Mode m_mode;
  Latch* m_pDone;
  size_t m_nExpected;
  std::mutex m_mutex;
  std::vector<Seen> m_seen;
};

// Owns one reference to a kel object for the scope.
template <class T>
class Ref {
 public:
  explicit Ref(T* p) : m_p(p) { m_p->AddRef(); }
  ~Ref() { reset(); }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  T* operator->() const { return m_p; }
  T* get() const { return m_p; }
  void reset() {
    if (m_p) m_p->Release();
    m_p = nullptr;
  }

 private:
  T* m_p;
};

// Lets the tests allow several inputters on one channel.
class TestModule : public ProcessModule {
 public:
  void AllowSharedInput(bool aAllow) { m_bAllowSharedInput = aAllow; }
};

// Gives aModule its unit (and thread, if any), then initialises and starts it.
inline void StartModule(ProcessModule* aModule, IProcessUnit* aUnit, ACmThread* aThread = nullptr) {
  aModule->SetProcessUnit(aUnit);
  if (aThread) aModule->SetProcessModuleThread(aThread);
  EXPECT_EQ(CM_OK, aModule->InitModule());
  EXPECT_EQ(CM_OK, aModule->Start());
}

// A started module whose unit (a swallowing one unless given) records every item; with
// aThread it runs on that thread.
struct Sink {
  Ref<TestModule> module{new TestModule};
  Ref<RecordingUnit> unit;
  explicit Sink(const char* aName = "sink", ACmThread* aThread = nullptr, RecordingUnit* aUnit = new RecordingUnit)
      : unit(aUnit) {
    module->SetProcessModuleInfo(aName, 2);
    StartModule(module.get(), unit.get(), aThread);
  }
};

}  // namespace pipetest
