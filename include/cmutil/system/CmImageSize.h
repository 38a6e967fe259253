#pragma once
/// Image size probing: reads the pixel dimensions of an encoded GIF, PNG or baseline
/// JPEG held in memory, without decoding it (for example to size a picture shown in
/// place of video before it is decoded).
///
/// Every function takes the bytes, their length, and two out-parameters. It returns
/// true when it recognised the format and wrote both outputs; on false the outputs are
/// left untouched. A null pointer gives false. Nothing is allocated and nothing is
/// read outside [data, data + length), so the functions are safe on untrusted bytes.
/// They keep no state and may be called from any thread.
///
///   uint32_t w = 0, h = 0;
///   if (kel_get_image_size(bytes, size, w, h)) { ... }

#include <cstdint>

#include "cmutil/base/CmExport.h"

/// GIF (any version): "GIF" at the start, at least 10 bytes; width and height are the
/// little-endian 16-bit values at bytes 6 and 8.
CM_EXPORT bool get_gif_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight);

/// PNG: the 8-byte signature, an "IHDR" chunk first, at least 24 bytes; width and height
/// are the big-endian 32-bit values at bytes 16 and 20.
CM_EXPORT bool get_png_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight);

/// JPEG with a JFIF or Exif header and a baseline frame (marker 0xC0). The segments
/// are walked from the header to the frame. A progressive JPEG (frame marker 0xC2) is
/// not recognised: only the baseline frame marker is looked for.
CM_EXPORT bool get_jpg_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight);

/// Tries GIF, then PNG, then JPEG; the first that recognises the bytes answers.
CM_EXPORT bool kel_get_image_size(const unsigned char* pData, uint32_t dwLength, uint32_t& dwWidth, uint32_t& dwHeight);
