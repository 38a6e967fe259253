// CKelDebugFileConfig: read permission, the JSON file, typed lookups and stores.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "ConfigTestUtil.h"
#include "cmutil/config/KelDebugFileConfig.h"
#include "common/CmTraceCapture.h"
#include "config/CmConfigInternal.h"

namespace {

struct FixedPathProvider : IConfigPathProvider {
  FixedPathProvider(std::string path, int rv = 0) : m_path(std::move(path)), m_rv(rv) {}
  int GetConfigBasePath(std::string& path) override {
    if (m_rv == 0) path = m_path;
    return m_rv;
  }
  std::string m_path;
  int m_rv;
};

const char* const kNoPermission = "[CKelDebugFileConfig::ReadAndSetDebugConfigs] Error: No read permission set.";
const char* const kReadFailed = "[CKelDebugFileConfig::ReadAndSetDebugConfigs] Error: Failed to read the config file.";
const char* const kPathFailed =
    "[CKelDebugFileConfig::ReadAndSetDebugConfigs] Error: Failed to get the config file path.";

}  // namespace

TEST(KelDebugFileConfig, DefaultBasePathIsInTheUserConfigurationFolder) {
  CmScopedEnv home("XDG_CONFIG_HOME", "/tmp/cfg-home");
  std::string path;
  EXPECT_EQ(CM_OK, DefaultConfigPathProvider().GetConfigBasePath(path));
  EXPECT_EQ("/tmp/cfg-home/Kalda Brenn", path);
}

TEST(KelDebugFileConfig, ReadingNeedsPermissionAndFilesMergeIntoTheStore) {
  CmTempDir dir;
  dir.write("config.json", "{\"level\": 3}");
  CKelDebugFileConfig config;
  FixedPathProvider provider(dir.path());
  CmTraceCapture cap;
  EXPECT_FALSE(config.GetReadPermission());
  EXPECT_EQ(CM_ERROR_FAILURE, config.ReadAndSetDebugConfigs(&provider));
  EXPECT_TRUE(cap.contains(0, kNoPermission));
  int level = 0;
  EXPECT_EQ(CM_ERROR_FAILURE, config.GetValueInt("level", level));

  EXPECT_EQ(CM_OK, config.SetReadPermission(true));
  EXPECT_TRUE(config.GetReadPermission());
  FixedPathProvider noPath("", CM_ERROR_NOT_FOUND), noFile(dir.path() + "/missing");
  EXPECT_EQ(CM_ERROR_NOT_FOUND, config.ReadAndSetDebugConfigs(&noPath));
  EXPECT_TRUE(cap.contains(0, kPathFailed));
  EXPECT_EQ(CM_ERROR_FAILURE, config.ReadAndSetDebugConfigs(&noFile));
  EXPECT_TRUE(cap.contains(0, kReadFailed));
  EXPECT_EQ(CM_OK, config.ReadAndSetDebugConfigs(&provider));  // "level" is checked at the end

  // Later files merge into the store.
  dir.write("config.json", "{\"i\": 5, \"d\": 2.5, \"b\": true, \"s\": \"on\", \"u\": 3000000000}");
  ASSERT_EQ(CM_OK, config.ReadAndSetDebugConfigs(&provider));
  EXPECT_EQ(CM_OK, config.SetValueInt("runtime", 9));
  // A second file without "runtime" (or "level") keeps it; named keys are replaced.
  dir.write("config.json", "{\"i\": 6}");
  ASSERT_EQ(CM_OK, config.ReadAndSetDebugConfigs(&provider));
  int i = 0, runtime = 0, u = 7;
  double d = 0, whole = -1;
  bool b = false;
  std::string s;
  EXPECT_EQ(std::make_tuple(CM_OK, CM_OK, CM_OK, CM_OK, CM_OK, CM_OK),
            std::make_tuple(config.GetValueInt("level", level), config.GetValueInt("i", i),
                            config.GetValueInt("runtime", runtime), config.GetValueDouble("d", d),
                            config.GetValueBool("b", b), config.GetValueString("s", s)));
  EXPECT_EQ(std::make_tuple(3, 6, 9, 2.5, true, std::string("on")), std::make_tuple(level, i, runtime, d, b, s));
  // An unsigned is not an int and a whole number is an int: both fail and leave the target.
  EXPECT_EQ(CM_ERROR_FAILURE, config.GetValueInt("u", u));
  EXPECT_EQ(CM_ERROR_FAILURE, config.GetValueDouble("i", whole));
  EXPECT_EQ(std::make_pair(7, -1.0), std::make_pair(u, whole));
}

TEST(KelDebugFileConfig, ConcurrentStoresAndLookups) {
  CKelDebugFileConfig config;
  CmTraceCapture quiet(1);  // keep the store traces out of the way
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&config, t] {
      for (int i = 0; i < 2000; ++i) {
        std::string key = "k" + std::to_string(i % 16);
        if (t % 2) {
          config.SetValueInt(key, i);
        } else {
          int v = -1;
          std::string s;
          if (config.GetValueInt(key, v) == CM_OK) {
            EXPECT_GE(v, 0);
          }
          config.SetValueString("s" + std::to_string(t), "x");
          config.GetValueString(key, s);
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  int v = -1;
  EXPECT_EQ(CM_OK, config.GetValueInt("k15", v));
  EXPECT_EQ(15, v % 16);
}
