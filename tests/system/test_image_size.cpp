#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "cmutil/system/CmImageSize.h"

namespace {

typedef std::vector<unsigned char> Bytes;

Bytes ReadFixture(const char* name) {
  std::ifstream in(std::string(CMUTIL_TEST_FIXTURES) + "/images/" + name, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t Len(const Bytes& b) { return static_cast<uint32_t>(b.size()); }

const uint32_t kUntouched = 0xDEADBEEF;

// A minimal JFIF header (APP0, length 16), or the same as Exif (APP1), then the given tail.
Bytes JfifWith(const Bytes& tail, bool exif = false) {
  Bytes b = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J',  'F',  'I',  'F',
             0x00, 0x01, 0x01, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00};
  if (exif) b[3] = 0xE1, b[6] = 'E', b[7] = 'x', b[8] = 'i', b[9] = 'f';
  b.reserve(b.size() + tail.size());  // also keeps g++ 12 from a false -Warray-bounds
  b.insert(b.end(), tail.begin(), tail.end());
  return b;
}

TEST(ImageSizeFixtures, EveryTruncationOfRealFiles) {
  // Each prefix of each file is copied into a buffer of exactly its size and probed, so
  // ASan reports any read beyond it. A prefix is recognised exactly when it holds the
  // header up to the dimensions: GIF 10 bytes, PNG 24, JPEG the frame marker + 9; a
  // progressive JPEG never is. Then it gives the file's size; a failure leaves w and h.
  Bytes jpg = ReadFixture("sample.jpg");
  const unsigned char kSof0[] = {0xFF, 0xC0};  // the first baseline frame marker
  const size_t jpgFrame = static_cast<size_t>(std::search(jpg.begin(), jpg.end(), kSof0, kSof0 + 2) - jpg.begin());
  ASSERT_LT(jpgFrame + 1, jpg.size());
  // file, the first recognised prefix (0: never), width, height
  const std::tuple<const char*, size_t, uint32_t, uint32_t> cases[] = {{"sample.gif", 10, 37, 21},
                                                                       {"sample.png", 24, 45, 29},
                                                                       {"sample.jpg", jpgFrame + 9, 53, 17},
                                                                       {"sample_progressive.jpg", 0, 0, 0}};
  for (const auto& [name, firstRecognised, width, height] : cases) {
    Bytes full = ReadFixture(name);
    ASSERT_FALSE(full.empty()) << name;
    for (size_t n = 0; n <= full.size(); ++n) {
      Bytes prefix(full.begin(), full.begin() + static_cast<long>(n));
      uint32_t w = kUntouched, h = kUntouched;
      const bool ok = kel_get_image_size(prefix.empty() ? nullptr : prefix.data(), static_cast<uint32_t>(n), w, h);
      ASSERT_EQ(firstRecognised != 0 && n >= firstRecognised, ok) << name << " prefix " << n;
      ASSERT_EQ(ok ? std::make_pair(width, height) : std::make_pair(kUntouched, kUntouched), std::make_pair(w, h))
          << name << " prefix " << n;
    }
  }
  uint32_t w = 0, h = 0;
  Bytes gif = ReadFixture("sample.gif"), png = ReadFixture("sample.png");
  // Each format's own reader takes it; the others refuse it.
  EXPECT_EQ(std::make_tuple(true, false, false, true, false, true, false),
            std::make_tuple(get_gif_size(gif.data(), Len(gif), w, h), get_png_size(gif.data(), Len(gif), w, h),
                            get_jpg_size(gif.data(), Len(gif), w, h), get_png_size(png.data(), Len(png), w, h),
                            get_gif_size(png.data(), Len(png), w, h), get_jpg_size(jpg.data(), Len(jpg), w, h),
                            get_png_size(jpg.data(), Len(jpg), w, h)));
}

TEST(ImageSizeJpeg, WalksSegmentsToBaselineFrame) {
  Bytes b = JfifWith({0xFF, 0xDB, 0x00, 0x04, 0xAA, 0xBB,  // a table segment
                      0xFF, 0xFE, 0x00, 0x03, 'h',         // a comment
                      // baseline frame: length 17, precision 8, height 0x0102, width 0x0304, 3 components
                      0xFF, 0xC0, 0x00, 0x11, 0x08, 0x01, 0x02, 0x03, 0x04, 0x03},
                     true);  // behind an Exif header
  uint32_t w = 0, h = 0;
  EXPECT_EQ(std::make_tuple(true, 0x0304u, 0x0102u), std::make_tuple(get_jpg_size(b.data(), Len(b), w, h), w, h));

  // A segment that does not start with 0xFF where a marker is expected stops the walk.
  Bytes broken = b;
  broken[20 + 6] = 0x00;
  EXPECT_FALSE(get_jpg_size(broken.data(), Len(broken), w, h));
}

TEST(ImageSizeJpeg, ShortAndMalformedInputs) {
  // A first segment length past the end; a marker whose length bytes are cut off; zero-length
  // segments, which still advance (two bytes each) and end at the buffer end; eleven bytes.
  Bytes far = JfifWith({});
  far[4] = far[5] = 0xFF;
  const Bytes cases[] = {far, JfifWith({0xFF, 0xDB, 0x00}), JfifWith({0xFF, 0xDB, 0x00, 0x00, 0xFF, 0xDB, 0x00, 0x00}),
                         Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0}};
  uint32_t w = 0, h = 0;
  for (const Bytes& b : cases) EXPECT_FALSE(get_jpg_size(b.data(), Len(b), w, h)) << "case " << &b - cases;
}

TEST(ImageSizeAny, NullAndEmptyInputs) {
  uint32_t w = kUntouched, h = kUntouched;
  const unsigned char one = 'G';
  EXPECT_EQ(std::make_tuple(false, false, false, false, false),
            std::make_tuple(kel_get_image_size(nullptr, 0, w, h), get_gif_size(nullptr, 64, w, h),
                            get_png_size(nullptr, 64, w, h), get_jpg_size(nullptr, 100, w, h),
                            kel_get_image_size(&one, 1, w, h)));
  EXPECT_EQ(std::make_pair(kUntouched, kUntouched), std::make_pair(w, h));
}

}  // namespace
