// Buffers beside their peers, same workload on both sides:
//  - memory pool: 1500-byte New/Free pairs and bursts of 64, one and two threads, against
//    glibc malloc/free and boost::pool<> (behind a mutex, since it has no lock of its own);
//  - CRC-16 over 64 B, 1500 B and 1 MiB against boost::crc_16_type (the same checksum);
//  - Base64 encode/decode over the same sizes against Boost.Beast's codec, with memcpy of
//    the same size as the ceiling;
//  - message blocks: a 1500-byte packet in three blocks through Write, Read,
//    DuplicateChained, Disjoint, FillIov and FlattenChained.
#include <benchmark/benchmark.h>
#include <sys/uio.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "cmutil/buffer/CmBase64.h"
#include "cmutil/buffer/CmCrc16.h"
#include "cmutil/buffer/CmMemoryPool.h"
#include "cmutil/buffer/CmMessageBlock.h"

#if CMUTIL_HAVE_BOOST
#include <boost/beast/core/detail/base64.hpp>
#include <boost/crc.hpp>
#include <boost/pool/pool.hpp>
#endif

namespace {

constexpr unsigned int kPacket = 1500;
constexpr int kBurst = 64;

std::vector<unsigned char> RandomBytes(size_t n) {
  std::vector<unsigned char> v(n);
  std::mt19937 rng(static_cast<unsigned>(n));
  for (auto& b : v) b = static_cast<unsigned char>(rng());
  return v;
}

// ---------------------------------------------------------------------------------------
// Memory pool

IKELMemPool* SharedPool() {
  static IKELMemPool* pool = [] {
    IKELMemPool* p = CreateKELMemPool(kPacket, 4096);
    p->Init();
    return p;
  }();
  return pool;
}

void BM_Pool_Pair_cmutil(benchmark::State& state) {
  IKELMemPool* pool = SharedPool();
  for (auto _ : state) {
    unsigned char* p = pool->New(kPacket);
    benchmark::DoNotOptimize(p);
    pool->Free(p);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Pool_Pair_malloc(benchmark::State& state) {
  for (auto _ : state) {
    void* p = std::malloc(kPacket);
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Pool_Burst64_cmutil(benchmark::State& state) {
  IKELMemPool* pool = SharedPool();
  unsigned char* held[kBurst];
  for (auto _ : state) {
    for (int i = 0; i < kBurst; ++i) held[i] = pool->New(kPacket);
    benchmark::DoNotOptimize(held);
    for (int i = 0; i < kBurst; ++i) pool->Free(held[i]);
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}

void BM_Pool_Burst64_malloc(benchmark::State& state) {
  void* held[kBurst];
  for (auto _ : state) {
    for (int i = 0; i < kBurst; ++i) held[i] = std::malloc(kPacket);
    benchmark::DoNotOptimize(held);
    for (int i = 0; i < kBurst; ++i) std::free(held[i]);
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}

#if CMUTIL_HAVE_BOOST
struct LockedBoostPool {
  std::mutex lock;
  boost::pool<> pool{kPacket};
};
LockedBoostPool& SharedBoostPool() {
  static LockedBoostPool p;
  return p;
}

void BM_Pool_Pair_boost(benchmark::State& state) {
  LockedBoostPool& bp = SharedBoostPool();
  for (auto _ : state) {
    void* p;
    {
      std::lock_guard<std::mutex> g(bp.lock);
      p = bp.pool.malloc();
    }
    benchmark::DoNotOptimize(p);
    std::lock_guard<std::mutex> g(bp.lock);
    bp.pool.free(p);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Pool_Burst64_boost(benchmark::State& state) {
  LockedBoostPool& bp = SharedBoostPool();
  void* held[kBurst];
  for (auto _ : state) {
    for (int i = 0; i < kBurst; ++i) {
      std::lock_guard<std::mutex> g(bp.lock);
      held[i] = bp.pool.malloc();
    }
    benchmark::DoNotOptimize(held);
    for (int i = 0; i < kBurst; ++i) {
      std::lock_guard<std::mutex> g(bp.lock);
      bp.pool.free(held[i]);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}
#endif

BENCHMARK(BM_Pool_Pair_cmutil)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Pool_Pair_malloc)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Pool_Burst64_cmutil)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Pool_Burst64_malloc)->Threads(1)->Threads(2)->UseRealTime();
#if CMUTIL_HAVE_BOOST
BENCHMARK(BM_Pool_Pair_boost)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Pool_Burst64_boost)->Threads(1)->Threads(2)->UseRealTime();
#endif

// ---------------------------------------------------------------------------------------
// CRC-16

void BM_Crc16_cmutil(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    unsigned short crc = 0;
    benchmark::DoNotOptimize(CalcCRC16(crc, data.data(), static_cast<unsigned int>(data.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

#if CMUTIL_HAVE_BOOST
void BM_Crc16_boost(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  {
    boost::crc_16_type check;
    check.process_bytes(data.data(), data.size());
    unsigned short ours = 0;
    CalcCRC16(ours, data.data(), static_cast<unsigned int>(data.size()));
    if (check.checksum() != ours) state.SkipWithError("checksums differ");
  }
  for (auto _ : state) {
    boost::crc_16_type crc;
    crc.process_bytes(data.data(), data.size());
    benchmark::DoNotOptimize(crc.checksum());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
#endif

BENCHMARK(BM_Crc16_cmutil)->Arg(64)->Arg(1500)->Arg(1 << 20);
#if CMUTIL_HAVE_BOOST
BENCHMARK(BM_Crc16_boost)->Arg(64)->Arg(1500)->Arg(1 << 20);
#endif

// ---------------------------------------------------------------------------------------
// Base64 (bytes processed = binary bytes on both directions)

void BM_Base64Encode_cmutil(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  CCmString out;
  for (auto _ : state) {
    CM_Base64Encode(data.data(), data.size(), out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Encode_xbase64(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  std::vector<char> out(xbase64_calc_encode_buf_size(static_cast<unsigned int>(data.size())));
  for (auto _ : state) {
    benchmark::DoNotOptimize(xbase64_encode(data.data(), static_cast<unsigned int>(data.size()), out.data(),
                                            static_cast<unsigned int>(out.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Decode_cmutil(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  CCmString text;
  CM_Base64Encode(data.data(), data.size(), text);
  CCmString out;
  for (auto _ : state) {
    CM_Base64Decode(text.c_str(), out);
    benchmark::DoNotOptimize(out.data());
  }
  if (out.size() != data.size() || std::memcmp(out.data(), data.data(), data.size()) != 0)
    state.SkipWithError("round trip failed");
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Decode_xbase64(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  CCmString text;
  CM_Base64Encode(data.data(), data.size(), text);
  std::vector<unsigned char> out(data.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(xbase64_decode(text.data(), static_cast<unsigned int>(text.size()), out.data(),
                                            static_cast<unsigned int>(out.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

#if CMUTIL_HAVE_BOOST
namespace beast64 = boost::beast::detail::base64;

void BM_Base64Encode_beast(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  std::string out;
  for (auto _ : state) {
    // The same contract as ours: a string sized for the text, then cut to it.
    out.resize(beast64::encoded_size(data.size()));
    out.resize(beast64::encode(&out[0], data.data(), data.size()));
    benchmark::DoNotOptimize(out.data());
  }
  CCmString ours;
  CM_Base64Encode(data.data(), data.size(), ours);
  if (ours != out) state.SkipWithError("texts differ");
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Decode_beast(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  CCmString text;
  CM_Base64Encode(data.data(), data.size(), text);
  std::string out;
  for (auto _ : state) {
    out.resize(beast64::decoded_size(text.size()));
    out.resize(beast64::decode(&out[0], text.data(), text.size()).first);
    benchmark::DoNotOptimize(out.data());
  }
  if (out.size() != data.size()) state.SkipWithError("round trip failed");
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
#endif

void BM_Memcpy(benchmark::State& state) {
  std::vector<unsigned char> data = RandomBytes(static_cast<size_t>(state.range(0)));
  std::vector<unsigned char> out(data.size());
  for (auto _ : state) {
    std::memcpy(out.data(), data.data(), data.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Base64Encode_cmutil)->Arg(64)->Arg(1500)->Arg(1 << 20);
BENCHMARK(BM_Base64Encode_xbase64)->Arg(64)->Arg(1500)->Arg(1 << 20);
BENCHMARK(BM_Base64Decode_cmutil)->Arg(64)->Arg(1500)->Arg(1 << 20);
BENCHMARK(BM_Base64Decode_xbase64)->Arg(64)->Arg(1500)->Arg(1 << 20);
#if CMUTIL_HAVE_BOOST
BENCHMARK(BM_Base64Encode_beast)->Arg(64)->Arg(1500)->Arg(1 << 20);
BENCHMARK(BM_Base64Decode_beast)->Arg(64)->Arg(1500)->Arg(1 << 20);
#endif
BENCHMARK(BM_Memcpy)->Arg(64)->Arg(1500)->Arg(1 << 20);

// ---------------------------------------------------------------------------------------
// Message blocks: one 1500-byte packet in three blocks of 500

constexpr unsigned int kPart = kPacket / 3;

/// Three data-block blocks, full, linked.
struct PacketChain {
  CCmMessageBlock b1{kPart}, b2{kPart}, b3{kPart};
  PacketChain() {
    std::vector<unsigned char> bytes = RandomBytes(kPacket);
    b1.Append(&b2);
    b2.Append(&b3);
    b1.Write(bytes.data(), kPacket);
  }
};

void PacketCounters(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * kPacket);
}

void BM_MessageBlock_Write(benchmark::State& state) {
  std::vector<unsigned char> src = RandomBytes(kPacket);
  std::vector<char> storage(kPacket);
  for (auto _ : state) {
    CCmMessageBlock b1(kPart, storage.data()), b2(kPart, storage.data() + kPart), b3(kPart, storage.data() + 2 * kPart);
    b1.Append(&b2);
    b2.Append(&b3);
    b1.Write(src.data(), kPacket);
    benchmark::ClobberMemory();
  }
  PacketCounters(state);
}

void BM_MessageBlock_Read(benchmark::State& state) {
  std::vector<unsigned char> src = RandomBytes(kPacket);
  std::vector<unsigned char> dst(kPacket);
  const char* s = reinterpret_cast<const char*>(src.data());
  for (auto _ : state) {
    CCmMessageBlock b1(kPart, s, 0, kPart), b2(kPart, s + kPart, 0, kPart), b3(kPart, s + 2 * kPart, 0, kPart);
    b1.Append(&b2);
    b2.Append(&b3);
    b1.Read(dst.data(), kPacket);
    benchmark::ClobberMemory();
  }
  PacketCounters(state);
}

void BM_MessageBlock_DuplicateChained(benchmark::State& state) {
  PacketChain chain;
  for (auto _ : state) {
    CCmMessageBlock* dup = chain.b1.DuplicateChained();
    benchmark::DoNotOptimize(dup);
    dup->DestroyChained();
  }
  PacketCounters(state);
}

void BM_MessageBlock_Disjoint(benchmark::State& state) {
  PacketChain chain;
  for (auto _ : state) {
    CCmMessageBlock* dup = chain.b1.DuplicateChained();
    CCmMessageBlock* rest = dup->Disjoint(kPacket / 2);
    benchmark::DoNotOptimize(rest);
    rest->DestroyChained();
    dup->DestroyChained();
  }
  PacketCounters(state);
}

void BM_MessageBlock_FillIov(benchmark::State& state) {
  PacketChain chain;
  iovec iov[8];
  for (auto _ : state) {
    benchmark::DoNotOptimize(chain.b1.FillIov(iov, 8));
    benchmark::ClobberMemory();
  }
  PacketCounters(state);
}

void BM_MessageBlock_FlattenChained(benchmark::State& state) {
  PacketChain chain;
  for (auto _ : state) {
    CCmString flat = chain.b1.FlattenChained();
    benchmark::DoNotOptimize(flat.data());
  }
  PacketCounters(state);
}

BENCHMARK(BM_MessageBlock_Write);
BENCHMARK(BM_MessageBlock_Read);
BENCHMARK(BM_MessageBlock_DuplicateChained);
BENCHMARK(BM_MessageBlock_Disjoint);
BENCHMARK(BM_MessageBlock_FillIov);
BENCHMARK(BM_MessageBlock_FlattenChained);

}  // namespace

BENCHMARK_MAIN();
