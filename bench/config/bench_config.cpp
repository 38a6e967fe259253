// Configuration and trace-file costs beside their peers:
//  - JSON parse and serialise of a 4 KiB configuration object and a 1 MiB array of small
//    objects (peers: nlohmann-json, RapidJSON);
//  - trace-file throughput of produced 100-byte lines with only the file route on
//    (peer: spdlog's synchronous basic_file_sink_mt; limit: raw write(2) of 10 KiB blocks);
//  - INI lookup of a key near the end of a 200-line file (every lookup re-reads the file).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "cmutil/config/CmConfigIO.h"
#include "cmutil/config/CmJson.h"
#include "cmutil/trace/CmT120Trace.h"
#include "cmutil/trace/CmTrace.h"
#include "trace/CmT120Trace.h"

#if CMUTIL_HAVE_NLOHMANN_JSON
#include <nlohmann/json.hpp>
#endif
#if CMUTIL_HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#if CMUTIL_HAVE_SPDLOG
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#endif

namespace {

// glibc moves its mmap and trim thresholds as large blocks are freed, so whether a
// 1 MiB output string is built in fresh pages (a page fault every 4 KiB, a third of the
// time) depended on which case ran before it: the same serialiser measured 1.6 or 4.4 ms.
// Fixed thresholds keep freed memory in the heap for every side alike, as a long-running
// process reaches once its thresholds have risen.
const bool g_allocatorPinned = [] {
  return mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1 && mallopt(M_TRIM_THRESHOLD, 1 << 30) == 1;
}();

// ---------------------------------------------------------------- documents

// A configuration object of about 4 KiB: sections of settings with numbers, strings,
// booleans and short arrays.
std::string config_document() {
  std::string s = "{";
  for (int section = 0; s.size() < 4000; ++section) {
    if (section) s += ",";
    s += "\"section_" + std::to_string(section) + "\":{";
    s += "\"enabled\":true,\"name\":\"encoder profile " + std::to_string(section) + "\",";
    s += "\"bitrate\":" + std::to_string(64000 + section * 1000) + ",\"ratio\":0." + std::to_string(25 + section) + ",";
    s += "\"sizes\":[160,320,640,1280],\"fallback\":false,\"label\":\"main\"}";
  }
  return s + "}";
}

// An array of small objects, about 1 MiB.
std::string array_document() {
  std::string s = "[";
  for (int i = 0; s.size() < (1u << 20); ++i) {
    if (i) s += ",";
    s += "{\"id\":" + std::to_string(i) + ",\"name\":\"item" + std::to_string(i % 97) +
         "\",\"on\":true,\"weight\":" + std::to_string(i % 1000) + ".5}";
  }
  return s + "]";
}

const std::string& document(int which) {
  static const std::string config = config_document();
  static const std::string array = array_document();
  return which == 0 ? config : array;
}

void label_document(benchmark::State& state, int which) {
  state.SetLabel(which == 0 ? "4KiB object" : "1MiB array");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(document(which).size()));
}

void BM_Cmutil_JsonParse(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  const std::string& text = document(which);
  if (json::Deserialize(text).IsNull()) state.SkipWithError("document did not parse");
  for (auto _ : state) {
    json::Value v = json::Deserialize(text);
    benchmark::DoNotOptimize(v);
  }
  label_document(state, which);
}
BENCHMARK(BM_Cmutil_JsonParse)->Arg(0)->Arg(1);

// How parse time grows with the document: arrays of 25,000 to 200,000 small objects.
// Linear growth is the contract (a copy of the remaining text per step would make it
// quadratic); the fitted complexity is printed beside the peer's.
std::string scaling_document(size_t count) {
  std::string s = "[";
  for (size_t i = 0; i < count; ++i) {
    if (i) s += ',';
    s += "{\"id\":" + std::to_string(i) + ",\"name\":\"item\",\"on\":true}";
  }
  return s + "]";
}

void BM_Cmutil_JsonParseScaling(benchmark::State& state) {
  const std::string text = scaling_document(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    json::Value v = json::Deserialize(text);
    benchmark::DoNotOptimize(v);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Cmutil_JsonParseScaling)->RangeMultiplier(2)->Range(25000, 200000)->Complexity(benchmark::oN);

void BM_Cmutil_JsonSerialize(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  json::Value v = json::Deserialize(document(which));
  for (auto _ : state) {
    std::string out = json::Serialize(v);
    benchmark::DoNotOptimize(out);
  }
  label_document(state, which);
}
BENCHMARK(BM_Cmutil_JsonSerialize)->Arg(0)->Arg(1);

#if CMUTIL_HAVE_NLOHMANN_JSON
void BM_Nlohmann_JsonParse(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  const std::string& text = document(which);
  for (auto _ : state) {
    nlohmann::json v = nlohmann::json::parse(text);
    benchmark::DoNotOptimize(v);
  }
  label_document(state, which);
}
BENCHMARK(BM_Nlohmann_JsonParse)->Arg(0)->Arg(1);

void BM_Nlohmann_JsonParseScaling(benchmark::State& state) {
  const std::string text = scaling_document(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    nlohmann::json v = nlohmann::json::parse(text);
    benchmark::DoNotOptimize(v);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Nlohmann_JsonParseScaling)->RangeMultiplier(2)->Range(25000, 200000)->Complexity(benchmark::oN);

void BM_Nlohmann_JsonSerialize(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  nlohmann::json v = nlohmann::json::parse(document(which));
  for (auto _ : state) {
    std::string out = v.dump();
    benchmark::DoNotOptimize(out);
  }
  label_document(state, which);
}
BENCHMARK(BM_Nlohmann_JsonSerialize)->Arg(0)->Arg(1);
#endif

#if CMUTIL_HAVE_RAPIDJSON
void BM_RapidJson_JsonParse(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  const std::string& text = document(which);
  for (auto _ : state) {
    rapidjson::Document d;
    d.Parse(text.c_str(), text.size());
    benchmark::DoNotOptimize(d.HasParseError());
  }
  label_document(state, which);
}
BENCHMARK(BM_RapidJson_JsonParse)->Arg(0)->Arg(1);

void BM_RapidJson_JsonSerialize(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  rapidjson::Document d;
  d.Parse(document(which).c_str());
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    d.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
  }
  label_document(state, which);
}
BENCHMARK(BM_RapidJson_JsonSerialize)->Arg(0)->Arg(1);
#endif

// ---------------------------------------------------------------- trace files

constexpr int64_t kTraceLines = 1000000;

// A scratch folder for the log files of one benchmark, removed afterwards.
struct ScratchFolder {
  ScratchFolder() {
    char pattern[] = "/tmp/cmutil-bench-XXXXXX";
    const char* dir = mkdtemp(pattern);
    path = dir ? dir : "/tmp";
  }
  ~ScratchFolder() {
    std::string cmd = "rm -rf '" + path + "'";
    if (path != "/tmp" && system(cmd.c_str()) != 0) {
    }
  }
  std::string path;
};

const std::string& line100() {
  static const std::string s = [] {
    std::string t = "media engine trace line: session=42 stream=7 bitrate=64000 jitter=3ms loss=0.1% rtt=42ms";
    t.resize(100, '.');
    return t;
  }();
  return s;
}

void BM_Cmutil_TraceFileLines(benchmark::State& state) {
  ScratchFolder folder;
  setenv("XDG_STATE_HOME", folder.path.c_str(), 1);
  const int savedOption = cm_get_trace_option();
  cm_set_trace_option(CM_TRACE_ROUTE_FILE);
  set_external_trace_mask(2);
  CCmT120Trace* files = CCmT120Trace::instance();
  files->reset_for_test();
  const std::string& text = line100();
  for (auto _ : state) util_adapter_trace(2, "UTIL", text.c_str(), 100);
  T120_Refresh_Settings(kCmTraceFileSizeLimit, 1);
  state.SetItemsProcessed(state.iterations());
  files->reset_for_test(false);
  cm_set_trace_option(savedOption);
  unsetenv("XDG_STATE_HOME");
}
BENCHMARK(BM_Cmutil_TraceFileLines)->Iterations(kTraceLines);

#if CMUTIL_HAVE_SPDLOG
void BM_Spdlog_BasicFileSinkMt(benchmark::State& state) {
  ScratchFolder folder;
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(folder.path + "/spdlog.log", true);
  spdlog::logger logger("bench", sink);
  logger.set_pattern("[%m/%d/%Y %H:%M:%S.%e pid=%P tid=%t] [UTIL] :%v");
  const std::string& text = line100();
  for (auto _ : state) logger.info(text);
  logger.flush();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Spdlog_BasicFileSinkMt)->Iterations(kTraceLines);
#endif

// The limit: the same record bytes handed to write(2) in 10 KiB blocks.
void BM_RawWrite_10KiBBlocks(benchmark::State& state) {
  ScratchFolder folder;
  std::string path = folder.path + "/raw.log";
  int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
  const std::string record = "[11/21/2026 13:32:46.203 pid=21899 tid=21899] [UTIL] :" + line100() + "\n";
  char block[10240];
  size_t used = 0;
  for (auto _ : state) {
    if (used + record.size() > sizeof block) {
      if (write(fd, block, used) < 0) state.SkipWithError("write failed");
      used = 0;
    }
    memcpy(block + used, record.data(), record.size());
    used += record.size();
  }
  if (used && write(fd, block, used) < 0) state.SkipWithError("write failed");
  close(fd);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RawWrite_10KiBBlocks)->Iterations(kTraceLines);

// ---------------------------------------------------------------- INI lookup

void BM_Cmutil_IniLookupNearEnd(benchmark::State& state) {
  ScratchFolder folder;
  std::string path = folder.path + "/nimra.cfg";
  {
    std::ofstream out(path);
    int lines = 0;
    for (int section = 0; lines < 200; ++section) {
      out << "[Section" << section << "]\n";
      ++lines;
      for (int k = 0; k < 19 && lines < 200; ++k, ++lines) out << "key_" << lines << " = value " << lines << "\n";
    }
  }
  char value[257];
  if (!get_string_param_from_ini_force(path.c_str(), "Section9", "key_198", value, 256))
    state.SkipWithError("key not found");
  for (auto _ : state) {
    bool found = get_string_param_from_ini_force(path.c_str(), "Section9", "key_198", value, 256);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Cmutil_IniLookupNearEnd);

}  // namespace
