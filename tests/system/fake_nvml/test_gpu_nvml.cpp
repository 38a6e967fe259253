// The GPU server tree (an ASPEED BMC adapter as boot VGA, one NVIDIA card in sysfs)
// with the stand-in NVML library found through LD_LIBRARY_PATH: the NVIDIA devices merge
// into their card by PCI address, the one without a card is appended, the BMC is never
// the default, and the utilisation maximum is clamped to 100.

#include <gtest/gtest.h>

#include "cmutil/system/CmSystemInfo.h"
#include "common/CmFsTree.h"
#include "platform/CmGpuPlatform.h"

TEST(GpuServer, NvmlDevicesMergeIntoTheirCards) {
  cm_allow_nvml_under_root_for_test(true);
  CmFixtureRoot root("gpu-server");
  std::vector<std::string> names;
  std::vector<uint32_t> memory;
  ASSERT_EQ(CM_OK, getGpuInfo(names, memory));
  EXPECT_EQ((std::vector<std::string>{"ASPEED Graphics Family", "NVIDIA A100-SXM4-40GB", "NVIDIA A100-SXM4-40GB"}),
            names);
  EXPECT_EQ((std::vector<uint32_t>{0, 40960, 40960}), memory);
  EXPECT_EQ("NVIDIA A100-SXM4-40GB", getDefaultGpuName());
  long long usage = 0;
  EXPECT_EQ(std::make_pair(true, 100LL), std::make_pair(kel_get_GPU_usage(usage), usage));
  EXPECT_EQ(100.0f, getGpuUsage());
  cm_allow_nvml_under_root_for_test(false);
}
