#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "PipelineTestHelpers.h"

using namespace pipetest;

namespace {

// Emits a fresh item (seq + 1000) for each input.
class MakerUnit : public ProcessUnit {
 public:
  int calls = 0;

 protected:
  IProcessData* _Process(IProcessData* aData, unsigned short) override {
    ++calls;
    return new TestData(static_cast<TestData*>(aData)->Seq() + 1000);
  }
};

using ProcessUnitTest = LeakCheckedTest;

TEST_F(ProcessUnitTest, ResultDeliveredOnOutputZeroInLinkOrderOnceThenReleased) {
  Ref<MakerUnit> unit(new MakerUnit);
  // Without a module the result is only released: called once, and only the input is left.
  TestData* in = new TestData(1);
  EXPECT_EQ(CM_OK, unit->Process(in, 0));
  EXPECT_EQ(std::make_pair(1, m_liveBefore + 1), std::make_pair(unit->calls, LiveData().load()));
  in->Release();
  // (unit id, seq, input channel) of every arrival downstream; all modules run on this thread.
  using Log = std::vector<std::tuple<int, uint32_t, int>>;
  Log order;
  struct OrderUnit : ProcessUnit {
    OrderUnit(int aId, Log* aOrder) : id(aId), order(aOrder) {}
    IProcessData* _Process(IProcessData* aData, unsigned short aChannel) override {
      order->emplace_back(id, static_cast<TestData*>(aData)->Seq(), aChannel);
      return nullptr;
    }
    int id;
    Log* order;
  };
  Ref<TestModule> m(new TestModule), a(new TestModule), b(new TestModule), c(new TestModule);
  int id = 1;
  for (TestModule* x : {a.get(), b.get(), c.get()}) StartModule(x, new OrderUnit(id++, &order));
  ASSERT_EQ(CM_OK, m->AddDeliver(b.get(), 4, 0));
  ASSERT_EQ(CM_OK, m->AddDeliver(a.get(), 0, 0));
  ASSERT_EQ(CM_OK, m->AddDeliver(c.get(), 0, 1));  // output 1: not used by Process
  StartModule(m.get(), unit.get());
  Deliver(m, 7, 3);
  // The result, not the input, went once to each link of output 0 in link order; the leak
  // check of the fixture sees that it was released after.
  EXPECT_EQ((Log{{2, 1007u, 4}, {1, 1007u, 0}}), order);
  EXPECT_EQ(std::make_pair(1u, 0u), std::make_pair(m->GetOutputSampleCount(0), c->GetInputSampleCount(0)));
}

TEST(ProcessConfigTest, OverwriteSizeRulesAndBadArguments) {
  ProcessConfig cfg;
  char buf[32];
  unsigned int size = sizeof buf;
  EXPECT_EQ(CM_ERROR_FAILURE, cfg.GetProcessConfigValue("k", buf, size));
  ASSERT_EQ(CM_OK, cfg.ConfigProcess("k", "first"));
  ASSERT_EQ(CM_OK, cfg.ConfigProcess("k", "second"));
  EXPECT_EQ(CM_OK, cfg.GetProcessConfigValue("k", buf, size));
  EXPECT_STREQ("second", buf);
  // A value must fit in size - 1 bytes; a refused one leaves the buffer and the size alone.
  ASSERT_EQ(CM_OK, cfg.ConfigProcess("six", "abcdef"));
  ASSERT_EQ(CM_OK, cfg.ConfigProcess("five", "abcde"));
  std::memset(buf, 'x', sizeof buf);
  size = 6;
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cfg.GetProcessConfigValue("six", buf, size));
  EXPECT_EQ(std::make_pair(6u, 'x'), std::make_pair(size, buf[0]));
  EXPECT_EQ(CM_OK, cfg.GetProcessConfigValue("five", buf, size));
  EXPECT_EQ(std::make_pair(std::string("abcde"), 5u), std::make_pair(std::string(buf), size));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cfg.ConfigProcess(nullptr, "v"));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cfg.ConfigProcess("k", nullptr));
  size = sizeof buf;
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cfg.GetProcessConfigValue(nullptr, buf, size));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cfg.GetProcessConfigValue("k", nullptr, size));
  size = 0;
  EXPECT_EQ(CM_ERROR_INVALID_ARG, cfg.GetProcessConfigValue("k", buf, size));
}

}  // namespace
