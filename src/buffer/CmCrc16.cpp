#include <cstdint>
#include <cstring>

#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmSingleton.h"
#include "cmutil/buffer/CmCrc16.h"
#include "cmutil/buffer/CmMessageBlock.h"

unsigned char CRC16_H_TABLE[256];
unsigned char CRC16_L_TABLE[256];

namespace {

/// Slicing tables: kSlice[k][i] is the running value after byte i followed by k zero
/// bytes, starting from 0. kSlice[0] is the 16-bit value of the two byte tables. With
/// them eight bytes cost eight independent lookups instead of a chain of eight dependent
/// ones; the result is the same as byte by byte.
constexpr int kSlices = 8;
uint16_t g_slice[kSlices][256];

inline uint16_t Step(uint16_t crc, unsigned char d) {
  return static_cast<uint16_t>((crc >> 8) ^ g_slice[0][(crc ^ d) & 0xff]);
}

uint16_t Advance(uint16_t crc, const unsigned char* p, size_t n) {
  while (n >= kSlices) {
    // Only the first two bytes meet the running value.
    uint16_t first = static_cast<uint16_t>(crc ^ (p[0] | (p[1] << 8)));
    crc =
        static_cast<uint16_t>(g_slice[7][first & 0xff] ^ g_slice[6][first >> 8] ^ g_slice[5][p[2]] ^ g_slice[4][p[3]] ^
                              g_slice[3][p[4]] ^ g_slice[2][p[5]] ^ g_slice[1][p[6]] ^ g_slice[0][p[7]]);
    p += kSlices;
    n -= kSlices;
  }
  while (n--) crc = Step(crc, *p++);
  return crc;
}

}  // namespace

void GenerateCRCTable() {
  for (int i = 0; i < 256; ++i) {
    uint16_t v = 0;
    unsigned int b = static_cast<unsigned int>(i);
    for (int bit = 0; bit < 8; ++bit) {
      if ((v ^ b) & 1)
        v = static_cast<uint16_t>((v >> 1) ^ 0xA001);
      else
        v = static_cast<uint16_t>(v >> 1);
      b >>= 1;
    }
    CRC16_H_TABLE[i] = static_cast<unsigned char>(v & 0xff);
    CRC16_L_TABLE[i] = static_cast<unsigned char>(v >> 8);
    g_slice[0][i] = v;
  }
  for (int k = 1; k < kSlices; ++k)
    for (int i = 0; i < 256; ++i) {
      uint16_t prev = g_slice[k - 1][i];
      g_slice[k][i] = static_cast<uint16_t>((prev >> 8) ^ g_slice[0][prev & 0xff]);
    }
}

CRCTAbleInit::CRCTAbleInit() { GenerateCRCTable(); }

unsigned short CalcCRC16(unsigned short& crc, unsigned char* data, unsigned int length) {
  unsigned char* pData = data;
  CM_ASSERTE_RETURN(pData, 0);
  if (!CCmSingletonT<CRCTAbleInit>::Instance()) return 0;
  crc = Advance(crc, pData, length);
  return crc;
}

unsigned short CalcCRC16_m(unsigned short& crc, CCmMessageBlock& chain, unsigned int length) {
  unsigned int remaining = length;
  for (CCmMessageBlock* mb = &chain; mb; mb = mb->GetNext()) {
    // The block length is taken as a 16-bit quantity, as the checksum always has.
    unsigned int blockLen = static_cast<uint16_t>(mb->GetTopLevelLength());
    unsigned int n = blockLen < remaining ? blockLen : remaining;
    // An empty step is skipped: an empty block may have no storage at all.
    if (n) {
      char* read = mb->GetTopLevelBeginPtr() + mb->GetTopLevelReadOffset();
      CalcCRC16(crc, reinterpret_cast<unsigned char*>(read), n);
    }
    bool last = blockLen >= remaining;
    remaining -= n;
    if (last) break;
  }
  return crc;
}
