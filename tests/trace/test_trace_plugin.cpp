// Trace plug-in bridge: level map, loading beside the library or from ../PlugIns,
// forwarding through route 1, absence of the plug-in, troubleshooting settings.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "cmutil/config/KelDebugFileConfig.h"
#include "cmutil/trace/CmTrace.h"
#include "cmutil/trace/CmTvxTrace.h"

namespace {

std::string library_folder() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&util_adapter_trace), &info) || !info.dli_fname) return std::string();
  std::string path = info.dli_fname;
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string bundle_path() { return library_folder() + "/tvxtrace.bundle"; }

bool bundle_present() {
  struct stat st;
  return stat(bundle_path().c_str(), &st) == 0;
}

struct PluginCall {
  int level = -1;
  std::string module, label, text;
  int textLen = 0;
};

// Reads back what the test plug-in received, through its own test functions.
class PluginProbe {
 public:
  explicit PluginProbe(const std::string& path) {
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) return;
    m_count = reinterpret_cast<int (*)()>(dlsym(m_handle, "tvx_test_count"));
    m_call = reinterpret_cast<bool (*)(int, int*, char*, char*, char*, int*)>(dlsym(m_handle, "tvx_test_call"));
    m_reset = reinterpret_cast<void (*)()>(dlsym(m_handle, "tvx_test_reset"));
  }
  ~PluginProbe() {
    if (m_handle) dlclose(m_handle);
  }
  bool ok() const { return m_count && m_call && m_reset; }
  int count() const { return m_count(); }
  void reset() const { m_reset(); }
  PluginCall call(int i) const {
    PluginCall c;
    char module[64], label[64], text[512];
    if (m_call(i, &c.level, module, label, text, &c.textLen)) {
      c.module = module;
      c.label = label;
      c.text = text;
    }
    return c;
  }

 private:
  void* m_handle = nullptr;
  int (*m_count)() = nullptr;
  bool (*m_call)(int, int*, char*, char*, char*, int*) = nullptr;
  void (*m_reset)() = nullptr;
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
  }
  // Loads the test plug-in beside the library and starts counting what it receives.
  void LoadPluginAndProbe() {
    m_tvx->Init();
    ASSERT_TRUE(m_tvx->IsLoadDllSuccessfully());
    m_probe.reset(new PluginProbe(bundle_path()));
    ASSERT_TRUE(m_probe->ok());
    m_probe->reset();
  }
  CCmTvxTrace* m_tvx = nullptr;
  std::unique_ptr<PluginProbe> m_probe;
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
  if (!bundle_present()) GTEST_SKIP() << "no test plug-in at " << bundle_path();
  ASSERT_NO_FATAL_FAILURE(LoadPluginAndProbe());
  PluginProbe& probe = *m_probe;
  util_adapter_trace(1, "UTIL", "a warning", 9);
  util_adapter_trace(0, "UTIL", "an error", 8);
  util_adapter_trace(7, "UTIL", "level seven", 11);
  util_adapter_trace(2, nullptr, "no module", 9);
  ASSERT_EQ(4, probe.count());
  const PluginCall warning = probe.call(0);  // the second label is always empty; the text undecorated
  EXPECT_EQ(std::make_tuple(4, "UTIL", "", "a warning"),
            std::tie(warning.level, warning.module, warning.label, warning.text));
  EXPECT_EQ(std::make_tuple(8, 0, 2, "UTIL"),
            std::make_tuple(probe.call(1).level, probe.call(2).level, probe.call(3).level, probe.call(3).module));

  ASSERT_TRUE(m_tvx->UpdateTraceLevel(2, 5));
  util_adapter_trace(2, "UTIL", "remapped", 8);
  EXPECT_EQ(5, probe.call(4).level);
  ASSERT_TRUE(m_tvx->UpdateTraceLevel(2, 2));

  // A 5000-character text reaches the plug-in in pieces 2047 characters apart.
  probe.reset();
  std::string longText(5000, 'L');
  util_adapter_trace(2, "UTIL", longText.c_str(), 5000);
  ASSERT_EQ(3, probe.count());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(5000 - 2047 * i, probe.call(i).textLen);

  // After Close() forwarding does nothing and fails nothing.
  m_tvx->Close();
  EXPECT_FALSE(m_tvx->IsLoadDllSuccessfully());
  probe.reset();
  util_adapter_trace(0, "UTIL", "not forwarded", 13);
  EXPECT_FALSE(m_tvx->trace_string(0, "UTIL", "direct"));
  EXPECT_EQ(0, probe.count());
  m_tvx->Init();
  EXPECT_TRUE(m_tvx->IsLoadDllSuccessfully());
}

TEST_F(PluginRouteTest, PluginGetsOnlyTheGivenLengthOfAnUnterminatedText) {
  if (!bundle_present()) GTEST_SKIP() << "no test plug-in at " << bundle_path();
  ASSERT_NO_FATAL_FAILURE(LoadPluginAndProbe());
  PluginProbe& probe = *m_probe;
  // Text followed by more text: only the first five characters are the message.
  const char longer[] = "abcdeFOLLOWING";
  util_adapter_trace(2, "UTIL", longer, 5);
  // A heap block of exactly five bytes, no terminator: reading past it is caught by ASan.
  std::unique_ptr<char[]> exact(new char[5]);
  memcpy(exact.get(), "vwxyz", 5);
  util_adapter_trace(2, "UTIL", exact.get(), 5);
  ASSERT_EQ(2, probe.count());
  EXPECT_EQ(std::make_tuple("abcde", 5, "vwxyz", 5),
            std::make_tuple(probe.call(0).text, probe.call(0).textLen, probe.call(1).text, probe.call(1).textLen));
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
