// GPU facts on captured trees (an AMD desktop with an Intel iGPU, a GPU server without
// NVML) and hand-made hostile ones, and the pci.ids parser.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <tuple>

#include "cmutil/system/CmSystemInfo.h"
#include "common/CmFsTree.h"
#include "common/CmTraceCapture.h"
#include "system/CmPciIds.h"

namespace {

struct Gpus {
  CmResult result;
  std::vector<std::string> names;
  std::vector<uint32_t> memory;
  std::string defaultName;
  std::pair<bool, long long> usage;  // reported, and the value
};

Gpus read_gpus(long long startUsage = 0) {
  Gpus g;
  g.result = getGpuInfo(g.names, g.memory);
  g.defaultName = getDefaultGpuName();
  g.usage.second = startUsage;
  g.usage.first = kel_get_GPU_usage(g.usage.second);
  return g;
}

TEST(GpuInfo, CapturedTrees) {
  {
    CmFixtureRoot root("amdgpu-desktop");
    CmTraceCapture capture;
    Gpus g = read_gpus();
    EXPECT_EQ(CM_OK, g.result);
    EXPECT_EQ((std::vector<std::string>{"Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]", "AlderLake-S GT1"}), g.names);
    EXPECT_EQ((std::vector<uint32_t>{16368, 0}), g.memory);
    EXPECT_EQ(g.names[0], g.defaultName);
    EXPECT_EQ(std::make_pair(true, 37LL), g.usage);
    EXPECT_TRUE(capture.contains(2, "getGpuInfo: default gpu is Navi 21"));
    EXPECT_TRUE(capture.contains(2, "getGpuInfo: name=AlderLake-S GT1, memory=0"));
  }
  {
    // Without NVML the NVIDIA card is named from pci.ids and nothing drives a display:
    // the BMC adapter is boot VGA but never the default.
    CmFixtureRoot root("gpu-server");
    Gpus g = read_gpus(55);
    EXPECT_EQ((std::vector<std::string>{"ASPEED Graphics Family", "GA100 [A100 SXM4 40GB]"}), g.names);
    EXPECT_EQ("", g.defaultName);
    EXPECT_EQ(std::make_pair(false, 55LL), g.usage);
  }
}

TEST(GpuInfo, HostileAndMissingSources) {
  // the first GPU's name ("": no GPU, and the query fails) and the files
  const std::pair<const char*, CmFsTree::Files> cases[] = {
      {"", {}},                                 // no drm folder
      {"", {{"/sys/class/drm/version", "x"}}},  // an empty one
      {"GPU 0000:0000",                         // garbage ids
       {{"/sys/class/drm/card0/device/vendor", "0xzz"},
        {"/sys/class/drm/card0/device/device", "99999999999999999999"}}},
      {"AMD device 1234",  // vendor only in pci.ids
       {{"/sys/class/drm/card3/device/vendor", "0x1002"},
        {"/sys/class/drm/card3/device/device", "0x1234"},
        {"/usr/share/misc/pci.ids", "1002  AMD\n\t73bf  Navi"}}},
      {"Radeon Pro W6800",  // amdgpu busy beyond range
       {{"/sys/class/drm/card0/device/vendor", "0x1002"},
        {"/sys/class/drm/card0/device/gpu_busy_percent", "250"},
        {"/sys/class/drm/card0/device/driver/x", ""},
        {"/sys/class/drm/card0/device/product_name", "Radeon Pro W6800\n"}}},
  };
  for (const auto& [firstName, files] : cases) {
    SCOPED_TRACE(files.empty() ? "no drm folder" : files[0].first);
    CmFsTree tree(files);
    CmTraceCapture capture;
    Gpus g = read_gpus(7);
    const bool found = *firstName != '\0';
    EXPECT_EQ(found ? CM_OK : CM_ERROR_GENERIC, g.result);
    EXPECT_EQ(firstName, g.names.empty() ? std::string() : g.names[0]);
    EXPECT_EQ(!found, capture.contains(0, "getGpuInfo: fail to get gpu"));
    EXPECT_EQ(std::make_pair(false, 7LL), g.usage);  // none reports a usage
  }
}

TEST(GpuInfo, UtilisationIsTheClampedMaximumAndSuspendedCardsAreIdle) {
  const std::string a = "/sys/devices/pci0000:00/0000:03:00.0", b = "/sys/devices/pci0000:00/0000:04:00.0";
  CmFsTree tree({{a + "/vendor", "0x1002"},
                 {a + "/gpu_busy_percent", "120"},
                 {b + "/vendor", "0x1002"},
                 {b + "/gpu_busy_percent", "90"},
                 {b + "/power/runtime_status", "suspended"},
                 {"/sys/class/drm/card0/uevent", ""},
                 {"/sys/class/drm/card1/uevent", ""}});
  for (const auto& card : {std::make_pair("card0", a), std::make_pair("card1", b)}) {
    const std::string at = tree.path() + "/sys/class/drm/" + card.first + "/device";
    ASSERT_EQ(0, symlink(("../../.." + card.second.substr(4)).c_str(), at.c_str()));
    ASSERT_EQ(0, symlink("../../../../bus/pci/drivers/amdgpu", (tree.path() + card.second + "/driver").c_str()));
  }
  long long usage = 0;  // 120 clamped; the suspended card counts 0, its 90 unread
  EXPECT_EQ(std::make_pair(true, 100LL), std::make_pair(kel_get_GPU_usage(usage), usage));
  tree.Write(a + "/gpu_busy_percent", "12");
  EXPECT_EQ(12, kel_get_GPU_usage());

  // Every reading closes its files: a hundred of them fit under a limit of 32 descriptors.
  rlimit old{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
  rlimit low{32, old.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &low));
  int same = 0;
  for (int i = 0; i < 100; ++i) same += kel_get_GPU_usage() == 12;
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_EQ(100, same);
}

TEST(GpuInfo, ListIsRememberedAfterTheFirstSuccess) {
  CmFsTree tree({{"/sys/class/drm/card0/device/vendor", "0x8086"}, {"/sys/class/drm/card0/device/device", "0x4680"}});
  std::vector<std::string> names{"kept"};
  std::vector<uint32_t> memory;
  ASSERT_EQ(CM_OK, getGpuInfo(names, memory));
  EXPECT_EQ((std::vector<std::string>{"kept", "GPU 8086:4680"}), names);  // a fill appends
  tree.Write("/sys/class/drm/card1/device/vendor", "0x1002");
  ASSERT_EQ(CM_OK, getGpuInfo(names, memory));
  EXPECT_EQ((std::vector<std::string>{"GPU 8086:4680"}), names);  // the cache is copied out
}

TEST(GpuInfo, PciIdsLookup) {
  const std::string ids =  // a comment and a blank line inside a vendor do not end it
      "# comment\n10de  NVIDIA Corporation\n# note\n\n\t20b0  GA100\n\t\t10de 1450  A100 SXM4\n"
      "1002  Advanced Micro Devices\n\t73bF  Navi 21\nC 03  Display controller\n";
  // vendor and device ids; whether found, and the names
  const std::tuple<unsigned, unsigned, bool, std::string, std::string> cases[] = {
      {0x10de, 0x20b0, true, "NVIDIA Corporation", "GA100"},
      {0x10de, 0x1450, true, "NVIDIA Corporation", ""},  // a subsystem line is no device
      {0x1002, 0x73bf, true, "Advanced Micro Devices", "Navi 21"},
      {0x8086, 0x1234, false, "", ""}};
  for (const auto& [vendorId, deviceId, found, vendorName, deviceName] : cases) {
    std::string vendor = "x", device = "x";
    EXPECT_EQ(found, cm_pci_ids_lookup(ids, vendorId, deviceId, vendor, device)) << std::hex << deviceId;
    EXPECT_EQ(std::tie(vendorName, deviceName), std::tie(vendor, device));
  }
  std::string vendor, device;
  for (const char* bad : {"", "10de", "10de\n\t20b0", "zzzz  x\n", "\t\t\t", "10de  N\n\t"})
    EXPECT_FALSE(cm_pci_ids_lookup(bad, 0x10df, 0x20b0, vendor, device)) << bad;
}

}  // namespace
