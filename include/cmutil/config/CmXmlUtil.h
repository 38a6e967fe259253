#pragma once
/// Field lookups in flat XML text by plain substring search.
///
/// There is no XML parser here: no attributes, nesting awareness, entities or
/// namespaces. The string lookup finds the first "<tag>", skips blanks after it, finds
/// the first "</tag>" after that and returns the text between, without trailing blanks.
/// Typed lookups parse that text with their scanf format; anything missing or
/// unparsable yields the default. Tag names are used up to 255 characters.
///
/// All functions are pure (no state); safe from any thread.

#include "cmutil/base/CmExport.h"

/// Copies the element's text into `out` (which needs maxLen + 1 bytes) and returns
/// `out`; returns `def` itself (not copied, `out` untouched) when the element is missing,
/// blank to the end of the text, or longer than maxLen.
CM_EXPORT char* get_string_from_XML(const char* xml, const char* tag, int maxLen, char* out, char* def);
/// The same with a 16-bit limit.
CM_EXPORT char* xml_get_string(const char* xml, const char* tag, unsigned short maxLen, char* out, char* def);
/// "%u" of the element's text (at most 64 characters).
CM_EXPORT unsigned int get_uint32_from_XML(const char* xml, const char* tag, unsigned long def);
/// "%d" of the element's text.
CM_EXPORT int get_int32_from_XML(const char* xml, const char* tag, unsigned long def);
/// "%f" into a 32-bit float, widened: values carry float precision only.
CM_EXPORT double get_double_from_XML(const char* xml, const char* tag, double def);
/// "%lu".
CM_EXPORT unsigned long xml_get_uint32(const char* xml, const char* tag, unsigned long def);
/// "%ld".
CM_EXPORT long xml_get_int32(const char* xml, const char* tag, unsigned long def);
/// "%ld", then the low 16 bits (70000 gives 4464).
CM_EXPORT unsigned short xml_get_uint16(const char* xml, const char* tag, unsigned short def);
/// Same as xml_get_uint16.
CM_EXPORT unsigned short xml_get_int16(const char* xml, const char* tag, unsigned short def);
