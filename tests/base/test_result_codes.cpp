#include <gtest/gtest.h>

#include <set>

#include "cmutil/base/CmError.h"

// The numeric codes cross process and library boundaries (trace lines, host code), so
// each one is pinned here.
TEST(ResultCodes, ValuesAreStable) {
  const std::pair<CmResult, uint32_t> codes[] = {
      {CM_OK, 0},
      {CM_ERROR_GENERIC, 0x46000001},
      {CM_ERROR_FAILURE, 0x46004001},
      {CM_ERROR_OUT_OF_MEMORY, 0x46004002},
      {CM_ERROR_INVALID_ARG, 0x46004003},
      {CM_ERROR_NOT_IMPLEMENTED, 0x46004004},
      {CM_ERROR_NO_INTERFACE, 0x46004005},
      {CM_ERROR_NULL_POINTER, 0x46004006},
      {CM_ERROR_NOT_INITIALIZED, 0x46004008},
      {CM_ERROR_NOT_FOUND, 0x46004103},
      {CM_ERROR_ALREADY_CREATED, 0x46004132},
      {CM_ERROR_THREAD_CREATE, 0x46004133},
      {CM_ERROR_INCOMPLETE, 0x46004134},
      {CM_ERROR_FOUND, 0x46004136},
      {CM_ERROR_PARTIAL_DATA, 0x46004137},
      {CM_ERROR_TIMEOUT, 0x46004138},
      {CM_ERROR_ABORTED, 0x46004142},
  };
  std::set<CmResult> distinct;
  for (const auto& code : codes) {
    EXPECT_EQ(static_cast<uint32_t>(code.first), code.second);
    distinct.insert(code.first);
  }
  EXPECT_EQ(distinct.size(), sizeof codes / sizeof codes[0]);
  EXPECT_TRUE(CM_SUCCEEDED(CM_OK));
  EXPECT_TRUE(CM_FAILED(CM_ERROR_TIMEOUT));
}
