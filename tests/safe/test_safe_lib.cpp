#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "cmutil/safe/CmSafeLib.h"

namespace {

std::vector<std::pair<std::string, int>> g_violations;  // message, error

void recording_handler(const char* msg, void*, int error) { g_violations.emplace_back(msg ? msg : "", error); }

// Installs the recording handler for one test and restores the previous one after it.
class SafeLib : public ::testing::Test {
 protected:
  void SetUp() override {
    g_violations.clear();
    m_previous = set_constraint_handler_s(recording_handler);
  }
  void TearDown() override { set_constraint_handler_s(m_previous); }

  // The call returned error (EINVAL by default) and reported exactly one violation, with
  // this message and error (also in errno).
  void expectRefused(int rv, const char* msg, int error = 22) {
    ASSERT_EQ(g_violations.size(), 1u) << msg;
    EXPECT_EQ(std::make_tuple(rv, g_violations[0].first, g_violations[0].second, errno),
              std::make_tuple(error, std::string(msg), error, error));
    g_violations.clear();
  }

  constraint_handler_t m_previous = nullptr;
};

const size_t kHuge = SIZE_MAX / 2 + 1;  // top bit set

std::vector<std::string> g_logged;
int recording_logger(const char* format, va_list args) {
  char line[256];
  vsnprintf(line, sizeof line, format, args);
  g_logged.emplace_back(line);
  return 0;
}

}  // namespace

TEST_F(SafeLib, MemcpyChecksInOrderAndOverlap) {
  char dest[8] = "xxxxxxx";
  const char src[8] = "abcdefg";
  expectRefused(memcpy_s(nullptr, 8, src, 1), "memcpy_s: dest is NULL");
  expectRefused(memcpy_s(dest, kHuge, src, 1), "memcpy_s: dmax exceeds max");
  expectRefused(memcpy_s(dest, 8, src, kHuge), "memcpy_s: n exceeds max");
  expectRefused(memcpy_s(dest, 4, src, 5), "memcpy_s: n exceeds dmax");
  expectRefused(memcpy_s(dest, 8, nullptr, 5), "memcpy_s: src is NULL");
  EXPECT_STREQ(dest, "xxxxxxx");  // untouched by every violation
  char buf[32] = {};
  // Overlap, dest after src: src + n beyond dest.
  expectRefused(memcpy_s(buf + 4, 8, buf, 5), "memcpy_s: overlap undefined");
  EXPECT_EQ(memcpy_s(buf + 4, 8, buf, 4), 0);  // touches, does not overlap
  // Overlap, dest before src: the whole dmax counts, not only n.
  expectRefused(memcpy_s(buf, 16, buf + 10, 2), "memcpy_s: overlap undefined");
  EXPECT_EQ(memcpy_s(buf, 10, buf + 10, 2), 0);

  EXPECT_EQ(memcpy_s(dest, 8, src, 3), 0);
  EXPECT_EQ(std::string(dest, 3), "abc");
  EXPECT_EQ(memcpy_s(dest, 8, dest, 8), 0);  // same pointer: nothing to copy
  EXPECT_TRUE(g_violations.empty());
}

// Copies on both sides of the short-copy size, of 2 KiB and of 64 KiB (vector loop
// between), with the destination 16 bytes (copied backward past 64 KiB), 1 KiB, an odd
// count of bytes and most of a page past a page multiple from the source.
TEST_F(SafeLib, CopiesOfEveryLengthClassAndPlacement) {
  std::vector<char> area(160 * 1024);
  for (size_t n : {1, 4, 15, 32, 33, 2047, 2049, 4096, 5999, 65536, 70001})
    for (size_t gap : {16, 1024, 1047, 3000}) {
      char* src = area.data();
      char* dst = src + (n + 4095) / 4096 * 4096 + gap;
      for (size_t i = 0; i < n; ++i) src[i] = static_cast<char>('a' + i % 23);
      std::memset(dst, '#', n + 1);
      ASSERT_EQ(0, memcpy_s(dst, n, src, n));
      EXPECT_TRUE(std::memcmp(dst, src, n) == 0 && dst[n] == '#') << n << " " << gap;
      src[n - 1] = '\0';
      ASSERT_EQ(0, strcpy_s(dst, n, src));
      EXPECT_STREQ(src, dst) << n << " " << gap;
    }
}

// Texts that end at the last byte before an inaccessible page, from every start
// alignment: the length stops at the terminator or at the bound, whichever comes first,
// and nothing reads past the text's page.
TEST_F(SafeLib, LengthStopsAtTerminatorOrBoundBeforeAnUnmappedPage) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapped = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapped, MAP_FAILED);
  auto* const end = static_cast<char*>(mapped) + page;
  ASSERT_EQ(0, mprotect(end, page, PROT_NONE));
  std::memset(end - page, 'x', page - 1);
  end[-1] = '\0';
  char copy[320];
  for (size_t len = 0; len < 300; ++len) {
    const char* text = end - 1 - len;
    for (size_t bound : {len, len + 1, len + page}) {
      EXPECT_EQ(strnlen_s(text, bound), len) << len << " " << bound;
    }
    if (len > 0) {
      EXPECT_EQ(strnlen_s(text, len - 1), len - 1) << len;
    }
    ASSERT_EQ(0, strcpy_s(copy, sizeof copy, text));
    EXPECT_EQ(std::string(copy), std::string(text)) << len;
  }
  end[-1] = 'x';  // no terminator at all: the bound ends the scan at the page's end
  for (size_t len = 1; len < 300; ++len) EXPECT_EQ(strnlen_s(end - len, len), len) << len;
  munmap(mapped, 2 * page);
}

TEST_F(SafeLib, MemcmpViolationsSetDiff) {
  const char a[] = "abc", b[] = "abd";
  int diff = 99;
  expectRefused(memcmp_s(a, 3, b, 3, nullptr), "memcmp_s: diff is null");
  const std::tuple<const void*, size_t, const void*, size_t, const char*> cases[] = {
      // s1, s1max, s2, n, message
      {nullptr, 3, b, 3, "memcmp_s: s1 is null"}, {a, 3, nullptr, 3, "memcmp_s: s2 is null"},
      {a, 0, b, 3, "memcmp_s: s1max is 0"},       {a, kHuge, b, 3, "memcmp_s: s1max exceeds max"},
      {a, 3, b, 0, "memcmp_s: n is 0"},           {a, 2, b, 3, "memcmp_s: n exceeds max"},
  };
  for (auto [s1, s1max, s2, n, msg] : cases) {
    diff = 99;
    expectRefused(memcmp_s(s1, s1max, s2, n, &diff), msg);
    EXPECT_EQ(diff, -1) << msg;
  }
  EXPECT_TRUE(memcmp_s(a, 3, b, 3, &diff) == 0 && diff < 0) << diff;
  EXPECT_TRUE(memcmp_s(a, 3, b, 2, &diff) == 0 && diff == 0) << diff;
  EXPECT_TRUE(memcmp_s(a, 3, a, 3, &diff) == 0 && diff == 0) << diff;
}

TEST_F(SafeLib, StrcpyRoomForTheTerminatorAndOverlap) {
  char dest[8];
  std::memset(dest, '#', sizeof dest);
  expectRefused(strcpy_s(dest, 7, "1234567"), "strcpy_s: not enough space for src");
  EXPECT_EQ(dest[0], '#');  // untouched, not even terminated
  EXPECT_EQ(strcpy_s(dest, 8, "1234567"), 0);
  EXPECT_STREQ(dest, "1234567");

  expectRefused(strcpy_s(nullptr, 8, "a"), "strcpy_s: dest is null");
  expectRefused(strcpy_s(dest, 0, "a"), "strcpy_s: dmax is 0");
  expectRefused(strcpy_s(dest, kHuge, "a"), "strcpy_s: dmax exceeds max");
  expectRefused(strcpy_s(dest, 8, nullptr), "strcpy_s: src is null");

  char buf[32] = "abcdef";
  expectRefused(strcpy_s(buf, 32, buf), "strcpy_s: overlap undefined");      // the same pointer is an overlap here
  expectRefused(strcpy_s(buf + 3, 20, buf), "strcpy_s: overlap undefined");  // dest inside src
  expectRefused(strcpy_s(buf, 8, buf + 2), "strcpy_s: overlap undefined");   // dest + slen reaches src
  char far[32] = "abcdefghij";
  EXPECT_EQ(strcpy_s(far, 3, far + 8), 0);  // "ij" copied well before its source
  EXPECT_STREQ(far, "ij");
}

TEST_F(SafeLib, StrncpyTruncationIsReportedAndDone) {
  char dest[4] = {'#', '#', '#', '#'};
  expectRefused(strncpy_s(dest, 4, "abcdef", 10), "strncpy_s: copy was truncated (not enough space in dest)", 84);
  EXPECT_STREQ(dest, "abc");

  char out[16];
  EXPECT_EQ(strncpy_s(out, 16, "abcdef", 3), 0);
  EXPECT_STREQ(out, "abc");
  EXPECT_EQ(strncpy_s(out, 16, "abc", 20), 0);  // n >= dmax: the whole string fits
  EXPECT_STREQ(out, "abc");
  EXPECT_TRUE(g_violations.empty());
}

TEST_F(SafeLib, ZeroSizesAndNullPointers) {
  char dest[8] = "dddddd";
  const char src[8] = "ssssss";
  // expectRefused() wants exactly one violation: the accepted calls before it report none.
  EXPECT_EQ(memcpy_s(dest, 0, src, 0), 0);  // nothing to copy
  expectRefused(memcpy_s(dest, 8, nullptr, 0), "memcpy_s: src is NULL");
  EXPECT_STREQ(dest, "dddddd");
  EXPECT_EQ(std::make_pair(0, 0), std::make_pair(memset_s(dest, 0, 'x', 0), memset_s(dest, 8, 'x', 0)));
  EXPECT_STREQ(dest, "dddddd");
  expectRefused(memset_s(nullptr, 0, 'x', 0), "memset_s: s is null");
  EXPECT_EQ(std::make_tuple(size_t{0}, size_t{0}, size_t{0}),
            std::make_tuple(strnlen_s("abc", 0), strnlen_s(nullptr, 0), strnlen_s(nullptr, kHuge)));
}

TEST_F(SafeLib, HandlerReplacementAndDefaultLogger) {
  // The fixture's handler is current; null brings the default back and returns ours.
  EXPECT_EQ(set_constraint_handler_s(nullptr), &recording_handler);
  EXPECT_EQ(set_constraint_handler_s(recording_handler), &dcdi_handler_s);

  g_logged.clear();
  set_constraint_handler_s(nullptr);
  safe_init_logger(1, recording_logger);
  char dest[2];
  EXPECT_EQ(strcpy_s(dest, 2, "long"), 22);
  safe_log(2, "%s", "above the level: dropped");
  safe_init_logger(1, nullptr);
  set_constraint_handler_s(recording_handler);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0], "DATA INCONSISTENCY/DATA CORRUPTION: (22) strcpy_s: not enough space for src\n");
}
