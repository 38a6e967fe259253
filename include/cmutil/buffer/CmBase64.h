#pragma once
/// Base64 text for binary payloads, standard alphabet
/// "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/" with "=" padding.
///
/// Two codecs over the same alphabet:
/// - `CM_Base64Encode` / `CM_Base64Decode` write into a `CCmString`;
/// - `xbase64_*` work on caller buffers of a given capacity and never allocate.
///
/// Decoding skips leading tabs and spaces and then stops SILENTLY at the first byte
/// outside the alphabet ("=", a line break, the terminator, anything else): text behind
/// it is ignored, so "TWFu!TWFu" decodes to "Man". A trailing group of two or three
/// characters gives one or two bytes; a single trailing character gives none.
///
/// Every function is stateless and may be called from any thread. Cost: one pass over
/// the input, three input bytes per four output characters.

#include <cstddef>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmString.h"

/// Replaces `out` with the Base64 text of `length` bytes at `data`. An empty input gives
/// an empty text. Null `data` with a non-zero length: assertion, `out` emptied,
/// `CM_ERROR_INVALID_ARG`.
CM_EXPORT CmResult CM_Base64Encode(const unsigned char* data, size_t length, CCmString& out);

/// Replaces `out` with the bytes that the zero-terminated `text` encodes (see above for
/// where decoding stops). Null `text`: assertion, `out` emptied, `CM_ERROR_INVALID_ARG`.
CM_EXPORT CmResult CM_Base64Decode(const char* text, CCmString& out);

/// Prepares the decoding table of the caller-buffer codec. The codec calls it itself, so
/// calling it is optional; it is idempotent and thread-safe.
CM_EXPORT void xbase64_init_decode_table();

/// Capacity `xbase64_encode` needs for `srcLen` bytes: the text plus its terminator.
CM_EXPORT unsigned int xbase64_calc_encode_buf_size(unsigned int srcLen);

/// Encodes `srcLen` bytes into `dst` (capacity `dstSize`) and terminates the text.
/// Returns the number of characters written (without the terminator), or -1 when a
/// pointer is null or the capacity is below `xbase64_calc_encode_buf_size(srcLen)`
/// (`dst` is then left untouched).
CM_EXPORT int xbase64_encode(const unsigned char* src, unsigned int srcLen, char* dst, unsigned int dstSize);

/// Decodes at most `srcLen` characters of `src` into `dst` (capacity `dstSize`), with the
/// same rules as `CM_Base64Decode` (leading blanks skipped, stop at the first byte outside
/// the alphabet). Returns the number of bytes written, or -1 when a pointer is null or
/// the decoded bytes would not fit (`dst` is then left untouched).
CM_EXPORT int xbase64_decode(const char* src, unsigned int srcLen, unsigned char* dst, unsigned int dstSize);
