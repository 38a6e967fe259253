#include "cmutil/buffer/CmBase64.h"

#include <cstdint>
#include <cstring>

#include "cmutil/base/CmAssert.h"

namespace {

constexpr char six2pr[65] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Sentinel of pr2six for bytes outside the alphabet.
constexpr unsigned char kInvalid = 64;

struct DecodeTable {
  unsigned char pr2six[256];
  constexpr DecodeTable() : pr2six() {
    for (int i = 0; i < 256; ++i) pr2six[i] = kInvalid;
    for (int i = 0; i < 64; ++i) pr2six[static_cast<unsigned char>(six2pr[i])] = static_cast<unsigned char>(i);
  }
};
constexpr DecodeTable kDecode;

/// Two output characters per 12 input bits, so that a group of three bytes costs two
/// lookups. Stored as the two bytes in text order.
struct EncodeTable {
  uint16_t pair[4096];
  constexpr EncodeTable() : pair() {
    for (int i = 0; i < 4096; ++i) {
      unsigned char c0 = static_cast<unsigned char>(six2pr[i >> 6]);
      unsigned char c1 = static_cast<unsigned char>(six2pr[i & 63]);
      // Little-endian store order: the first character at the lower address.
      pair[i] = static_cast<uint16_t>(c0 | (c1 << 8));
    }
  }
};
constexpr EncodeTable kEncode;

constexpr uint32_t kBadGroup = 0x80000000u;

/// Decoding tables with every 6-bit value already shifted to its place in the 24-bit
/// group, so that a group is four lookups and three ORs.
struct ShiftedTables {
  uint32_t d[4][256];
  constexpr ShiftedTables() : d() {
    for (int i = 0; i < 256; ++i) {
      uint32_t v = DecodeTable().pr2six[i];
      if (v == kInvalid) {
        // Outside the alphabet: a flag above the 24 data bits survives the ORs of a group.
        d[0][i] = d[1][i] = d[2][i] = d[3][i] = kBadGroup;
        continue;
      }
      d[0][i] = v << 18;
      d[1][i] = v << 12;
      d[2][i] = v << 6;
      d[3][i] = v;
    }
  }
};
constexpr ShiftedTables kShifted;

static_assert(sizeof(uint16_t) * 2 == 4, "pair layout");

inline bool IsLittleEndian() {
  const uint16_t probe = 1;
  unsigned char first;
  std::memcpy(&first, &probe, 1);
  return first == 1;
}

/// Encodes `len` bytes into `dst`, which has room for 4 * ceil(len / 3) characters.
/// Returns the number of characters written.
size_t EncodeInto(const unsigned char* src, size_t len, char* dst) {
  char* out = dst;
  size_t full = len / 3;
  const bool little = IsLittleEndian();
  for (size_t g = 0; g < full; ++g, src += 3, out += 4) {
    uint32_t v = (uint32_t(src[0]) << 16) | (uint32_t(src[1]) << 8) | src[2];
    uint16_t hi = kEncode.pair[v >> 12];
    uint16_t lo = kEncode.pair[v & 0xfff];
    if (little) {
      uint32_t word = uint32_t(hi) | (uint32_t(lo) << 16);
      std::memcpy(out, &word, 4);
    } else {
      out[0] = six2pr[v >> 18];
      out[1] = six2pr[(v >> 12) & 63];
      out[2] = six2pr[(v >> 6) & 63];
      out[3] = six2pr[v & 63];
    }
  }
  size_t rest = len - full * 3;
  if (rest != 0) {
    uint32_t v = uint32_t(src[0]) << 16;
    if (rest == 2) v |= uint32_t(src[1]) << 8;
    out[0] = six2pr[v >> 18];
    out[1] = six2pr[(v >> 12) & 63];
    out[2] = rest == 2 ? six2pr[(v >> 6) & 63] : '=';
    out[3] = '=';
    out += 4;
  }
  return static_cast<size_t>(out - dst);
}

/// Number of bytes that `n` valid characters decode to.
inline size_t DecodedSize(size_t n) {
  size_t rem = n & 3;
  return (n / 4) * 3 + (rem == 3 ? 2 : rem == 2 ? 1 : 0);
}

/// Skips leading tabs and spaces, then counts the characters of the alphabet up to the
/// first byte outside it (or up to `limit`).
inline const unsigned char* FindRun(const unsigned char* p, size_t limit, size_t& n) {
  size_t i = 0;
  while (i < limit && (p[i] == ' ' || p[i] == '\t')) ++i;
  p += i;
  limit -= i;
  size_t k = 0;
  while (k < limit && kDecode.pr2six[p[k]] != kInvalid) ++k;
  n = k;
  return p;
}

/// Decodes `n` characters, all inside the alphabet, into `dst`.
void DecodeRun(const unsigned char* s, size_t n, unsigned char* dst) {
  size_t groups = n / 4;
  for (size_t g = 0; g < groups; ++g, s += 4, dst += 3) {
    uint32_t v = kShifted.d[0][s[0]] | kShifted.d[1][s[1]] | kShifted.d[2][s[2]] | kShifted.d[3][s[3]];
    dst[0] = static_cast<unsigned char>(v >> 16);
    dst[1] = static_cast<unsigned char>(v >> 8);
    dst[2] = static_cast<unsigned char>(v);
  }
  size_t rem = n & 3;
  if (rem >= 2) {
    uint32_t v = kShifted.d[0][s[0]] | kShifted.d[1][s[1]];
    if (rem == 3) v |= kShifted.d[2][s[2]];
    dst[0] = static_cast<unsigned char>(v >> 16);
    if (rem == 3) dst[1] = static_cast<unsigned char>(v >> 8);
  }
}

/// Decodes from `s` (with `len` readable bytes) up to the first byte outside the alphabet,
/// in one pass: whole groups are checked through the flag bit of their lookups, and the
/// group holding the stop is finished character by character. `dst` has room for
/// len / 4 * 3 + 2 bytes. Returns the number of bytes written.
size_t DecodeUntilStop(const unsigned char* s, size_t len, unsigned char* dst) {
  const unsigned char* end = s + len;
  unsigned char* d = dst;
  while (end - s >= 4) {
    uint32_t v = kShifted.d[0][s[0]] | kShifted.d[1][s[1]] | kShifted.d[2][s[2]] | kShifted.d[3][s[3]];
    if (v & kBadGroup) break;
    d[0] = static_cast<unsigned char>(v >> 16);
    d[1] = static_cast<unsigned char>(v >> 8);
    d[2] = static_cast<unsigned char>(v);
    s += 4;
    d += 3;
  }
  size_t k = 0;  // valid characters left, fewer than four
  while (k < 3 && s + k < end && kDecode.pr2six[s[k]] != kInvalid) ++k;
  DecodeRun(s, k, d);
  return static_cast<size_t>(d - dst) + DecodedSize(k);
}

}  // namespace

CmResult CM_Base64Encode(const unsigned char* data, size_t length, CCmString& out) {
  out.clear();
  if (length == 0) return CM_OK;
  CM_ASSERTE_RETURN(data, CM_ERROR_INVALID_ARG);
  out.resize((length + 2) / 3 * 4);
  size_t written = EncodeInto(data, length, &out[0]);
  out.resize(written);
  return CM_OK;
}

CmResult CM_Base64Decode(const char* text, CCmString& out) {
  out.clear();
  CM_ASSERTE_RETURN(text, CM_ERROR_INVALID_ARG);
  while (*text == ' ' || *text == '\t') ++text;
  const size_t len = std::strlen(text);
  if (len < 2) return CM_OK;
  out.resize(len / 4 * 3 + 2);
  out.resize(
      DecodeUntilStop(reinterpret_cast<const unsigned char*>(text), len, reinterpret_cast<unsigned char*>(&out[0])));
  return CM_OK;
}

void xbase64_init_decode_table() {
  // The tables are built at compile time; nothing is left to prepare at run time.
}

unsigned int xbase64_calc_encode_buf_size(unsigned int srcLen) { return (srcLen / 3 + (srcLen % 3 != 0)) * 4 + 1; }

int xbase64_encode(const unsigned char* src, unsigned int srcLen, char* dst, unsigned int dstSize) {
  CM_ASSERTE_RETURN(dst, -1);
  CM_ASSERTE_RETURN(src || srcLen == 0, -1);
  uint64_t need = (uint64_t(srcLen) + 2) / 3 * 4 + 1;
  if (need > dstSize || need - 1 > INT32_MAX) return -1;
  size_t n = srcLen ? EncodeInto(src, srcLen, dst) : 0;
  dst[n] = '\0';
  return static_cast<int>(n);
}

int xbase64_decode(const char* src, unsigned int srcLen, unsigned char* dst, unsigned int dstSize) {
  CM_ASSERTE_RETURN(src, -1);
  CM_ASSERTE_RETURN(dst || dstSize == 0, -1);
  const unsigned char* text = reinterpret_cast<const unsigned char*>(src);
  size_t len = srcLen;
  while (len && (*text == ' ' || *text == '\t')) {
    ++text;
    --len;
  }
  if (len < 2) return 0;
  // Room for any text of this length: decode in one pass.
  if (len / 4 * 3 + 2 <= dstSize && len / 4 * 3 + 2 <= INT32_MAX)
    return static_cast<int>(DecodeUntilStop(text, len, dst));
  size_t n = 0;
  const unsigned char* run = FindRun(text, len, n);
  size_t size = DecodedSize(n);
  if (size > dstSize || size > INT32_MAX) return -1;
  if (size) DecodeRun(run, n, dst);
  return static_cast<int>(size);
}
