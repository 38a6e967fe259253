#include "cmutil/system/CmImageSize.h"

#include <cstring>

namespace {

inline uint32_t ReadLe16(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8);
}

inline uint32_t ReadBe16(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 8) | static_cast<uint32_t>(p[1]);
}

inline uint32_t ReadBe32(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};

}  // namespace

bool get_gif_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight) {
  if (!pData || dwLength < 10) return false;
  if (pData[0] != 'G' || pData[1] != 'I' || pData[2] != 'F') return false;
  // The version digits ("87a", "89a") are not checked.
  dwWidth = ReadLe16(pData + 6);
  dwHeight = ReadLe16(pData + 8);
  return true;
}

bool get_png_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight) {
  if (!pData || dwLength < 24) return false;
  if (std::memcmp(pData, kPngSignature, sizeof kPngSignature) != 0) return false;
  if (std::memcmp(pData + 12, "IHDR", 4) != 0) return false;
  dwWidth = ReadBe32(pData + 16);
  dwHeight = ReadBe32(pData + 20);
  return true;
}

bool get_jpg_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight) {
  if (!pData || dwLength < 12) return false;
  if (pData[0] != 0xFF || pData[1] != 0xD8) return false;
  // The first segment must be a JFIF (APP0) or Exif (APP1) header, each with its
  // zero-terminated identifier at bytes 6..10.
  if (pData[2] != 0xFF) return false;
  if (pData[3] == 0xE0) {
    if (std::memcmp(pData + 6, "JFIF", 5) != 0) return false;  // 5 bytes: the NUL too
  } else if (pData[3] == 0xE1) {
    if (std::memcmp(pData + 6, "Exif", 5) != 0) return false;
  } else {
    return false;
  }

  // Walk the segments with 64-bit positions, so a length near 2^32 cannot wrap.
  const uint64_t length = dwLength;
  uint64_t p = 4 + static_cast<uint64_t>(ReadBe16(pData + 4));
  for (;;) {
    if (p >= length || pData[p] != 0xFF || p + 1 >= length) return false;
    if (pData[p + 1] == 0xC0) break;  // baseline start of frame
    // The segment length sits at p + 2 and p + 3; both must be inside.
    if (p + 3 >= length) return false;
    p = p + 2 + ReadBe16(pData + p + 2);
  }

  // Frame header: marker (2), length (2), precision (1), height (2), width (2).
  if (p + 8 >= length) return false;
  dwHeight = ReadBe16(pData + p + 5);
  dwWidth = ReadBe16(pData + p + 7);
  return true;
}

bool kel_get_image_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight) {
  return get_gif_size(pData, dwLength, dwWidth, dwHeight) || get_png_size(pData, dwLength, dwWidth, dwHeight) ||
         get_jpg_size(pData, dwLength, dwWidth, dwHeight);
}
