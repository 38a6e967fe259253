#pragma once
// Wire bytes in and out of message blocks, for the tests of the streamed types.

#include <string>
#include <vector>

#include "cmutil/buffer/CmByteStream.h"
#include "cmutil/buffer/CmMessageBlock.h"

typedef std::vector<unsigned char> V;

/// The bytes of mb's whole chain.
inline V Bytes(CCmMessageBlock& mb) {
  std::string s = mb.FlattenChained();
  return V(s.begin(), s.end());
}

/// Parses `wire` into `out` through its StreamFrom; returns the result code.
template <class T>
CmResult Parse(const V& wire, T& out) {
  CCmMessageBlock mb(static_cast<unsigned int>(wire.size()), reinterpret_cast<const char*>(wire.data()), 0,
                     static_cast<unsigned int>(wire.size()));
  CCmByteStreamNetwork is(mb);
  return out.StreamFrom(is);
}
