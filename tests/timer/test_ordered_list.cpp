// The ordered-list queue's own rules: insertion order among equal expiries, the pop of
// an empty list, and rebasing.

#include <gtest/gtest.h>

#include "TimerTestSupport.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"

namespace {

// Exposes the storage primitives of the list for direct checks.
class OpenList : public CCmTimerQueueOrderedList {
 public:
  OpenList() : CCmTimerQueueOrderedList(nullptr) {}
  using CCmTimerQueueOrderedList::EraseNode_l;
  using CCmTimerQueueOrderedList::GetEarliestTime_l;
  using CCmTimerQueueOrderedList::PopFirstNode_l;
  using CCmTimerQueueOrderedList::PushNode_l;
  using CCmTimerQueueOrderedList::RePushNode_l;
  using CCmTimerQueueOrderedList::ResetExpiredTime_l;
};

CCmTimerQueueBase::CNode Node(ICmTimerHandler* h, long expirySec, long intervalSec = 1) {
  CCmTimerQueueBase::CNode n(h, nullptr);
  n.m_tvExpired = CCmTimeValue(expirySec);
  n.m_tvInterval = CCmTimeValue(intervalSec);
  n.m_dwCount = 1;
  return n;
}

// Pops the whole list: (handler, expiry second) in order.
using Order = std::vector<std::pair<ICmTimerHandler*, long>>;
Order Drain(OpenList& list) {
  CCmTimerQueueBase::CNode n;
  Order order;
  while (list.PopFirstNode_l(n) == 0 && order.size() < 10) order.push_back({n.m_pEh, n.m_tvExpired.GetSec()});
  return order;
}

TEST(CCmTimerQueueOrderedListTest, EqualExpiriesFireLatestScheduledFirst) {
  CmFakeClock clock;
  CCmTimerQueueOrderedList queue(nullptr);
  std::vector<Firing> log;
  RecordingHandler a("a", &log), b("b", &log), c("c", &log);
  for (RecordingHandler* h : {&a, &b, &c}) queue.ScheduleTimer(h, nullptr, CCmTimeValue(1L), 1);
  clock.AdvanceMs(1000);
  EXPECT_EQ(3, queue.CheckExpire());
  EXPECT_EQ((std::vector<std::string>{"c", "b", "a"}), NamesOf(log));
}

TEST(CCmTimerQueueOrderedListTest, PushReplacesInOnePassAndKeepsOrder) {
  OpenList list;
  RecordingHandler a("a", nullptr), b("b", nullptr), c("c", nullptr), d("d", nullptr);
  EXPECT_EQ(0, list.PushNode_l(Node(&a, 10)));
  EXPECT_EQ(0, list.PushNode_l(Node(&b, 20)));
  EXPECT_EQ(0, list.PushNode_l(Node(&c, 30)));
  EXPECT_EQ(1, list.PushNode_l(Node(&c, 5)));     // moved to the front
  EXPECT_EQ(1, list.PushNode_l(Node(&a, 40)));    // moved to the back
  EXPECT_EQ(0, list.RePushNode_l(Node(&d, 40)));  // before the equal expiry of a
  EXPECT_EQ((Order{{&c, 5}, {&b, 20}, {&d, 40}, {&a, 40}}), Drain(list));
}

TEST(CCmTimerQueueOrderedListTest, RebaseKeepsOrderAndLaterInsertsSearchFromTheFront) {
  OpenList list;
  RecordingHandler a("a", nullptr), b("b", nullptr), c("c", nullptr), d("d", nullptr);
  list.PushNode_l(Node(&a, 100, 9));
  list.PushNode_l(Node(&b, 200, 2));
  list.ResetExpiredTime_l(CCmTimeValue(50L));  // a: 59, b: 52, still in the order a, b
  list.PushNode_l(Node(&c, 55));               // before the first node at 55 or later
  list.PushNode_l(Node(&d, 60));               // no node at 60 or later: at the end
  EXPECT_EQ((Order{{&c, 55}, {&a, 59}, {&b, 52}, {&d, 60}}), Drain(list));
  // Drained: sorted again, and a cancelled handler is gone for good.
  list.PushNode_l(Node(&a, 10));
  list.PushNode_l(Node(&b, 5));
  EXPECT_EQ((std::vector<int>{0, 1}), (std::vector<int>{list.EraseNode_l(&a), list.EraseNode_l(&a)}));
  EXPECT_EQ((Order{{&b, 5}}), Drain(list));
  EXPECT_EQ(1, list.EraseNode_l(&b));
}

}  // namespace
