#pragma once
/// ThreadWaiter: lets one thread wait until a given number of reports (Finished calls
/// from other threads) have arrived. Finished() is lock-free until the last expected
/// report. Safe from any thread.

#include "cmutil/base/CmExport.h"

class CM_EXPORT ThreadWaiter {
 public:
  /// Expects aExpected reports.
  explicit ThreadWaiter(unsigned int aExpected);
  ~ThreadWaiter();

  ThreadWaiter(const ThreadWaiter&) = delete;
  ThreadWaiter& operator=(const ThreadWaiter&) = delete;

  /// One report; the one that reaches the expected number finishes the waiter and
  /// wakes a waiter. Does nothing once finished.
  void Finished();
  /// Blocks until finished.
  void WaitUntilFinished();
  /// Blocks until finished or aMilliseconds have passed (steady clock). True when
  /// finished.
  bool WaitUntilTimeout(unsigned int aMilliseconds);
  /// Re-arms: not finished, no reports, aExpected expected. Not while others report.
  void Reset(unsigned int aExpected);
  bool IsFinished() const;

 private:
  struct State;
  State* m_pState;
};
