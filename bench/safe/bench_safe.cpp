// Bounds-checked copies beside the C library's unchecked ones: strcpy_s of a 4 KiB text
// against strcpy, memcpy_s of 16 bytes against memcpy. The size is hidden from the
// compiler, so the peer is a real call into the C library, as ours is.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "cmutil/safe/CmSafeLib.h"

namespace {

size_t OpaqueSize(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  benchmark::DoNotOptimize(n);
  return n;
}

void BM_Cmutil_memcpy_s(benchmark::State& state) {
  const size_t n = OpaqueSize(state);
  std::vector<char> src(n, 'a'), dst(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(memcpy_s(dst.data(), dst.size(), src.data(), n));
    benchmark::ClobberMemory();
  }
}

void BM_Libc_memcpy(benchmark::State& state) {
  const size_t n = OpaqueSize(state);
  std::vector<char> src(n, 'a'), dst(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::memcpy(dst.data(), src.data(), n));
    benchmark::ClobberMemory();
  }
}

std::vector<char> TextOf(size_t n) {
  std::vector<char> text(n, 'a');
  text[n - 1] = '\0';
  return text;
}

void BM_Cmutil_strcpy_s(benchmark::State& state) {
  const size_t n = OpaqueSize(state);
  std::vector<char> src = TextOf(n), dst(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(strcpy_s(dst.data(), dst.size(), src.data()));
    benchmark::ClobberMemory();
  }
}

void BM_Libc_strcpy(benchmark::State& state) {
  const size_t n = OpaqueSize(state);
  std::vector<char> src = TextOf(n), dst(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::strcpy(dst.data(), src.data()));
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_Cmutil_memcpy_s)->Arg(16);
BENCHMARK(BM_Libc_memcpy)->Arg(16);
BENCHMARK(BM_Cmutil_strcpy_s)->Arg(4096);
BENCHMARK(BM_Libc_strcpy)->Arg(4096);

}  // namespace
