// Subcommands over the encoders of the buffers area:
//   cmutil b64 encode [file]   Base64 text of the bytes of file (or standard input)
//   cmutil b64 decode [file]   bytes of the Base64 text of file (or standard input)
//   cmutil crc16 [file]        CRC-16 (start value 0) of the bytes of file (or standard input)
// and the "buffers" section of cmutil demo: a chain split and joined again, the wire bytes
// of a value and of a parameter list, Base64 and the CRC-16 check value.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "CmCommand.h"
#include "cmutil/buffer/CmBase64.h"
#include "cmutil/buffer/CmCrc16.h"
#include "cmutil/buffer/CmMessageBlock.h"
#include "cmutil/buffer/CmMetaData.h"
#include "cmutil/buffer/CmParameterList.h"

namespace {

const char kB64Usage[] =
    "b64 encode|decode [file]\n"
    "  encode: writes the Base64 text of the bytes of file (or standard input) and a line break\n"
    "  decode: writes the bytes that the Base64 text encodes; line breaks are removed first,\n"
    "          any other byte outside the alphabet and its \"=\" padding is refused (exit 1)";
const char kCrcUsage[] = "crc16 [file]\n  writes the CRC-16 (start value 0) of the bytes of file (or standard input)";

/// Opens `path` for reading ("-" or null: standard input); null after reporting a failure.
FILE* OpenInput(const char* path) {
  if (!path || std::strcmp(path, "-") == 0) return stdin;
  FILE* f = std::fopen(path, "rb");
  if (!f) std::fprintf(stderr, "cmutil: cannot read %s: %s\n", path, std::strerror(errno));
  return f;
}

/// Calls `sink(data, n)` for every chunk of up to 64 KiB read from `path`.
template <class Sink>
bool ReadChunks(const char* path, Sink&& sink) {
  FILE* f = OpenInput(path);
  if (!f) return false;
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) sink(buf, n);
  bool ok = !std::ferror(f);
  if (!ok) std::fprintf(stderr, "cmutil: read error on %s\n", path ? path : "standard input");
  if (f != stdin) std::fclose(f);
  return ok;
}

/// Reads all of `path` ("-" or null: standard input) into `out`.
bool ReadAll(const char* path, std::string& out) {
  return ReadChunks(path, [&out](const char* data, size_t n) { out.append(data, n); });
}

/// Offset of the first byte of `text` outside the Base64 alphabet and its "=" padding
/// (blanks around the text allowed), or npos when the whole text decodes.
size_t FirstNonBase64(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return std::string::npos;
  const size_t end = text.find_last_not_of(" \t") + 1;
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
  const size_t bad = text.find_first_not_of(kAlphabet, begin);
  return bad < end ? bad : std::string::npos;
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
    const size_t bad = FirstNonBase64(text);
    if (bad != std::string::npos) {
      std::fprintf(stderr, "cmutil: b64: not Base64 text: byte 0x%02x at offset %zu\n",
                   static_cast<unsigned char>(text[bad]), bad);
      return 1;
    }
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
  // Chunk by chunk with the running value: any size of input, constant memory.
  unsigned short crc = 0;
  auto step = [&crc](const char* data, size_t n) {
    CalcCRC16(crc, reinterpret_cast<unsigned char*>(const_cast<char*>(data)), static_cast<unsigned int>(n));
  };
  if (!ReadChunks(argc == 2 ? argv[1] : nullptr, step)) return 1;
  std::printf("0x%04X\n", crc);
  return 0;
}

std::string Hex(const std::string& bytes) {
  std::string out;
  char two[4];
  for (unsigned char c : bytes) {
    std::snprintf(two, sizeof two, out.empty() ? "%02x" : " %02x", c);
    out += two;
  }
  return out;
}

/// Writes `value` with `StreamTo` and returns the wire bytes in hex.
template <class T>
std::string WireHex(const T& value, unsigned int room) {
  CCmMessageBlock mb(room);
  CCmByteStreamNetwork os(mb);
  if (value.StreamTo(os) != CM_OK) return "<refused>";
  return Hex(mb.FlattenChained());
}

unsigned int CountBlocks(const CCmMessageBlock* mb) {
  unsigned int n = 0;
  for (; mb; mb = mb->GetNext()) ++n;
  return n;
}

/// Three caller-memory blocks split after 10 bytes, then joined into one buffer.
int DemoChain() {
  static const char kParts[3][9] = {"Hello, ", "message ", "blocks!"};
  CCmMessageBlock b1(7, kParts[0], 0, 7), b2(8, kParts[1], 0, 8), b3(7, kParts[2], 0, 7);
  b1.Append(&b2);
  b2.Append(&b3);
  std::printf("chain: %u blocks, %u bytes \"%s\"\n", CountBlocks(&b1), b1.GetChainedLength(),
              b1.FlattenChained().c_str());
  CCmMessageBlock* rest = b1.Disjoint(10);
  if (!rest) return 1;
  std::printf("Disjoint(10): head %u block(s) \"%s\", rest %u block(s) \"%s\"\n", CountBlocks(&b1),
              b1.FlattenChained().c_str(), CountBlocks(rest), rest->FlattenChained().c_str());
  CCmMessageBlock* joined = b1.DuplicateChained();
  if (!joined) {
    rest->DestroyChained();
    return 1;
  }
  joined->Append(rest);  // every block of both parts is a duplicate now
  CCmMessageBlock* one = joined->CombineSingleBuffer();
  std::printf("joined: %u blocks -> CombineSingleBuffer: %u block, \"%s\"\n", CountBlocks(joined),
              one ? CountBlocks(one) : 0u, one ? one->FlattenChained().c_str() : "<failed>");
  joined->DestroyChained();
  if (!one) return 1;
  one->DestroyChained();
  return 0;
}

int DemoEncodings() {
  CCmMetaData number, text;
  number.Set(5);
  text.Set("x");
  std::printf("metadata int 5: %s\n", WireHex(number, 16).c_str());
  std::printf("metadata string \"x\": %s\n", WireHex(text, 16).c_str());

  CCmParameterList list;
  list.AddParameter(new CCmParameterByIndex(1, 5));
  list.AddParameter(new CCmParameterByIndex(7, "x"));
  std::printf("parameter list {1: 5, 7: \"x\"}: %s\n", WireHex(list, 64).c_str());

  const std::string plain = "Hello, message blocks!";
  CCmString b64, back;
  CM_Base64Encode(reinterpret_cast<const unsigned char*>(plain.data()), plain.size(), b64);
  CM_Base64Decode(b64.c_str(), back);
  std::printf("Base64: \"%s\" -> %s -> \"%s\"\n", plain.c_str(), b64.c_str(), back.c_str());

  unsigned char check[] = "123456789";
  unsigned short crc = 0;
  CalcCRC16(crc, check, 9);
  std::printf("CRC-16 of \"123456789\" from 0: 0x%04X (check value 0xBB3D)\n", crc);
  return back == plain && crc == 0xBB3D ? 0 : 1;
}

int BuffersDemo() {
  int rc = DemoChain();
  return DemoEncodings() != 0 ? 1 : rc;
}

}  // namespace

CMUTIL_REGISTER_COMMAND("b64", kB64Usage, RunB64);
CMUTIL_REGISTER_COMMAND("crc16", kCrcUsage, RunCrc16);
CMUTIL_REGISTER_DEMO(35, "buffers: message blocks, metadata, parameter lists, Base64, CRC-16", BuffersDemo);
