// Subcommands over the encoders of the buffers area:
//   cmutil b64 encode [file]   Base64 text of the bytes of file (or standard input)
//   cmutil b64 decode [file]   bytes of the Base64 text of file (or standard input)
//   cmutil crc16 [file]        CRC-16 (start value 0) of the bytes of file (or standard input)

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "CmCommand.h"
#include "cmutil/buffer/CmBase64.h"
#include "cmutil/buffer/CmCrc16.h"

namespace {

const char kB64Usage[] =
    "b64 encode|decode [file]\n"
    "  encode: writes the Base64 text of the bytes of file (or standard input) and a line break\n"
    "  decode: writes the bytes that the Base64 text encodes; line breaks are removed first,\n"
    "          decoding stops at the first other character outside the alphabet";
const char kCrcUsage[] = "crc16 [file]\n  writes the CRC-16 (start value 0) of the bytes of file (or standard input)";

/// Reads all of `path` ("-" or null: standard input) into `out`.
bool ReadAll(const char* path, std::string& out) {
  FILE* f = stdin;
  if (path && std::strcmp(path, "-") != 0) {
    f = std::fopen(path, "rb");
    if (!f) {
      std::fprintf(stderr, "cmutil: cannot open %s: %s\n", path, std::strerror(errno));
      return false;
    }
  }
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  bool ok = !std::ferror(f);
  if (!ok) std::fprintf(stderr, "cmutil: read error on %s\n", path ? path : "standard input");
  if (f != stdin) std::fclose(f);
  return ok;
}

int RunB64(int argc, char** argv) {
  if (argc < 2 || argc > 3 || (std::strcmp(argv[1], "encode") != 0 && std::strcmp(argv[1], "decode") != 0)) {
    std::fprintf(stderr, "usage: cmutil %s\n", kB64Usage);
    return 2;
  }
  std::string input;
  if (!ReadAll(argc == 3 ? argv[2] : nullptr, input)) return 1;
  CCmString out;
  if (std::strcmp(argv[1], "encode") == 0) {
    CM_Base64Encode(reinterpret_cast<const unsigned char*>(input.data()), input.size(), out);
    out.push_back('\n');
  } else {
    std::string text;
    text.reserve(input.size());
    for (char c : input)
      if (c != '\n' && c != '\r') text.push_back(c);
    CM_Base64Decode(text.c_str(), out);
  }
  if (std::fwrite(out.data(), 1, out.size(), stdout) != out.size()) return 1;
  return std::fflush(stdout) == 0 ? 0 : 1;
}

int RunCrc16(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: cmutil %s\n", kCrcUsage);
    return 2;
  }
  std::string input;
  if (!ReadAll(argc == 2 ? argv[1] : nullptr, input)) return 1;
  unsigned short crc = 0;
  if (!input.empty())
    CalcCRC16(crc, reinterpret_cast<unsigned char*>(&input[0]), static_cast<unsigned int>(input.size()));
  std::printf("0x%04X\n", crc);
  return 0;
}

}  // namespace

CMUTIL_REGISTER_COMMAND("b64", kB64Usage, RunB64);
CMUTIL_REGISTER_COMMAND("crc16", kCrcUsage, RunCrc16);
