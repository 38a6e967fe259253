#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/config/CmConfigIO.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "common/CmTraceCapture.h"
#include "config/ConfigTestUtil.h"
#include "trace/CmT120Trace.h"
#include "trace/CmTraceInternal.h"

namespace {

int g_built = 0;
const char* count_build(const char* text) {
  ++g_built;
  return text;
}

std::vector<std::string> g_logstash;
void logstash_sink(int, const char* text, int len) { g_logstash.emplace_back(text, static_cast<size_t>(len)); }

CmResult guarded(const char* p) {
  CM_ASSERTE_RETURN(p != nullptr, CM_ERROR_INVALID_ARG);
  return CM_OK;
}

}  // namespace

TEST(TraceCore, MaskDecidesWhichLevelsAreBuilt) {
  CmTraceCapture cap(0);
  g_built = 0;
  CM_ERROR_TRACE(count_build("e"));
  CM_WARNING_TRACE(count_build("w"));
  CM_INFO_TRACE(count_build("i"));
  EXPECT_EQ(g_built, 1);  // suppressed sites do not even evaluate their text
  ASSERT_EQ(cap.lines().size(), 1u);
  EXPECT_EQ(std::make_pair(0, std::string("[UTIL] e")), std::make_pair(cap.lines()[0].level, cap.lines()[0].text));

  set_external_trace_mask(2);
  CM_INFO_TRACE("info");
  CM_DETAIL_TRACE("detail");
  EXPECT_TRUE(cap.contains(2, "[UTIL] info"));
  EXPECT_FALSE(cap.contains("detail"));
}

TEST(TraceCore, SinkReceivesOnlyWithBitFour) {
  CmTraceCapture cap;
  g_logstash.clear();
  set_util_logstash_external_trace_sink(logstash_sink);

  cm_set_trace_option(CM_TRACE_ROUTE_SINK | CM_TRACE_ROUTE_LOGSTASH);
  util_adapter_trace(2, "MOD", "exclusive", 9);
  EXPECT_TRUE(cap.contains("[MOD] exclusive"));
  EXPECT_TRUE(g_logstash.empty());  // the external sink takes the line alone

  // Without bit 4 the sink is ignored; the plug-in and trace-file routes run too, the
  // files under a temporary state folder (never the real one of the user).
  {
    CmTempDir state;
    CmScopedEnv env("XDG_STATE_HOME", state.path().c_str());
    if (CCmT120Trace* files = CCmT120Trace::existing()) files->reset_for_test();
    cm_set_trace_option(CM_TRACE_ROUTE_PLUGIN | CM_TRACE_ROUTE_FILE | CM_TRACE_ROUTE_LOGSTASH);
    util_adapter_trace(1, nullptr, "routed", 6);
    cm_set_trace_option(CM_TRACE_ROUTE_SINK);
    CCmT120Trace* files = CCmT120Trace::existing();
    ASSERT_NE(files, nullptr);
    EXPECT_EQ(files->info_path().rfind(state.path() + "/", 0), 0u) << files->info_path();
    files->reset_for_test(false);  // closes the files before their folder goes
  }
  EXPECT_FALSE(cap.contains("routed"));
  EXPECT_EQ(g_logstash, std::vector<std::string>{"[UTIL] routed"});
  set_util_logstash_external_trace_sink(nullptr);
}

TEST(TraceCore, NullTextNegativeLengthAndLongMessage) {
  CmTraceCapture cap;
  util_adapter_trace(2, "UTIL", nullptr, 7);  // a null text is an empty one
  util_adapter_trace(2, "UTIL", nullptr, -1);
  util_adapter_trace(2, "UTIL", "measured", -1);  // a negative length: up to the terminator
  util_adapter_trace(2, "UTIL", "measured", -100);
  std::string text(5000, 'q');  // a long message reaches the sink whole
  text.back() = 'Z';
  util_adapter_trace(0, "UTIL", text.c_str(), static_cast<int>(text.size()));
  const std::vector<CmTraceCapture::Line> l = cap.lines();
  ASSERT_EQ(l.size(), 5u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(i < 2 ? "[UTIL] " : "[UTIL] measured", l[i].text) << i;
  EXPECT_EQ(l[4].text, "[UTIL] " + text);
}

TEST(TraceCore, AssertionsTraceCountAndReturn) {
  CmTraceCapture cap;
  const int64_t before = cm_get_assertions_count();
  EXPECT_EQ(std::make_tuple(CM_ERROR_INVALID_ARG, CM_OK), std::make_tuple(guarded(nullptr), guarded("x")));
  ASSERT_EQ(cap.lines().size(), 1u);
  EXPECT_EQ(std::make_pair(before + 1, 0), std::make_pair(cm_get_assertions_count(), cap.lines()[0].level));
  // The site is inside guarded(), a few lines above; check the shape, file and text.
  const std::string text = cap.lines()[0].text;
  EXPECT_EQ(text.rfind("[UTIL] test_trace_core.cpp:", 0), 0u) << text;
  EXPECT_NE(text.find(" Assert failed: p != nullptr"), std::string::npos) << text;
}

TEST(TraceCore, FunctionNameCuttingAndLeadingIdComposition) {
  char out[1024];
  auto cut = [&out](const char* pretty, size_t cap = sizeof out) {
    cm_cut_function_name(pretty, out, cap);
    return std::string(out);
  };
  EXPECT_EQ("CCmEventQueueBase::~CCmEventQueueBase", cut("virtual CCmEventQueueBase::~CCmEventQueueBase()"));
  EXPECT_EQ("CCmThread::Create", cut("CmResult CCmThread::Create(const char*, int)"));
  EXPECT_EQ("main", cut("main()"));
  EXPECT_EQ("", cut("no parenthesis here"));
  EXPECT_EQ("f", cut("void f()", 2));
  EXPECT_STREQ(CM_FUNC_NAME, "TraceCore_FunctionNameCuttingAndLeadingIdComposition_Test::TestBody");

  EXPECT_EQ("media.box.", (cm_compose_leading_id("media.exe", "box", out, sizeof out), std::string(out)));
  EXPECT_EQ("exe..", (cm_compose_leading_id("exe", "", out, sizeof out), std::string(out)));
  EXPECT_EQ("app.exe.bak.h.", (cm_compose_leading_id("app.exe.bak", "h", out, sizeof out), std::string(out)));
  EXPECT_EQ("abcd", (cm_compose_leading_id("abcdef", "gh", out, 5), std::string(out)));
}

TEST(TraceCore, LeadingIdIsProcessNameAndMachine) {
  CmTraceCapture cap;
  char host[256] = {};
  ASSERT_EQ(0, gethostname(host, sizeof host - 1));
  // The leading id made afresh, the executable name taken from source (null: the real one).
  auto leading_id = [](const char* (*source)()) {
    cm_set_leading_id_exec_source(source);
    cm_reset_leading_id_for_test();
    return std::string(get_leading_id());
  };
  const std::string unnamed = leading_id([] { return ""; });
  const std::string media = leading_id([] { return "C:\\Apps\\media.exe"; });
  EXPECT_EQ("util." + std::string(host) + ".", unnamed);  // an empty name is "util"
  EXPECT_EQ(media.rfind("media.", 0), 0u) << media;       // folder and ".exe" removed
  EXPECT_EQ(media.substr(5), unnamed.substr(4));          // the same machine part
  EXPECT_FALSE(cap.contains("gethostname() failed"));

  // The machine part is the configured "MachineID" of section "Trace".
  CmTempDir home;
  home.write("conf/nimra.cfg", "[Trace]\nMachineID = studio-7\n");
  CmScopedEnv env("CMUTIL_TEST_HOME", home.path().c_str());
  set_nimra_home_env("CMUTIL_TEST_HOME");
  enable_config_io_feature(true);
  EXPECT_EQ("cmutil_trace_tests.studio-7.", leading_id(nullptr));  // the real name again
  enable_config_io_feature(false);
  set_nimra_home_env("HOME");
  cm_reset_leading_id_for_test();
}
