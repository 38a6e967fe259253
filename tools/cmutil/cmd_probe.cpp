// probe: every machine fact the library reads on this machine, and the static
// performance score for each level, as a readable block or one JSON document.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "CmCommand.h"
#include "cmutil/config/CmJson.h"
#include "cmutil/system/CmStaticPerformanceScore.h"
#include "cmutil/system/CmSystemInfo.h"

namespace {

const char kProbeUsage[] =
    "probe [--json]\n  prints the CPU, memory, GPU, OS and device facts and the static score per level";

struct Gpu {
  std::string name;
  uint32_t memoryMib;
};

struct Probe {
  std::string brand, model, series, numberText, arch, osver, osinfo, device, maker, defaultGpu;
  uint32_t number = 0;
  bool intel = false, brandParsed = false;
  unsigned physical = 0, threads = 0, performance = 0, efficiency = 0, mhz = 0;
  unsigned long long memoryMb = 0, usedKib = 0, totalKib = 0, processKib = 0;
  float usedPercent = 0;
  std::vector<Gpu> gpus;
  long long gpuUsage = -1;  // -1: no GPU reported one
  int scores[6] = {};
};

void collect_cpu(Probe& p) {
  char text[1024] = {};
  get_cpu_brand(text, sizeof text);
  p.brand = text;
  char number[1024] = {};
  p.brandParsed = getCpuModelAndGeneration(p.brand, p.model, p.number, p.intel, p.series, number);
  p.numberText = number;
  get_cpu_core(p.physical, p.threads);
  get_cpu_core_levels(p.performance, p.efficiency);
  get_cpu_frequency(p.mhz);
  if (get_cpu_arch(text, sizeof text) == 0) p.arch = text;
}

void collect_memory_and_os(Probe& p) {
  get_memory_size(p.memoryMb);
  get_memory_usage(p.usedPercent, p.usedKib, p.totalKib);
  get_process_memory(p.processKib);
  p.osver = kel_get_osver();
  p.osinfo = kel_get_osinfo();
  p.device = kel_get_devicemodel();
  p.maker = kel_get_devicemanufacturer();
}

void collect_gpus(Probe& p) {
  std::vector<std::string> names;
  std::vector<uint32_t> memory;
  if (getGpuInfo(names, memory) == CM_OK)
    for (size_t i = 0; i < names.size(); ++i) p.gpus.push_back({names[i], i < memory.size() ? memory[i] : 0});
  p.defaultGpu = getDefaultGpuName();
  long long usage = 0;
  if (kel_get_GPU_usage(usage)) p.gpuUsage = usage;
}

// The score with the tables as shipped (all zero), one level at a time.
void collect_scores(Probe& p) {
  CmStaticPerformanceScore* score = CmStaticPerformanceScore::Instance(false);
  const KelCurrentOS os = score->GetSystemOSInfo()->m_currOS;
  score->ConfigureParameters(os, std::vector<int>(7, 0), _tagKelSPCParamOffset{});
  for (int level = 0; level <= 5; ++level) {
    score->ResetScore();
    p.scores[level] = 0;
    score->GetStaticPerformanceScore(p.scores[level], static_cast<kel::KelPerformanceLevel>(level));
  }
  CmStaticPerformanceScore::Instance(true);
}

void print_text(const Probe& p) {
  std::printf("cpu\n  brand       %s\n", p.brand.c_str());
  std::printf("  parsed      series %s, model %s, number %u (%s)%s%s\n", p.series.c_str(), p.model.c_str(), p.number,
              p.numberText.c_str(), p.intel ? ", Intel" : "", p.brandParsed ? "" : ", not understood");
  std::printf("  cores       %u physical x %u threads", p.physical, p.threads);
  if (p.performance) std::printf(" (%u performance, %u efficiency)", p.performance, p.efficiency);
  std::printf("\n  frequency   %u MHz\n  arch        %s\n", p.mhz, p.arch.c_str());
  std::printf("memory\n  total       %llu MB\n  used        %llu of %llu KiB (%.1f %%)\n  process     %llu KiB\n",
              p.memoryMb, p.usedKib, p.totalKib, p.usedPercent, p.processKib);
  std::printf("gpu\n");
  if (p.gpus.empty()) std::printf("  none found\n");
  for (const Gpu& g : p.gpus)
    std::printf("  %-40s %u MiB%s\n", g.name.c_str(), g.memoryMib, g.name == p.defaultGpu ? " (default)" : "");
  if (p.gpuUsage >= 0) std::printf("  utilisation %lld %%\n", p.gpuUsage);
  std::printf("os\n  version     %s\n  info        %s\n", p.osver.c_str(), p.osinfo.c_str());
  std::printf("device\n  model       %s\n  maker       %s\n", p.device.c_str(), p.maker.c_str());
  std::printf("static score (shipped tables)\n ");
  for (int level = 0; level <= 5; ++level)
    std::printf(" level %d: %d%s", level, p.scores[level], level < 5 ? "," : "\n");
}

json::Value to_json(const Probe& p) {
  json::Object cpu, memory, gpu, os, device, root;
  cpu["brand"] = p.brand;
  cpu["series"] = p.series;
  cpu["model"] = p.model;
  cpu["number"] = p.number;
  cpu["number_text"] = p.numberText;
  cpu["intel"] = p.intel;
  cpu["physical_cores"] = p.physical;
  cpu["threads_per_core"] = p.threads;
  cpu["performance_cores"] = p.performance;
  cpu["efficiency_cores"] = p.efficiency;
  cpu["frequency_mhz"] = p.mhz;
  cpu["arch"] = p.arch;
  memory["total_mb"] = static_cast<int64_t>(p.memoryMb);
  memory["used_kib"] = static_cast<int64_t>(p.usedKib);
  memory["total_kib"] = static_cast<int64_t>(p.totalKib);
  memory["used_percent"] = static_cast<double>(p.usedPercent);
  memory["process_kib"] = static_cast<int64_t>(p.processKib);
  json::Array list;
  for (const Gpu& g : p.gpus) {
    json::Object entry;
    entry["name"] = g.name;
    entry["memory_mib"] = g.memoryMib;
    entry["default"] = g.name == p.defaultGpu;
    list.push_back(entry);
  }
  gpu["devices"] = list;
  gpu["utilisation_percent"] = static_cast<int64_t>(p.gpuUsage);
  os["version"] = p.osver;
  os["info"] = p.osinfo;
  os["platform"] = kel_get_platform();
  device["model"] = p.device;
  device["maker"] = p.maker;
  json::Array scores;
  for (int level = 0; level <= 5; ++level) scores.push_back(p.scores[level]);
  root["cpu"] = cpu;
  root["memory"] = memory;
  root["gpu"] = gpu;
  root["os"] = os;
  root["device"] = device;
  root["static_score"] = scores;
  return root;
}

int probe_command(int argc, char** argv) {
  const bool asJson = argc == 2 && std::strcmp(argv[1], "--json") == 0;
  if (argc > 2 || (argc == 2 && !asJson)) {
    std::fprintf(stderr, "usage: cmutil %s\n", kProbeUsage);
    return 2;
  }
  Probe p;
  collect_cpu(p);
  collect_memory_and_os(p);
  collect_gpus(p);
  collect_scores(p);
  if (asJson)
    std::printf("%s\n", json::Serialize(to_json(p)).c_str());
  else
    print_text(p);
  return 0;
}

}  // namespace

CMUTIL_REGISTER_COMMAND("probe", kProbeUsage, probe_command);
