// Trace plug-in bridge: level map, loading beside the library or from ../PlugIns,
// forwarding through route 1, absence of the plug-in, troubleshooting settings.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "cmutil/config/KelDebugFileConfig.h"
#include "cmutil/trace/CmTrace.h"
#include "cmutil/trace/CmTvxTrace.h"

namespace {

// The test plug-in, beside the library.
std::string bundle_path() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&util_adapter_trace), &info) || !info.dli_fname) return "/tvxtrace.bundle";
  const std::string library = info.dli_fname;
  const size_t slash = library.rfind('/');
  return (slash == std::string::npos ? std::string(".") : library.substr(0, slash)) + "/tvxtrace.bundle";
}

struct PluginCall {
  int level;
  std::string module, label, text;
  int textLen;
};

// Route 1 only, restoring the option word and mask afterwards.
class PluginRouteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_option = cm_get_trace_option();
    m_mask = g_traceMask.load();
    cm_set_trace_option(CM_TRACE_ROUTE_PLUGIN);
    set_external_trace_mask(4);
    m_tvx = CCmTvxTrace::instance();
    ASSERT_NE(nullptr, m_tvx);
  }
  void TearDown() override {
    cm_set_trace_option(m_option);
    set_external_trace_mask(m_mask);
    if (m_handle) dlclose(m_handle);
  }
  // Call i as the plug-in kept it; level -1 and empty texts when it is not kept.
  PluginCall call(int i) const {
    int level = -1, textLen = 0;
    char module[64] = "", label[64] = "", text[512] = "";
    m_call(i, &level, module, label, text, &textLen);
    return {level, module, label, text, textLen};
  }
  CCmTvxTrace* m_tvx = nullptr;
  void* m_handle = nullptr;
  int (*m_count)() = nullptr;
  bool (*m_call)(int, int*, char*, char*, char*, int*) = nullptr;
  void (*m_reset)() = nullptr;
  int m_option = 0, m_mask = 0;
};

}  // namespace

TEST_F(PluginRouteTest, LevelMap) {
  const std::pair<unsigned, int> expected[] = {{0, 8}, {1, 4}, {2, 2}, {3, 1}, {4, 1}, {5, 0}, {6, 0}, {255, 0}};
  int value = -1;
  for (const auto& e : expected) EXPECT_TRUE(m_tvx->GetTraceLevel(e.first, value) && value == e.second) << e.first;
  EXPECT_FALSE(m_tvx->GetTraceLevel(256, value));
  EXPECT_FALSE(m_tvx->UpdateTraceLevel(300, 9));
  EXPECT_TRUE(m_tvx->UpdateTraceLevel(255, 9) && m_tvx->GetTraceLevel(255, value) && value == 9);  // the last level
  EXPECT_TRUE(m_tvx->UpdateTraceLevel(255, 0));
}

TEST_F(PluginRouteTest, PluginBesideTheLibraryReceivesMappedLevels) {
  if (access(bundle_path().c_str(), F_OK) != 0) GTEST_SKIP() << "no test plug-in at " << bundle_path();
  // Loads the test plug-in beside the library and starts counting what it receives,
  // read back through the plug-in's own test functions.
  m_tvx->Init();
  ASSERT_TRUE(m_tvx->IsLoadDllSuccessfully());
  m_handle = dlopen(bundle_path().c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, m_handle) << dlerror();
  m_count = reinterpret_cast<int (*)()>(dlsym(m_handle, "tvx_test_count"));
  m_call = reinterpret_cast<bool (*)(int, int*, char*, char*, char*, int*)>(dlsym(m_handle, "tvx_test_call"));
  m_reset = reinterpret_cast<void (*)()>(dlsym(m_handle, "tvx_test_reset"));
  ASSERT_TRUE(m_count && m_call && m_reset);
  m_reset();
  util_adapter_trace(1, "UTIL", "a warning", 9);
  util_adapter_trace(0, "UTIL", "an error", 8);
  util_adapter_trace(7, "UTIL", "level seven", 11);
  util_adapter_trace(2, nullptr, "no module", 9);
  ASSERT_EQ(4, m_count());
  // The second label is always empty; the text undecorated.
  EXPECT_EQ(std::make_tuple(4, "UTIL", "", "a warning"),
            std::make_tuple(call(0).level, call(0).module, call(0).label, call(0).text));
  EXPECT_EQ(std::make_tuple(8, 0, 2, "UTIL"),
            std::make_tuple(call(1).level, call(2).level, call(3).level, call(3).module));

  ASSERT_TRUE(m_tvx->UpdateTraceLevel(2, 5));
  util_adapter_trace(2, "UTIL", "remapped", 8);
  EXPECT_EQ(5, call(4).level);
  ASSERT_TRUE(m_tvx->UpdateTraceLevel(2, 2));

  // A 5000-character text reaches the plug-in in pieces 2047 characters apart. Of a text
  // followed by more text, and of a heap block of exactly five bytes with no terminator
  // (reading past it is caught by ASan), only the given five characters are the message.
  m_reset();
  std::string longText(5000, 'L');
  util_adapter_trace(2, "UTIL", longText.c_str(), 5000);
  const char longer[] = "abcdeFOLLOWING";
  util_adapter_trace(2, "UTIL", longer, 5);
  std::unique_ptr<char[]> exact(new char[5]);
  memcpy(exact.get(), "vwxyz", 5);
  util_adapter_trace(2, "UTIL", exact.get(), 5);
  ASSERT_EQ(5, m_count());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(5000 - 2047 * i, call(i).textLen);
  EXPECT_EQ(std::make_tuple("abcde", 5, "vwxyz", 5),
            std::make_tuple(call(3).text, call(3).textLen, call(4).text, call(4).textLen));

  // After Close() forwarding does nothing and fails nothing.
  m_tvx->Close();
  EXPECT_FALSE(m_tvx->IsLoadDllSuccessfully());
  m_reset();
  util_adapter_trace(0, "UTIL", "not forwarded", 13);
  EXPECT_FALSE(m_tvx->trace_string(0, "UTIL", "direct"));
  EXPECT_EQ(0, m_count());
  m_tvx->Init();
  EXPECT_TRUE(m_tvx->IsLoadDllSuccessfully());
}

TEST_F(PluginRouteTest, TroubleshootingSettingsRaiseTheMask) {
  CKelDebugFileConfig& config = CKelDebugFileConfig::instance();
  set_external_trace_mask(0);
  g_kel_trace_topprocess.store(0);
  m_tvx->UpdateTroubleShotConfigStatus();  // nothing configured: nothing changes
  EXPECT_EQ(std::make_pair(0, 0), std::make_pair(g_traceMask_TroubleShootConfig.load(), g_kel_trace_topprocess.load()));

  config.SetValueInt("kel_trace_level", 3);
  config.SetValueInt("kel_trace_topprocess", 1);
  m_tvx->UpdateTroubleShotConfigStatus();
  EXPECT_EQ(std::make_tuple(3, 3, 1), std::make_tuple(g_traceMask_TroubleShootConfig.load(), get_external_trace_mask(),
                                                      g_kel_trace_topprocess.load()));

  config.SetValueString("kel_trace_level", "9");  // not an int: ignored
  m_tvx->UpdateTroubleShotConfigStatus();
  EXPECT_EQ(3, g_traceMask_TroubleShootConfig.load());

  config.CleanDebugConfigs();
  set_troubleshoot_trace_mask(0);
  g_kel_trace_topprocess.store(0);
}
