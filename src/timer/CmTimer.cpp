// Clock policies, the low tick generator and its "t-tick" thread, clock-field breakdowns.

#include "cmutil/timer/CmTimer.h"

#include <atomic>
#include <chrono>

#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmSingleton.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadRegistry.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"
#include "timer/CmLowTickHooks.h"

// ---- PretInitialationTimer and the policies ----

PretInitialationTimer::PretInitialationTimer() : m_dwMsPerTick(10) {
  const long ms = 1000 / cm_platform_ticks_per_second();
  m_dwMsPerTick = ms > 0 ? static_cast<unsigned int>(ms) : 1;
}

long long timer_policy::now() { return cm_platform_realtime_us(); }

namespace {
unsigned int ms_per_tick() {
  // Cached after the first lookup: the singleton never changes once created.
  static const unsigned int cached = [] {
    PretInitialationTimer* p = CCmSingletonT<PretInitialationTimer>::Instance();
    return p ? p->GetMsPerTick() : PretInitialationTimer().GetMsPerTick();
  }();
  return cached;
}
}  // namespace

long long tick_policy::now() { return cm_platform_clock_ticks() * ms_per_tick() * 1000LL; }

long long tick_policy::now_us() { return cm_platform_monotonic_ns() / 1000; }

namespace {
// The generator, cached so that a reading costs two loads instead of the singleton's
// checks; cleared by the generator's destructor (process clean-up).
std::atomic<low_tick_generator*> g_cachedGenerator{nullptr};
}  // namespace

long long low_tick_policy::now() {
  low_tick_generator* gen = g_cachedGenerator.load(std::memory_order_acquire);
  if (!gen) {
    gen = low_tick_generator::instance();
    if (!gen) return tick_policy::now();
    g_cachedGenerator.store(gen, std::memory_order_release);
  }
  return gen->now();
}

void low_tick_policy::start() {
  if (low_tick_generator* gen = low_tick_generator::instance()) gen->start();
}

void low_tick_policy::stop() {
  if (low_tick_generator* gen = low_tick_generator::instance()) gen->stop();
}

unsigned long long get_tick_count() { return static_cast<unsigned long long>(cm_platform_realtime_us()) / 1000ULL; }

long long get_tick_count_us() { return tick_policy::now_us(); }

// ---- low_tick_generator ----

struct low_tick_generator::Impl {
  // Written by the "t-tick" thread, read by any thread without a lock. `started` is
  // published with release after the first tick value is stored, and read with
  // acquire, so a reader that sees it set also sees that value; the later ticks are
  // independent readings and need no ordering of their own.
  std::atomic<long long> tick{0};
  std::atomic<bool> started{false};
};

low_tick_generator::low_tick_generator() : m_impl(new Impl) {}

low_tick_generator::~low_tick_generator() {
  CM_INFO_TRACE_THIS("low_tick_generator::~low_tick_generator");
  low_tick_generator* self = this;
  g_cachedGenerator.compare_exchange_strong(self, nullptr);
  delete m_impl;
}

low_tick_generator* low_tick_generator::instance() { return CCmSingletonT<low_tick_generator>::Instance(); }

long long low_tick_generator::now() const {
  if (m_impl->started.load(std::memory_order_acquire)) return m_impl->tick.load(std::memory_order_relaxed);
  return tick_policy::now();
}

bool low_tick_generator::is_started() const { return m_impl->started.load(std::memory_order_acquire); }

void low_tick_generator::OnTimer(CCmTimerWrapperID*) {
  m_impl->tick.store(tick_policy::now(), std::memory_order_relaxed);
}

void low_tick_generator::start() {
  CM_INFO_TRACE_THIS("low_tick_generator::start");
  m_impl->tick.store(tick_policy::now(), std::memory_order_relaxed);
  CmResult rv = timer.Schedule(this, CCmTimeValue(0, 10000), 0);
  if (rv != CM_OK) {
    CM_ERROR_TRACE_THIS("low_tick_generator::start, FAILED to schedule ticket timer in t-tick thread. rv = " << rv);
  }
  m_impl->started.store(rv == CM_OK, std::memory_order_release);
}

void low_tick_generator::stop() {
  CM_INFO_TRACE_THIS("low_tick_generator::stop");
  timer.Cancel();
  m_impl->started.store(false, std::memory_order_release);
}

// ---- the "t-tick" thread ----

namespace {

/// Starts the generator on the thread that fires it.
class CTickEvent : public ICmEvent {
 public:
  CTickEvent() : ICmEvent(0) {}
  CmResult OnEventFire() override {
    if (low_tick_generator* gen = low_tick_generator::instance()) {
      (void)gen->now();
      gen->start();
    }
    return CM_OK;
  }
};

ACmThread* g_tickThread = nullptr;
unsigned int refNum = 0;

CCmMutexThreadRecursive& tick_mutex() {
  // Created once and never destroyed, so late stopLowTick() calls at exit stay safe.
  static CCmMutexThreadRecursive* mutex = new CCmMutexThreadRecursive;
  return *mutex;
}

}  // namespace

void startLowTick() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(tick_mutex());
  if (g_tickThread == nullptr) {
    ACmThread* thread = nullptr;
    CmResult rv = CreateUserTaskThread("t-tick", thread, 1, true, -1);
    if (rv != CM_OK || thread == nullptr) {
      CM_ERROR_TRACE("startLowTick: failed to create a user thread, " << rv);
      return;
    }
    g_tickThread = thread;
    ICmEventQueue* queue = g_tickThread->GetEventQueue();
    rv = queue ? queue->SendEvent(new CTickEvent, nullptr) : CM_ERROR_NULL_POINTER;
    if (rv != CM_OK) {
      CM_ERROR_TRACE("startLowTick: failed to send start tick event to tick thread, " << rv);
      return;
    }
  } else {
    CM_WARNING_TRACE("startLowTick: g_tickThread has been initialized");
  }
  ++refNum;
}

void stopLowTick() {
  CM_INFO_TRACE("stopLowTick, enter.");
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(tick_mutex());
  const unsigned int before = refNum--;
  if (before == 1 && g_tickThread != nullptr) {
    if (low_tick_generator* gen = low_tick_generator::instance()) gen->stop();
    g_tickThread->Stop(nullptr);
    g_tickThread->Join();
    g_tickThread->Destory(0);
    g_tickThread = nullptr;
  }
  if (static_cast<int>(refNum) < 0) refNum = 0;
  CM_INFO_TRACE("stopLowTick, leave. refNum=" << refNum);
}

unsigned int cm_low_tick_ref_count() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(tick_mutex());
  return refNum;
}

ACmThread* cm_low_tick_thread() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(tick_mutex());
  return g_tickThread;
}

// ---- clock-field breakdowns ----

tick_type::tick_type() { reset(tick_policy::now()); }

tick_type::tick_type(long long us) { reset(us); }

void tick_type::reset(long long us) {
  microsecond = static_cast<unsigned int>(us % 1000);
  millisecond = static_cast<unsigned int>((us / 1000) % 1000);
  second = static_cast<unsigned int>((us / 1000000) % 60);
  minute = static_cast<unsigned int>((us / 60000000) % 60);
  hour = static_cast<unsigned int>(us / 3600000000LL);
}

time_type::time_type() : tm() { reset(timer_policy::now()); }

time_type::time_type(long long us) : tm() { reset(us); }

void time_type::reset(long long us) {
  microsecond = static_cast<unsigned int>(us % 1000);
  millisecond = static_cast<unsigned int>((us / 1000) % 1000);
  const time_t secs = static_cast<time_t>(us / 1000000);
  struct tm local;
  if (::localtime_r(&secs, &local) != nullptr) {
    tm_sec = local.tm_sec;
    tm_min = local.tm_min;
    tm_hour = local.tm_hour;
    tm_mday = local.tm_mday;
    tm_mon = local.tm_mon + 1;
    tm_year = local.tm_year + 1900;
    tm_wday = local.tm_wday;
    tm_yday = local.tm_yday;
    tm_isdst = local.tm_isdst;
  } else {
    tm_sec = tm_min = tm_hour = tm_mday = tm_mon = tm_year = tm_wday = tm_yday = tm_isdst = 0;
  }
}

tick_type formatted_ticker::now() { return tick_type(); }

time_type formatted_timer::now() { return time_type(); }

// ---- timer_fact instantiations ----

#include "cmutil/timer/CmTimerFact.h"

template class timer_fact<timer_policy>;
template class timer_fact<tick_policy>;
template class timer_fact<low_tick_policy>;
