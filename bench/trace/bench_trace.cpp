// Trace costs: a suppressed site, a produced line handed to a discarding sink, and the
// bounds-checked copies against their unchecked counterparts. Peer: spdlog.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "cmutil/safe/CmSafeLib.h"
#include "cmutil/trace/CmTraceMacros.h"

#if CMUTIL_HAVE_SPDLOG
#include <spdlog/details/null_mutex.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#endif

namespace {

void discard_sink(int, const char* text, int len) { benchmark::DoNotOptimize(text[len - 1]); }

// Routes produced lines to the discarding sink for the lifetime of one benchmark.
struct DiscardingTrace {
  explicit DiscardingTrace(int mask) {
    set_util_external_trace_sink(discard_sink);
    cm_set_trace_option(CM_TRACE_ROUTE_SINK);
    set_external_trace_mask(mask);
  }
  ~DiscardingTrace() {
    set_util_external_trace_sink(nullptr);
    cm_set_trace_option(5);
    set_external_trace_mask(2);
  }
};

void BM_Cmutil_SuppressedTrace(benchmark::State& state) {
  DiscardingTrace trace(0);
  int value = 0;
  for (auto _ : state) {
    CM_INFO_TRACE("suppressed line, value=" << value);
    benchmark::DoNotOptimize(++value);
  }
}
BENCHMARK(BM_Cmutil_SuppressedTrace);

// An 80-character line with three numbers.
void BM_Cmutil_ProducedTrace(benchmark::State& state) {
  DiscardingTrace trace(2);
  int a = 1;
  unsigned b = 40000;
  long c = 123456789;
  for (auto _ : state) {
    CM_INFO_TRACE("CCmThreadTask::OnThreadRun, processed events=" << a << " pending=" << b << " elapsed us=" << c);
    benchmark::DoNotOptimize(++a);
  }
}
BENCHMARK(BM_Cmutil_ProducedTrace);

#if CMUTIL_HAVE_SPDLOG
// Like our discarding sink, which receives the decorated "[UTIL] " line: the sink runs
// the formatter into a buffer (building the same "[%n] " decoration) and drops it.
class FormattingNullSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 protected:
  void sink_it_(const spdlog::details::log_msg& msg) override {
    spdlog::memory_buf_t buf;
    formatter_->format(msg, buf);
    benchmark::DoNotOptimize(buf.data()[buf.size() - 1]);
  }
  void flush_() override {}
};

std::shared_ptr<spdlog::logger> null_logger(spdlog::level::level_enum level) {
  auto logger = std::make_shared<spdlog::logger>("UTIL", std::make_shared<FormattingNullSink>());
  logger->set_level(level);
  // No end-of-line: our line carries none either.
  logger->set_formatter(std::make_unique<spdlog::pattern_formatter>("[%n] %v", spdlog::pattern_time_type::local, ""));
  return logger;
}

void BM_Spdlog_SuppressedDebug(benchmark::State& state) {
  auto logger = null_logger(spdlog::level::info);
  int value = 0;
  for (auto _ : state) {
    logger->debug("suppressed line, value={}", value);
    benchmark::DoNotOptimize(++value);
  }
}
BENCHMARK(BM_Spdlog_SuppressedDebug);

void BM_Spdlog_ProducedInfo(benchmark::State& state) {
  auto logger = null_logger(spdlog::level::info);
  int a = 1;
  unsigned b = 40000;
  long c = 123456789;
  for (auto _ : state) {
    logger->info("CCmThreadTask::OnThreadRun, processed events={} pending={} elapsed us={}", a, b, c);
    benchmark::DoNotOptimize(++a);
  }
}
BENCHMARK(BM_Spdlog_ProducedInfo);
#endif

void BM_Cmutil_memcpy_s(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  std::vector<char> src(n, 'a'), dst(n);
  for (auto _ : state) {
    memcpy_s(dst.data(), dst.size(), src.data(), n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_Cmutil_memcpy_s)->Arg(16)->Arg(256)->Arg(4096);

void BM_Libc_memcpy(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  std::vector<char> src(n, 'a'), dst(n);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_Libc_memcpy)->Arg(16)->Arg(256)->Arg(4096);

std::vector<char> text_of(size_t n) {
  std::vector<char> text(n, 'a');
  text[n - 1] = '\0';
  return text;
}

void BM_Cmutil_strcpy_s(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  std::vector<char> src = text_of(n), dst(n);
  for (auto _ : state) {
    strcpy_s(dst.data(), dst.size(), src.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_Cmutil_strcpy_s)->Arg(16)->Arg(256)->Arg(4096);

void BM_Libc_strcpy(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  std::vector<char> src = text_of(n), dst(n);
  for (auto _ : state) {
    std::strcpy(dst.data(), src.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_Libc_strcpy)->Arg(16)->Arg(256)->Arg(4096);

}  // namespace
