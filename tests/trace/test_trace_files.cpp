// Trace files: header and marker, buffering, rotation, date change, routing by level,
// the whole-file lock between processes, and missing folders.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cmutil/trace/CmT120Trace.h"
#include "cmutil/trace/CmTrace.h"
#include "config/ConfigTestUtil.h"
#include "trace/CmT120Trace.h"

namespace {

const std::string kMarker = "************************* Current Trace Point *************************\n\n";

long header_offset(const std::string& content) {
  return content.size() < 32 ? -1 : strtol(content.substr(0, 32).c_str(), nullptr, 10);
}

// The records of a file: from the header to the offset it names.
std::string records(const std::string& path) {
  std::string content = cm_read_file(path);
  long offset = header_offset(content);
  if (offset < 32 || static_cast<size_t>(offset) > content.size()) return std::string();
  return content.substr(32, static_cast<size_t>(offset) - 32);
}

// What follows the records, where the marker stands.
std::string tail(const std::string& path) {
  std::string content = cm_read_file(path);
  return content.substr(static_cast<size_t>(header_offset(content)));
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// The record lines of a file without their "[date time pid= tid=] " prefix.
std::vector<std::string> bodies(const std::string& path) {
  std::vector<std::string> out = lines_of(records(path));
  for (std::string& line : out) line.erase(0, line.find("] ") + 2);
  return out;
}

void trace_line(int level, const std::string& text) {
  util_adapter_trace(level, "UTIL", text.c_str(), static_cast<int>(text.size()));
}

std::vector<std::string> g_logstash;  // taken and emptied by the test that installs the sink
void logstash_sink(int, const char* text, int len) { g_logstash.emplace_back(text, static_cast<size_t>(len)); }

int64_t g_fakeSec = 0;
void fake_clock(int64_t* sec, int32_t* usec) {
  *sec = g_fakeSec;
  *usec = 250000;
}

// Routes traces to the files only, with the files under a temporary state folder.
class TraceFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_state = std::make_unique<CmScopedEnv>("XDG_STATE_HOME", m_dir.path().c_str());
    m_option = cm_get_trace_option();
    m_mask = g_traceMask.load();
    cm_set_trace_option(CM_TRACE_ROUTE_FILE);
    set_external_trace_mask(2);
    m_trace = CCmT120Trace::instance();
    ASSERT_NE(nullptr, m_trace);
    m_trace->reset_for_test();
  }
  void TearDown() override {
    cm_set_trace_option(m_option);
    set_external_trace_mask(m_mask);
    cm_trace_file_set_clock(nullptr);
    m_trace->reset_for_test(false);
  }
  std::string folder() const { return m_dir.path() + "/cmutil_trace_tests"; }

  CmTempDir m_dir;
  std::unique_ptr<CmScopedEnv> m_state;
  CCmT120Trace* m_trace = nullptr;
  int m_option = 0, m_mask = 0;
};

}  // namespace

TEST(TraceFile, HeaderRecordFormsMarkerOverwriteAndSizeLimit) {
  CmTempDir dir;
  std::string path = dir.file("forms.log");
  CM_TRACE_DEV dev = T120_Open_Trace_Dev(path.c_str(), 0, 0, 0);
  ASSERT_NE(nullptr, dev);
  EXPECT_EQ(dev, T120_Open_Trace_Dev(path.c_str(), 0, 0, 0));  // the same path gives the open file
  EXPECT_EQ(std::string("32") + std::string(29, ' ') + "\n", cm_read_file(path));
  T120_Write_Trace_Dev(dev, nullptr, nullptr, "first");
  EXPECT_EQ(32u, cm_read_file(path).size());  // still in the buffer
  T120_Write_Trace_Dev(dev, "MOD", "src", "both");
  T120_Write_Trace_Dev(dev, nullptr, "src", "source only");
  T120_Write_Trace_Dev(dev, "MOD", nullptr, "module without source");
  T120_Refresh_Settings(0, 1);  // flushes every open file
  const long offset1 = header_offset(cm_read_file(path));
  std::vector<std::string> l = lines_of(records(path));
  ASSERT_EQ(4u, l.size());
  EXPECT_TRUE(std::regex_match(
      l[0], std::regex("\\[\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3} pid=\\d+ tid=\\d+\\] first")))
      << l[0];
  // A module shows only with a source; a source is followed by a colon.
  std::vector<std::string> expected = {"first", "[MOD] src:both", "src:source only", "module without source"};
  EXPECT_EQ(expected, bodies(path));
  EXPECT_EQ(kMarker, tail(path));  // the marker stands at the end

  T120_Write_Trace_Dev(dev, "MOD", "", "after");
  T120_Close_Trace_Dev(dev);  // closing flushes
  EXPECT_GT(header_offset(cm_read_file(path)), offset1);
  // The old marker was overwritten by the new record; only one marker remains, at the end.
  expected.push_back("[MOD] :after");
  EXPECT_EQ(expected, bodies(path));
  EXPECT_EQ(kMarker, tail(path));
  T120_Write_Trace_Dev(dev, "MOD", "", "ignored after close");  // an unknown handle is ignored
  EXPECT_EQ(std::string::npos, cm_read_file(path).find("ignored"));

  // The size limit cuts at the offset.
  path = dir.file("limit.log");
  dev = T120_Open_Trace_Dev(path.c_str(), 100, 0, 0);
  ASSERT_NE(nullptr, dev);
  CCmT120TraceFile* file = static_cast<CCmT120TraceFile*>(dev);
  T120_Write_Trace_Dev(dev, nullptr, nullptr, std::string(200, 'a').c_str());
  T120_Refresh_Settings(100, 1);
  EXPECT_FALSE(file->is_full());  // the offset was 32 at that flush
  T120_Write_Trace_Dev(dev, nullptr, nullptr, "b");
  T120_Refresh_Settings(100, 1);
  EXPECT_TRUE(file->is_full());  // the offset had reached the limit
  EXPECT_EQ(kMarker, tail(path));
  EXPECT_EQ(2u, lines_of(records(path)).size());  // nothing is lost: the records are written
  T120_Close_Trace_Dev(dev);
  CM_TRACE_DEV full = T120_Open_Trace_Dev("/dev/full", 0, 1, 0);  // every write fails: no space left
  ASSERT_NE(nullptr, full);
  T120_Write_Trace_Dev(full, nullptr, nullptr, "dropped, not retried for ever");
  T120_Close_Trace_Dev(full);
}

TEST(TraceFile, TwoProcessesShareAFileUnderTheLock) {
  CmTempDir dir;
  std::string path = dir.file("shared.log");
  CM_TRACE_DEV dev = T120_Open_Trace_Dev(path.c_str(), 0, 1, 0);
  ASSERT_NE(nullptr, dev);
  const int kLines = 100000;
  const std::string pad(40, '.');
  auto writeLines = [&](const char* who) {
    char text[128];
    for (int i = 0; i < kLines; ++i) {
      snprintf(text, sizeof text, "%s %d %s", who, i, pad.c_str());
      T120_Write_Trace_Dev(dev, "UTIL", "", text);
    }
    T120_Close_Trace_Dev(dev);
  };
  pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    writeLines("child");
    _exit(0);
  }
  writeLines("parent");
  int status = 0;
  ASSERT_TRUE(waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

  EXPECT_EQ(kMarker, tail(path));
  std::vector<std::string> l = lines_of(records(path));
  ASSERT_EQ(static_cast<size_t>(2 * kLines), l.size());
  std::vector<int> seen[2] = {std::vector<int>(kLines, 0), std::vector<int>(kLines, 0)};
  std::set<long> pids;
  size_t bad = 0;
  for (const std::string& line : l) {
    // [date time pid=P tid=T] [UTIL] :who N pad
    char who[8] = {};
    long pid = 0;
    int n = -1, at = 0;
    const bool parsed = sscanf(line.c_str(), "[%*s %*s pid=%ld tid=%*d] [UTIL] :%7s %d %n", &pid, who, &n, &at) == 3;
    const int w = std::string(who) == "child" ? 1 : std::string(who) == "parent" ? 0 : -1;
    if (!parsed || at == 0 || w < 0 || n < 0 || n >= kLines ||
        line.compare(static_cast<size_t>(at), std::string::npos, pad) != 0) {
      ++bad;
      continue;
    }
    pids.insert(pid);
    seen[w][static_cast<size_t>(n)]++;
  }
  EXPECT_EQ(0u, bad);
  EXPECT_EQ(2u, pids.size());  // the child writes its own process id
  // Every line of each writer is there exactly once.
  for (int who = 0; who < 2; ++who) EXPECT_EQ(std::vector<int>(kLines, 1), seen[who]) << (who ? "child" : "parent");
}

TEST_F(TraceFilesTest, LevelsAreRoutedToTheirFiles) {
  std::string warnPath = folder() + "/warnings.log";
  m_trace->open_warning_file(warnPath.c_str());
  trace_line(2, "an info line");
  trace_line(1, "a warning line");
  trace_line(0, "an error line");
  T120_Refresh_Settings(kCmTraceFileSizeLimit, 1);
  // Every level goes to the information file; the error and warning files get one each.
  EXPECT_EQ(std::vector<std::string>({"[UTIL] :an info line", "[UTIL] :a warning line", "[UTIL] :an error line"}),
            bodies(m_trace->info_path()));
  EXPECT_EQ(std::vector<std::string>{"[UTIL] :an error line"}, bodies(m_trace->error_path()));
  EXPECT_EQ(std::vector<std::string>{"[UTIL] :a warning line"}, bodies(warnPath));
}

TEST_F(TraceFilesTest, RotationRunsThroughTenNumbers) {
  const std::string text(90, 'r');
  std::vector<std::string> seen;
  seen.push_back(m_trace->info_path());
  // With a 1000-byte limit a file is full at its second flush; the next message then
  // moves on to the next number. Files opened by the rotation get 20 MiB, so the small
  // limit is set again after each one.
  for (int rotation = 0; rotation < 10; ++rotation) {
    T120_Refresh_Settings(1000, 1);
    std::string before = m_trace->info_path();
    int guard = 0;
    while (m_trace->info_path() == before && guard++ < 1000) trace_line(2, text);
    ASSERT_LT(guard, 1000) << "no rotation after " << before;
    seen.push_back(m_trace->info_path());
  }
  // Numbers 0 to 9, then 0 again.
  for (int i = 0; i <= 10; ++i)
    EXPECT_EQ(folder() + "/cmutil_trace_tests_info_" + std::to_string(i % 10) + ".log", seen[static_cast<size_t>(i)]);
  // Number 0 was emptied on opening: only the lines since then are in it.
  EXPECT_LT(records(seen[10]).size(), 1000u);
  EXPECT_EQ(folder() + "/cmutil_trace_tests_error_0.log", m_trace->error_path());  // errors did not rotate
  // A file that was rotated away keeps its records up to the size it reached.
  EXPECT_GE(header_offset(cm_read_file(seen[3])), 1000);
  EXPECT_EQ(kMarker, tail(seen[3]));
}

TEST_F(TraceFilesTest, LocalMidnightStartsNewFiles) {
  // 23:59:59 local time on 14 March 2026 (seconds, minutes, hours, day, month, year).
  struct tm day = {59, 59, 23, 14, 2, 2026 - 1900, 0, 0, -1, 0, nullptr};
  g_fakeSec = static_cast<int64_t>(mktime(&day));
  cm_trace_file_set_clock(&fake_clock);
  m_trace->reset_for_test();
  const std::string info0 = m_trace->info_path(), error0 = m_trace->error_path();
  trace_line(0, "before midnight");
  EXPECT_EQ(info0, m_trace->info_path());
  g_fakeSec += 2;  // 00:00:01 of the next day
  trace_line(0, "after midnight");
  EXPECT_EQ(std::make_pair(folder() + "/cmutil_trace_tests_info_1.log", folder() + "/cmutil_trace_tests_error_1.log"),
            std::make_pair(m_trace->info_path(), m_trace->error_path()));
  trace_line(0, "next day");
  T120_Refresh_Settings(kCmTraceFileSizeLimit, 1);
  // The closing files were flushed: the old day ends with the message that crossed midnight.
  const std::string oldInfo = records(info0);
  for (const char* part : {"[03/14/2026 23:59:59.250 pid=", "[03/15/2026 00:00:01.250 pid=", "after midnight"})
    EXPECT_NE(std::string::npos, oldInfo.find(part)) << part;
  // The information record comes before the date test, the error record after the
  // switch: the crossing message opens the new error file.
  const std::string newInfo = records(m_trace->info_path());
  EXPECT_EQ(std::vector<std::string>{"[UTIL] :before midnight"}, bodies(error0));
  EXPECT_TRUE(lines_of(newInfo).size() == 1 && newInfo.find("[03/15/2026 00:00:01.250 pid=") != std::string::npos)
      << newInfo;
  EXPECT_EQ(std::vector<std::string>({"[UTIL] :after midnight", "[UTIL] :next day"}), bodies(m_trace->error_path()));
}

TEST_F(TraceFilesTest, UnusableFolderLosesNoCallerData) {
  // The state "folder" is a regular file: no log folder can be made under it.
  std::string blocker = m_dir.write("blocker", "not a folder");
  {
    CmScopedEnv state("XDG_STATE_HOME", blocker.c_str());
    m_trace->reset_for_test();
    EXPECT_EQ("", m_trace->info_path());
    set_util_logstash_external_trace_sink(&logstash_sink);
    cm_set_trace_option(CM_TRACE_ROUTE_FILE | CM_TRACE_ROUTE_LOGSTASH);
    trace_line(0, "still delivered");
    trace_line(2, "also delivered");
    set_util_logstash_external_trace_sink(nullptr);
    EXPECT_EQ(std::exchange(g_logstash, {}),
              (std::vector<std::string>{"[UTIL] still delivered", "[UTIL] also delivered"}));
  }
  {
    CmScopedEnv state("XDG_STATE_HOME", nullptr);
    CmScopedEnv home("HOME", nullptr);
    m_trace->reset_for_test();
    EXPECT_EQ("", m_trace->info_path());
    trace_line(0, "nowhere to go");
  }
}

TEST_F(TraceFilesTest, ConcurrentThreadsLoseNoLine) {
  const int kThreads = 4, kLines = 5000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      char text[96];
      for (int i = 0; i < kLines; ++i) {
        int n = snprintf(text, sizeof text, "worker %d line %d end", t, i);
        util_adapter_trace(2, "UTIL", text, n);
      }
    });
  }
  for (auto& th : threads) th.join();
  T120_Refresh_Settings(kCmTraceFileSizeLimit, 1);
  std::vector<std::string> l = lines_of(records(m_trace->info_path()));
  ASSERT_EQ(static_cast<size_t>(kThreads * kLines), l.size());
  std::vector<std::vector<int>> seen(kThreads, std::vector<int>(kLines, 0));
  for (const std::string& line : l) {
    int t = -1, i = -1;
    size_t at = line.find("] [UTIL] :worker ");
    ASSERT_NE(std::string::npos, at) << line;
    ASSERT_EQ(2, sscanf(line.c_str() + at, "] [UTIL] :worker %d line %d end", &t, &i)) << line;
    ASSERT_TRUE(t >= 0 && t < kThreads && i >= 0 && i < kLines) << line;
    seen[static_cast<size_t>(t)][static_cast<size_t>(i)]++;
  }
  EXPECT_EQ(std::vector<std::vector<int>>(kThreads, std::vector<int>(kLines, 1)), seen);  // each line exactly once
}
