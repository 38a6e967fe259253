// Fuzz target: read_init_file and the free lookups' value handling on arbitrary file
// content. The first input byte picks the section/key pair looked up.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "cmutil/config/CmConfigIO.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char* const kSections[] = {nullptr, "S", "Trace", "", "a"};
  static const char* const kKeys[] = {"k", "MachineID", "", "key", "x"};
  unsigned pick = size ? data[0] : 0;
  const char* section = kSections[pick % 5];
  const char* key = kKeys[(pick / 5) % 5];
  FILE* f = tmpfile();
  if (!f) return 0;
  if (size > 1) fwrite(data + 1, 1, size - 1, f);
  // Small buffers: a value that fills `size` bytes is not terminated by the scanner.
  for (size_t cap : {size_t{1}, size_t{8}, size_t{256}}) {
    rewind(f);
    char out[257];
    memset(out, 0, sizeof out);
    if (read_init_file(f, section, key, out, cap)) {
      volatile size_t len = strnlen(out, cap);
      (void)len;
    }
  }
  fclose(f);
  return 0;
}
