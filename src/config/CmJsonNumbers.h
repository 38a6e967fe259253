#pragma once
// Number helpers shared by the JSON value and the JSON reader.

#include <cmath>
#include <cstdint>

namespace json {
namespace detail {

// A double cut toward zero into 64 bits; NaN gives 0, out-of-range values the limits.
inline int64_t trunc_to_int64(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9223372036854775808.0) return INT64_MAX;
  if (d < -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(d);
}

}  // namespace detail
}  // namespace json
