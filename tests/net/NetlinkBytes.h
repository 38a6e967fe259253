#pragma once
// Builds netlink messages byte by byte for the parser tests: headers, attributes
// (nested ones too) and padding, as the kernel lays them out.

#include <cstdint>
#include <string>
#include <vector>

struct Bytes {
  std::vector<uint8_t> data;
  Bytes& raw(const void* value, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(value);
    data.insert(data.end(), p, p + size);
    return *this;
  }
  template <class T>
  Bytes& put(T value) {
    return raw(&value, sizeof value);
  }
  /// An attribute holding raw bytes, padded to four.
  Bytes& attr(uint16_t type, const void* value, size_t size) {
    put<uint16_t>(static_cast<uint16_t>(4 + size)).put<uint16_t>(type).raw(value, size);
    while (data.size() % 4) data.push_back(0);
    return *this;
  }
  template <class T>
  Bytes& attr(uint16_t type, T value) {
    return attr(type, &value, sizeof value);
  }
  Bytes& attr(uint16_t type, const Bytes& nested) { return attr(type, nested.data.data(), nested.data.size()); }
  Bytes& append(const Bytes& other) { return raw(other.data.data(), other.data.size()); }
};

/// A netlink message of type with seq around payload.
inline Bytes nl_message(uint16_t type, uint32_t seq, const Bytes& payload) {
  Bytes m;
  m.put<uint32_t>(static_cast<uint32_t>(16 + payload.data.size())).put<uint16_t>(type).put<uint16_t>(2);
  return m.put<uint32_t>(seq).put<uint32_t>(0).append(payload);
}

/// A generic netlink message: command header then attributes.
inline Bytes genl_message(uint16_t family, uint32_t seq, uint8_t command, const Bytes& attributes) {
  return nl_message(family, seq, Bytes().put<uint8_t>(command).put<uint8_t>(1).put<uint16_t>(0).append(attributes));
}

inline Bytes nl_done(uint32_t seq) { return nl_message(3, seq, Bytes().put<int32_t>(0)); }

/// An NLMSG_ERROR message: the error, then the request's header (zeroed here).
inline Bytes nl_error(uint32_t seq, int32_t error) {
  return nl_message(2, seq, Bytes().put<int32_t>(error).put<uint64_t>(0).put<uint64_t>(0));
}
