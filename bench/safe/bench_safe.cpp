// Bounds-checked copies beside the C library's unchecked ones: memcpy_s of 16 bytes and
// 4 KiB against memcpy, strcpy_s of a 4 KiB text against strcpy. The size is hidden from
// the compiler, so the peer is a real call into the C library, as ours is.
//
// The second argument places the destination: 0 at 1 KiB past a page offset from the
// source, 1 right after it, 16 bytes past a page multiple (two page-sized buffers
// allocated one after the other), where some processors run the C library's large
// copies many times slower.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

#include "cmutil/safe/CmSafeLib.h"

namespace {

struct Buffers {
  char* memory;
  char* src;
  char* dst;
  size_t size;
  explicit Buffers(benchmark::State& state) : size(static_cast<size_t>(state.range(0))) {
    benchmark::DoNotOptimize(size);
    memory = static_cast<char*>(std::aligned_alloc(4096, 4 * size + 8192));
    src = memory + 64;
    dst = src + size + (state.range(1) ? 16 : 4096 + 1024);
    std::memset(src, 'a', size);
    src[size - 1] = '\0';  // a text for the string copies
  }
  ~Buffers() { std::free(memory); }
};

void BM_Cmutil_memcpy_s(benchmark::State& state) {
  Buffers b(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(memcpy_s(b.dst, b.size, b.src, b.size));
    benchmark::ClobberMemory();
  }
}

void BM_Libc_memcpy(benchmark::State& state) {
  Buffers b(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::memcpy(b.dst, b.src, b.size));
    benchmark::ClobberMemory();
  }
}

void BM_Cmutil_strcpy_s(benchmark::State& state) {
  Buffers b(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(strcpy_s(b.dst, b.size, b.src));
    benchmark::ClobberMemory();
  }
}

void BM_Libc_strcpy(benchmark::State& state) {
  Buffers b(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::strcpy(b.dst, b.src));
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_Cmutil_memcpy_s)->Args({16, 0})->Args({4096, 0})->Args({4096, 1});
BENCHMARK(BM_Libc_memcpy)->Args({16, 0})->Args({4096, 0})->Args({4096, 1});
BENCHMARK(BM_Cmutil_strcpy_s)->Args({4096, 0})->Args({4096, 1});
BENCHMARK(BM_Libc_strcpy)->Args({4096, 0})->Args({4096, 1});

}  // namespace
