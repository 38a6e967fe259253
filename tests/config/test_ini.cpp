// INI scanner, the free parameter lookups and CCmConfigInitFile.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "ConfigTestUtil.h"
#include "cmutil/config/CmConfigIO.h"
#include "cmutil/config/CmConfigInitFile.h"
#include "common/CmTraceCapture.h"

namespace {

// Scans `content` with read_init_file; returns the value or "<none>".
std::string scan(const std::string& content, const char* section, const char* key) {
  FILE* f = tmpfile();
  fwrite(content.data(), 1, content.size(), f);
  rewind(f);
  char out[256] = {0};
  bool found = read_init_file(f, section, key, out, sizeof out - 1);
  fclose(f);
  return found ? std::string(out) : std::string("<none>");
}

// Points the free lookups at <tmp>/conf/nimra.cfg through the HOME variable and restores
// the process-wide settings afterwards.
class IniParamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    set_nimra_home_env("CMUTIL_TEST_HOME");
    set_nimra_config_file_name("nimra.cfg");
    enable_config_io_feature(true);
  }
  void TearDown() override {
    enable_config_io_feature(false);
    set_nimra_home_env("HOME");
    set_nimra_config_file_name("nimra.cfg");
  }
  void writeConfig(const std::string& content) { m_dir.write("conf/nimra.cfg", content); }

  CmTempDir m_dir;
  CmScopedEnv m_home{"CMUTIL_TEST_HOME", m_dir.path().c_str()};
};

int g_lookupCalls = 0;
unsigned char fixed_lookup(const char* path, const char* /*section*/, const char* key, char* out, int size) {
  ++g_lookupCalls;
  EXPECT_STREQ("/some/path.cfg", path);
  EXPECT_EQ(256, size);
  static const std::map<std::string, std::string> table = {
      {"int", "123"},   {"neg", "-5"},           {"huge", "99999999999999999999"},
      {"text", "abc"},  {"dword", "4000000000"}, {"word", "65535"},
      {"wordbad", "x"}, {"float", "2.5"},        {"nan", "nan"},
      {"inf", "inf"},   {"bigf", "1e19"},        {"minf", "-9223372036854775808"},
      {"bool", "True"}, {"str", "  kept as is "}};
  const auto it = table.find(key);
  if (it == table.end()) return 0;
  snprintf(out, static_cast<size_t>(size), "%s", it->second.c_str());
  return 1;
}

}  // namespace

TEST(ReadInitFile, SectionAndKeyMatchIgnoringCase) {
  const std::string ini = "[Video]\nWidth = 640\n[Audio]\n  RATE=48000  \nName = Mixed Case \n";
  // Values keep their case; the next header ends the section.
  EXPECT_EQ(
      (std::vector<std::string>{"640", "48000", "Mixed Case", "<none>", "<none>"}),
      (std::vector<std::string>{scan(ini, "video", "WIDTH"), scan(ini, "AUDIO", "rate"), scan(ini, "Audio", "name"),
                                scan(ini, "Video", "rate"), scan(ini, "Missing", "Width")}));
}

TEST(ReadInitFile, CommentsQuotesAndEquals) {
  const std::string ini =
      "[S]\n# key = commented\nkey = first\nq1 = \"  spaced  \"\nq2 = 'single'\nmixed = 'a\"\n"
      "expr = a=b=c\nlonely = '\nnoeq line\n";
  // Quotes are dropped, then the value is trimmed again; different quotes stay; the value
  // keeps later '='; a single quote character gives empty text.
  auto s = [&ini](const char* key) { return scan(ini, "S", key); };
  EXPECT_EQ((std::vector<std::string>{"first", "spaced", "single", "'a\"", "a=b=c", ""}),
            (std::vector<std::string>{s("key"), s("q1"), s("q2"), s("mixed"), s("expr"), s("lonely")}));
}

TEST(ReadInitFile, BoundedCopyAndLongLines) {
  FILE* f = tmpfile();
  fputs("[S]\nk = 0123456789\n", f);
  rewind(f);
  char out[8];
  memset(out, 'X', sizeof out);
  ASSERT_TRUE(read_init_file(f, "S", "k", out, 4));
  EXPECT_EQ(0, memcmp(out, "0123XXXX", 8));  // exactly `size` bytes, not terminated
  fclose(f);

  // A long line is read in pieces; the tail piece with "=" is a line of its own.
  const std::string ini = "[S]\n" + std::string(2047, 'a') + "tail=ok\nk=v\n";
  EXPECT_EQ("ok", scan(ini, "S", "tail"));
  EXPECT_EQ("v", scan(ini, "S", "k"));
  EXPECT_FALSE(read_init_file(nullptr, "S", "k", out, 4));
}

TEST(GetStringFromProfile, DefaultsAndLength) {
  CmTempDir dir;
  std::string path = dir.write("a.cfg", "[S]\nk = value\n");
  char out[16];
  EXPECT_EQ(5u, get_string_from_profile("S", "k", "def", out, sizeof out, path.c_str()));
  EXPECT_STREQ("value", out);
  EXPECT_EQ(3u, get_string_from_profile("S", "missing", "default", out, 4, path.c_str()));
  EXPECT_STREQ("def", out);  // at most size - 1 bytes of the default
  EXPECT_EQ(7u, get_string_from_profile("S", "k", "default", out, sizeof out, dir.file("none.cfg").c_str()));
  EXPECT_STREQ("default", out);

  std::string ints = dir.write("i.cfg", "[N]\na = 42\nb = x1\n");
  EXPECT_EQ(42, get_int_from_profile("N", "a", 7, ints.c_str()));
  EXPECT_EQ(7, get_int_from_profile("N", "b", 7, ints.c_str()));
  EXPECT_EQ(7, get_int_from_profile("N", "c", 7, ints.c_str()));
  EXPECT_EQ(9, get_int_from_profile("N", "a", 9, dir.file("none.cfg").c_str()));
}

TEST_F(IniParamTest, TheSwitchGuardsTheFreeLookups) {
  writeConfig("[Trace]\nflag = TRUE\nn = 5\n");
  enable_config_io_feature(false);
  char out[64] = {0};
  EXPECT_EQ(std::make_tuple(false, false, true, 0),
            std::make_tuple(get_string_param("Trace", "n", out, sizeof out), get_bool_param("Trace", "flag", false),
                            get_bool_param("Trace", "flag", true), get_int_param("Trace", "n")));
  std::string path = get_config_file_name();
  EXPECT_FALSE(get_string_param_from_configfile(path.c_str(), "Trace", "n", out, sizeof out));
  EXPECT_TRUE(get_string_param_from_ini_force(path.c_str(), "Trace", "n", out, sizeof out));
  EXPECT_STREQ("5", out);
  enable_config_io_feature(true);
  EXPECT_EQ(5, get_int_param("Trace", "n"));
  EXPECT_TRUE(get_bool_param("Trace", "flag", false));
}

TEST(CCmConfigInitFile, TypedGettersAndDefaults) {
  CCmConfigInitFile file(std::string("/some/path.cfg"));
  file.RegisterFunc(&fixed_lookup);
  g_lookupCalls = 0;
  // Overflow keeps the default; text that is no number gives 0.
  EXPECT_EQ(std::make_tuple(123, -5, 7, 0, 7),
            std::make_tuple(file.GetIntParam("S", "int", 7), file.GetIntParam("S", "neg", 7),
                            file.GetIntParam("S", "huge", 7), file.GetIntParam("S", "text", 7),
                            file.GetIntParam("S", "missing", 7)));
  EXPECT_EQ(std::make_tuple(4000000000u, 1u, 65535, 3),
            std::make_tuple(file.GetDwordParam("S", "dword", 1), file.GetDwordParam("S", "huge", 1),
                            file.GetWordParam("S", "word", 3), file.GetWordParam("S", "wordbad", 3)));
  EXPECT_FLOAT_EQ(2.5f, file.GetFloatParam("S", "float", 1.0f));
  for (const char* outOfRange : {"nan", "inf", "bigf", "minf"})  // -2^63 itself is out of range
    EXPECT_FLOAT_EQ(1.0f, file.GetFloatParam("S", outOfRange, 1.0f)) << outOfRange;
  EXPECT_FLOAT_EQ(0.0f, file.GetFloatParam("S", "text", 1.0f));
  EXPECT_EQ(std::make_tuple(true, false, true, std::string("  kept as is "), std::string("d")),
            std::make_tuple(file.GetBoolParam("S", "bool", false), file.GetBoolParam("S", "int", true),
                            file.GetBoolParam("S", "missing", true), file.GetStringParam("S", "str", "d"),
                            file.GetStringParam("S", "missing", "d")));
  EXPECT_EQ(20, g_lookupCalls);
  EXPECT_EQ(0, file.InitWithFileName("/elsewhere"));
  EXPECT_EQ("/some/path.cfg", file.GetFilePath());

  file.RegisterFunc(nullptr);  // no lookup function: nothing is ever found
  EXPECT_EQ(9, file.GetIntParam("S", "int", 9));
}

TEST_F(IniParamTest, DefaultObjectReadsNimraCfgInTheHomeFolder) {
  // The free functions read <home>/conf/nimra.cfg, a default CCmConfigInitFile reads
  // <home>/nimra.cfg: the two differ on purpose.
  m_dir.write("nimra.cfg", "[S]\nwhere = home\n");
  writeConfig("[S]\nwhere = conf\n");
  CCmConfigInitFile file;
  char conf[256] = {0};
  ASSERT_TRUE(get_string_param("S", "where", conf, sizeof conf - 1));
  EXPECT_EQ(std::make_tuple(m_dir.path() + "/nimra.cfg", std::string("home"), std::string("conf")),
            std::make_tuple(file.GetFilePath(), file.GetStringParam("S", "where", "none"), std::string(conf)));

  enable_config_io_feature(false);  // the default lookup honours the switch
  EXPECT_EQ("none", file.GetStringParam("S", "where", "none"));
  enable_config_io_feature(true);

  CmTraceCapture cap;
  CCmConfigInitFile::SetNimraConfigFileName("renamed.cfg");
  EXPECT_TRUE(cap.contains("[UTIL] CCmConfigInitFile::SetNimraConfigFileName, file name renamed.cfg"));
  EXPECT_EQ(m_dir.path() + "/conf/renamed.cfg", get_config_file_name());
  CCmConfigInitFile again;
  EXPECT_EQ(m_dir.path() + "/nimra.cfg", again.GetFilePath());  // the class's name is unchanged
  EXPECT_EQ(m_dir.path(), CCmConfigInitFile::GetNimraHomeDir());
}

TEST(CCmConfigInitFile, GettersFromManyThreads) {
  CmTempDir dir;
  std::string path = dir.write("shared.cfg", "[S]\nn = 17\nname = cmutil\n");
  CCmConfigInitFile file(path);
  file.RegisterFunc([](const char* p, const char* section, const char* key, char* out, int size) -> unsigned char {
    return get_string_param_from_ini_force(p, section, key, out, static_cast<size_t>(size)) ? 1 : 0;
  });
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        if (file.GetIntParam("S", "n", 0) != 17) ++wrong;
        if (file.GetStringParam("S", "name", "") != "cmutil") ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(0, wrong.load());
}
