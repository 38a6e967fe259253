#include "cmutil/safe/CmSafeLib.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

constraint_handler_t safe_constraint_handler = dcdi_handler_s;
unsigned int safe_desired_log_lvl = 1;
safe_log_func_t safe_log_func = nullptr;

namespace {

// The error numbers are part of the interface and keep their values on every platform:
// 22 for every violation, 84 (value too large) for a truncated strncpy_s.
constexpr int kInvalid = 22;
constexpr int kTruncated = 84;
static_assert(EINVAL == kInvalid, "invalid-argument error number");

// A size beyond the maximum has its top bit set.
inline bool beyond_max(size_t size) { return (size >> (sizeof(size_t) * 8 - 1)) != 0; }

inline int mem_violation(const char* msg, void* ptr) {
  invoke_safe_mem_constraint_handler(msg, ptr, kInvalid);
  return kInvalid;
}

inline int str_violation(const char* msg, void* ptr) {
  invoke_safe_str_constraint_handler(msg, ptr, kInvalid);
  return kInvalid;
}

inline uintptr_t addr(const void* p) { return reinterpret_cast<uintptr_t>(p); }

/// Copies n <= 32 bytes as two fixed-size moves that may overlap each other, which the
/// compiler emits inline: short copies skip the call into the C library.
template <size_t W>
inline void copy_pair(unsigned char* d, const unsigned char* s, size_t n) {
  unsigned char head[W], tail[W];
  std::memcpy(head, s, W);
  std::memcpy(tail, s + n - W, W);
  std::memcpy(d, head, W);
  std::memcpy(d + n - W, tail, W);
}

inline void copy_short(void* dest, const void* src, size_t n) {
  auto* d = static_cast<unsigned char*>(dest);
  const auto* s = static_cast<const unsigned char*>(src);
  if (n >= 16)
    copy_pair<16>(d, s, n);
  else if (n >= 8)
    copy_pair<8>(d, s, n);
  else if (n >= 4)
    copy_pair<4>(d, s, n);
  else
    for (size_t i = 0; i < n; ++i) d[i] = s[i];
}

#if defined(__x86_64__)
bool cpu_has_avx2() {
  __builtin_cpu_init();  // static initialisers may run before the compiler's own detection
  return __builtin_cpu_supports("avx2");
}

/// 512-bit vectors only on processors known to run them at the full clock: several Intel
/// generations lower the core's clock for a while after 512-bit instructions, which would
/// slow every other thread on that core far more than a string copy gains.
bool cpu_runs_avx512_at_full_clock() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_is("amd");
}

const bool kHasAvx2 = cpu_has_avx2();
const bool kHasAvx512 = cpu_runs_avx512_at_full_clock();

/// One bit per zero byte of the 64-byte aligned block.
__attribute__((target("avx512f,avx512bw"), always_inline)) inline uint64_t zero_bytes(const char* block) {
  return _mm512_cmpeq_epi8_mask(_mm512_load_si512(block), _mm512_setzero_si512());
}

/// Length of s, at most max, 128 bytes per step. Every load is a 64-byte aligned block
/// (two per step, 128-byte aligned), so none reaches into a page past the one holding the
/// terminator or the last byte allowed; bytes before s and after the terminator are
/// masked off. The sanitizers are told not to watch this over-read, the same one the C
/// library's own scans make.
__attribute__((target("avx512f,avx512bw"), no_sanitize_address, no_sanitize_thread)) size_t length_avx512(const char* s,
                                                                                                          size_t max) {
  const size_t head = addr(s) & 63;
  uint64_t found = zero_bytes(s - head) >> head;
  size_t done = 0;
  if (found == 0) {
    done = 64 - head;
    if (done < max && ((addr(s) + done) & 64) != 0) {  // one more block to reach 128-byte alignment
      found = zero_bytes(s + done);
      if (found == 0) done += 64;
    }
  }
  if (found == 0) {
    for (; done < max; done += 128) {
      const __m512i low = _mm512_min_epu8(_mm512_load_si512(s + done), _mm512_load_si512(s + done + 64));
      if (_mm512_test_epi8_mask(low, low) != ~uint64_t{0}) break;
    }
    if (done >= max) return max;
    found = zero_bytes(s + done);
    if (found == 0) {
      done += 64;
      found = zero_bytes(s + done);
    }
  }
  const size_t length = done + static_cast<size_t>(__builtin_ctzll(found));
  return length < max ? length : max;
}

/// Copies n >= 64 bytes with 32-byte loads and destination-aligned stores. The first
/// and last 64 bytes are loaded before anything is stored and written last, so the
/// unaligned ends need no byte loop.
__attribute__((target("avx2"))) void copy_avx2(unsigned char* d, const unsigned char* s, size_t n) {
  const __m256i head = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
  const __m256i tail0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + n - 64));
  const __m256i tail1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + n - 32));
  const size_t skew = 32 - (addr(d) & 31);
  for (size_t i = skew; i + 64 < n; i += 64) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 32));
    _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), a);
    _mm256_store_si256(reinterpret_cast<__m256i*>(d + i + 32), b);
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + n - 64), tail0);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + n - 32), tail1);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), head);
}

/// Copies n >= 128 bytes with 64-byte loads and destination-aligned stores, the ends
/// loaded first and stored last as in copy_avx2. A load waits for an earlier store to
/// the same offset within a page when the source sits off the destination's 64-byte
/// grid; measured on 4 KiB copies, running backward avoids that when the destination
/// lies less than half a page past a page multiple from the source. Otherwise, and on
/// the grid, forward is as fast or faster. Storing two tail blocks instead of one after
/// the loop measured 25 ns instead of 17.
__attribute__((target("avx512f"))) void copy_avx512(unsigned char* d, const unsigned char* s, size_t n) {
  const __m512i head = _mm512_loadu_si512(s), tail = _mm512_loadu_si512(s + n - 64);
  const uintptr_t offset = (addr(d) - addr(s)) % 4096;
  if (offset < 2048 && offset % 64 != 0) {
    const __m512i second = _mm512_loadu_si512(s + 64);  // the loop stops within the first 128 bytes
    for (size_t i = n - (addr(d + n) & 63); i > 128;) {
      i -= 128;
      const __m512i b = _mm512_loadu_si512(s + i + 64), a = _mm512_loadu_si512(s + i);
      _mm512_store_si512(d + i + 64, b);
      _mm512_store_si512(d + i, a);
    }
    _mm512_storeu_si512(d + 64, second);
  } else {
    size_t i = 64 - (addr(d) & 63);
    for (; i + 128 < n; i += 128) {
      const __m512i a = _mm512_loadu_si512(s + i), b = _mm512_loadu_si512(s + i + 64);
      _mm512_store_si512(d + i, a);
      _mm512_store_si512(d + i + 64, b);
    }
    if (i + 64 < n) _mm512_store_si512(d + i, _mm512_loadu_si512(s + i));
  }
  _mm512_storeu_si512(d, head);
  _mm512_storeu_si512(d + n - 64, tail);
}
#endif

/// strnlen with the 512-bit scan where the processor has it.
inline size_t bounded_length(const char* s, size_t max) {
#if defined(__x86_64__)
  if (kHasAvx512) return length_avx512(s, max);
#endif
  return strnlen(s, max);
}

/// Copies n bytes. From about 2 KiB on, the C library copies with the string-move
/// instruction, which some processors run slower than a vector loop while the data
/// stays in cache, and 10-25 times slower when the destination lies 1 to 63 bytes
/// past a multiple of 4 KiB from the source (two page-sized buffers allocated one after
/// the other). Cache-sized copies use the vector loop where the processor has one; other
/// copies at such a placement run backward in 64-byte blocks, so that no load waits on a
/// store of the same page offset.
inline void copy_long(void* dest, const void* src, size_t n) {
  auto* d = static_cast<unsigned char*>(dest);
  const auto* s = static_cast<const unsigned char*>(src);
#if defined(__x86_64__)
  constexpr size_t kVectorCopyMax = 64 * 1024;
  if (n >= 2048 && n <= kVectorCopyMax && (kHasAvx512 || kHasAvx2)) {
    kHasAvx512 ? copy_avx512(d, s, n) : copy_avx2(d, s, n);
    return;
  }
#endif
  const uintptr_t offset = (addr(d) - addr(s)) % 4096;
  if (n < 2048 || d < s || offset == 0 || offset >= 64) {
    std::memcpy(d, s, n);
    return;
  }
  while (n >= 64) {
    n -= 64;
    unsigned char block[64];
    std::memcpy(block, s + n, 64);
    std::memcpy(d + n, block, 64);
  }
  std::memcpy(d, s, n);
}

/// Copies n bytes between blocks that do not overlap, short ones inline.
inline void copy_bytes(void* dest, const void* src, size_t n) {
  if (n <= 32)
    copy_short(dest, src, n);
  else
    copy_long(dest, src, n);
}

}  // namespace

extern "C" {

int memcpy_s(void* dest, size_t dmax, const void* src, size_t n) {
  if (dest == nullptr) return mem_violation("memcpy_s: dest is NULL", nullptr);
  if (beyond_max(dmax)) return mem_violation("memcpy_s: dmax exceeds max", nullptr);
  if (beyond_max(n)) return mem_violation("memcpy_s: n exceeds max", nullptr);
  if (n > dmax) return mem_violation("memcpy_s: n exceeds dmax", nullptr);
  if (src == nullptr) return mem_violation("memcpy_s: src is NULL", nullptr);
  const uintptr_t d = addr(dest), s = addr(src);
  if ((d > s && s + n > d) || (d < s && s < d + dmax)) return mem_violation("memcpy_s: overlap undefined", nullptr);
  if (d == s || n == 0) return 0;
  copy_bytes(dest, src, n);
  return 0;
}

int memset_s(void* s, size_t smax, int c, size_t n) {
  if (s == nullptr) return mem_violation("memset_s: s is null", nullptr);
  if (beyond_max(smax)) return mem_violation("memset_s: smax exceeds max", nullptr);
  if (beyond_max(n)) {
    std::memset(s, static_cast<unsigned char>(c), smax);
    return mem_violation("memset_s: n exceeds max", nullptr);
  }
  if (n > smax) {
    std::memset(s, static_cast<unsigned char>(c), smax);
    return mem_violation("memset_s: n exceeds smax", nullptr);
  }
  std::memset(s, static_cast<unsigned char>(c), n);
  return 0;
}

int memcmp_s(const void* s1, size_t s1max, const void* s2, size_t n, int* diff) {
  if (diff == nullptr) return mem_violation("memcmp_s: diff is null", nullptr);
  const char* msg = nullptr;
  if (s1 == nullptr)
    msg = "memcmp_s: s1 is null";
  else if (s2 == nullptr)
    msg = "memcmp_s: s2 is null";
  else if (s1max == 0)
    msg = "memcmp_s: s1max is 0";
  else if (beyond_max(s1max))
    msg = "memcmp_s: s1max exceeds max";
  else if (n == 0)
    msg = "memcmp_s: n is 0";
  else if (n > s1max)
    msg = "memcmp_s: n exceeds max";
  if (msg != nullptr) {
    *diff = -1;
    return mem_violation(msg, nullptr);
  }
  *diff = (s1 == s2) ? 0 : std::memcmp(s1, s2, n);
  return 0;
}

int strcmp_s(const char* s1, size_t s1max, const char* s2, int* indicator) {
  if (indicator == nullptr) return str_violation("strcmp_s: indicator is null", nullptr);
  *indicator = -1;
  if (s1 == nullptr) return str_violation("strcmp_s: s1 is null", nullptr);
  if (s2 == nullptr) return str_violation("strcmp_s: s2 is null", nullptr);
  if (s1max == 0) return str_violation("strcmp_s: s1max is 0", nullptr);
  if (beyond_max(s1max)) return str_violation("strcmp_s: s1max exceeds max", nullptr);
  if (std::memchr(s1, '\0', s1max) == nullptr) return str_violation("strcmp_s: s1 is unterminated", nullptr);
  *indicator = std::strcmp(s1, s2);
  return 0;
}

int strcpy_s(char* dest, size_t dmax, const char* src) {
  if (dest == nullptr) return str_violation("strcpy_s: dest is null", nullptr);
  if (dmax == 0) return str_violation("strcpy_s: dmax is 0", nullptr);
  if (beyond_max(dmax)) return str_violation("strcpy_s: dmax exceeds max", nullptr);
  if (src == nullptr) return str_violation("strcpy_s: src is null", nullptr);
  const size_t slen = bounded_length(src, dmax);
  if (slen >= dmax) return str_violation("strcpy_s: not enough space for src", nullptr);
  const uintptr_t d = addr(dest), s = addr(src);
  if ((d > s && d <= s + slen) || d == s || (s > d && d + slen >= s)) {
    return str_violation("strcpy_s: overlap undefined", nullptr);
  }
  copy_bytes(dest, src, slen + 1);
  return 0;
}

int strncpy_s(char* dest, size_t dmax, const char* src, size_t n) {
  if (dest == nullptr) return str_violation("strncpy_s: dest is null", nullptr);
  if (dmax == 0) return str_violation("strncpy_s: dmax is 0", nullptr);
  if (beyond_max(dmax)) return str_violation("strncpy_s: dmax exceeds max", nullptr);
  if (src == nullptr) return str_violation("strncpy_s: src is null", nullptr);
  if (beyond_max(n)) return str_violation("strncpy_s: n exceeds max", nullptr);
  const size_t slen = bounded_length(src, dmax);
  size_t count = n;
  bool truncated = false;
  if (n >= dmax) {
    count = slen;
    if (slen >= dmax) {
      count = dmax - 1;
      truncated = true;
    }
  }
  const uintptr_t d = addr(dest), s = addr(src);
  if ((d > s && d <= s + count && d < s + slen) || d == s || (d < s && d + count >= s)) {
    return str_violation("strncpy_s: overlap undefined", nullptr);
  }
  std::strncpy(dest, src, count);
  dest[count] = '\0';
  if (truncated) {
    invoke_safe_str_constraint_handler("strncpy_s: copy was truncated (not enough space in dest)", nullptr, kTruncated);
    return kTruncated;
  }
  return 0;
}

size_t strnlen_s(const char* s, size_t maxlen) { return s == nullptr ? 0 : bounded_length(s, maxlen); }

constraint_handler_t set_constraint_handler_s(constraint_handler_t handler) {
  constraint_handler_t previous = safe_constraint_handler;
  safe_constraint_handler = handler ? handler : dcdi_handler_s;
  return previous;
}

void invoke_safe_mem_constraint_handler(const char* msg, void* ptr, int error) {
  errno = error;
  if (constraint_handler_t handler = safe_constraint_handler) handler(msg, ptr, error);
}

void invoke_safe_str_constraint_handler(const char* msg, void* ptr, int error) {
  errno = error;
  if (constraint_handler_t handler = safe_constraint_handler) handler(msg, ptr, error);
}

void dcdi_handler_s(const char* msg, void*, int error) {
  safe_log(1, "DATA INCONSISTENCY/DATA CORRUPTION: (%u) %s\n", static_cast<unsigned int>(error), msg ? msg : "");
}

int safe_init_logger(unsigned int level, safe_log_func_t func) {
  safe_desired_log_lvl = level;
  safe_log_func = func;
  return 0;
}

void safe_log(unsigned int level, const char* format, ...) {
  if (safe_desired_log_lvl < level) return;
  va_list args;
  va_start(args, format);
  if (safe_log_func_t func = safe_log_func) {
    func(format, args);
  } else {
    flockfile(stderr);
    std::vfprintf(stderr, format, args);
    std::fflush(stderr);
    funlockfile(stderr);
  }
  va_end(args);
}

void safe_enable_backtrace(void) {}
void safe_log_backtrace(void) {}
}
