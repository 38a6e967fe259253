// Feeds arbitrary bytes to the image size probes. The input is copied into a buffer of
// exactly its size so that the sanitizer sees any read past the end.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "cmutil/system/CmImageSize.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::unique_ptr<unsigned char[]> copy(new unsigned char[size ? size : 1]);
  if (size) std::memcpy(copy.get(), data, size);
  const uint32_t len = static_cast<uint32_t>(size);
  uint32_t w = 0, h = 0;
  const bool any = kel_get_image_size(copy.get(), len, w, h);
  uint32_t w2 = 0, h2 = 0;
  const bool one = get_gif_size(copy.get(), len, w2, h2) || get_png_size(copy.get(), len, w2, h2) ||
                   get_jpg_size(copy.get(), len, w2, h2);
  if (any != one || (any && (w != w2 || h != h2))) __builtin_trap();
  return 0;
}
