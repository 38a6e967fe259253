// Machine facts: the first (uncached) and the cached cost of each fact, and a full fact
// set, beside the plain way a tool collects them (reading and parsing /proc/cpuinfo and
// /proc/meminfo with iostreams on every call). Uncached runs empty the caches each
// iteration through the test setter of the filesystem root.

#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cmutil/system/CmSystemInfo.h"
#include "platform/CmFsRoot.h"
#include "system/CmPciIds.h"

namespace {

struct PlainCpu {
  std::string brand;
  double mhz = 0;
  unsigned processors = 0, cores = 0;
  unsigned long long memTotalKb = 0;
};

// What a tool written the plain way does: iostreams over the whole file, per call.
PlainCpu PlainCollect() {
  PlainCpu cpu;
  std::ifstream in("/proc/cpuinfo");
  std::string line, physical;
  std::set<std::string> cores;
  while (std::getline(in, line)) {
    auto colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string key = line.substr(0, line.find_last_not_of(" \t", colon - 1) + 1);
    std::string value = colon + 2 <= line.size() ? line.substr(colon + 2) : "";
    if (key == "processor") ++cpu.processors;
    if (key == "model name" && cpu.brand.empty()) cpu.brand = value;
    if (key == "cpu MHz" && cpu.mhz == 0) cpu.mhz = std::stod(value);
    if (key == "physical id") physical = value;
    if (key == "core id") cores.insert(physical + "/" + value);
  }
  cpu.cores = static_cast<unsigned>(cores.size());
  std::ifstream mem("/proc/meminfo");
  std::string name;
  while (mem >> name) {
    if (name == "MemTotal:") {
      mem >> cpu.memTotalKb;
      break;
    }
    std::getline(mem, line);
  }
  return cpu;
}

void ClearCaches(bool uncached) {
  if (uncached) cm_set_fs_root_for_test(nullptr);
}

template <class Fact>
void RunFact(benchmark::State& state, Fact fact) {
  const bool uncached = state.range(0) == 1;
  cm_set_fs_root_for_test(nullptr);
  for (auto _ : state) {
    ClearCaches(uncached);
    fact();
  }
  state.SetLabel(uncached ? "first call" : state.range(0) == 0 ? "cached" : "read each call");
}

void BM_Cmutil_CpuBrand(benchmark::State& state) {
  char brand[256];
  RunFact(state, [&] { benchmark::DoNotOptimize(get_cpu_brand(brand, sizeof brand)); });
}
void BM_Cmutil_CpuFrequency(benchmark::State& state) {
  unsigned mhz = 0;
  RunFact(state, [&] { benchmark::DoNotOptimize(get_cpu_frequency(mhz)); });
}
void BM_Cmutil_CpuArch(benchmark::State& state) {
  char arch[64];
  RunFact(state, [&] { benchmark::DoNotOptimize(get_cpu_arch(arch, sizeof arch)); });
}
void BM_Cmutil_OsVersion(benchmark::State& state) {
  uint32_t a, b, c;
  RunFact(state, [&] { benchmark::DoNotOptimize(TvxGetOSVersionNumber(a, b, c)); });
}
void BM_Cmutil_OsInfoText(benchmark::State& state) {
  RunFact(state, [&] { benchmark::DoNotOptimize(kel_get_osinfo()); });
}
void BM_Cmutil_DeviceModel(benchmark::State& state) {
  RunFact(state, [&] { benchmark::DoNotOptimize(kel_get_devicemodel()); });
}
// Read on every call by design (they change or are cheap enough).
void BM_Cmutil_CpuCore(benchmark::State& state) {
  unsigned physical, threads;
  RunFact(state, [&] { benchmark::DoNotOptimize(get_cpu_core(physical, threads)); });
}
void BM_Cmutil_MemorySize(benchmark::State& state) {
  unsigned long long mb;
  RunFact(state, [&] { benchmark::DoNotOptimize(get_memory_size(mb)); });
}
void BM_Cmutil_MemoryUsage(benchmark::State& state) {
  float percent;
  unsigned long long used, total;
  RunFact(state, [&] { benchmark::DoNotOptimize(get_memory_usage(percent, used, total)); });
}
void BM_Cmutil_ProcessMemory(benchmark::State& state) {
  unsigned long long rss;
  RunFact(state, [&] { benchmark::DoNotOptimize(get_process_memory(rss)); });
}

void BM_Cmutil_GpuList(benchmark::State& state) {
  std::vector<std::string> names;
  std::vector<uint32_t> memory;
  RunFact(state, [&] {
    names.clear();
    memory.clear();
    benchmark::DoNotOptimize(getGpuInfo(names, memory));
  });
}
void BM_Cmutil_GpuUsage(benchmark::State& state) {
  long long usage = 0;
  RunFact(state, [&] { benchmark::DoNotOptimize(kel_get_GPU_usage(usage)); });
}

// A device name from the PCI ID database text: our parser against a plain line-by-line
// iostream lookup of the same text. The last vendor in the file is the worst case.
const std::string& PciIdsText() {
  static const std::string text = [] {
    std::ifstream in("/usr/share/misc/pci.ids");
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }();
  return text;
}

void BM_Cmutil_PciIdsLookup(benchmark::State& state) {
  std::string vendor, device;
  for (auto _ : state) benchmark::DoNotOptimize(cm_pci_ids_lookup(PciIdsText(), 0x10de, 0x20b0, vendor, device));
  state.SetLabel(device);
}

void BM_Plain_IostreamPciIdsLookup(benchmark::State& state) {
  std::string device;
  for (auto _ : state) {
    std::istringstream in(PciIdsText());
    std::string line;
    bool inVendor = false;
    device.clear();
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      if (line[0] != '\t') {
        if (inVendor) break;
        inVendor = line.compare(0, 4, "10de") == 0;
      } else if (inVendor && line.size() > 7 && line[1] != '\t' && line.compare(1, 4, "20b0") == 0) {
        device = line.substr(7);
        break;
      }
    }
    benchmark::DoNotOptimize(device);
  }
  state.SetLabel(device);
}

// Everything the probe program shows about the CPU, memory, GPUs and OS.
void BM_Cmutil_FullFactSet(benchmark::State& state) {
  char text[256];
  unsigned a, b, mhz;
  uint32_t x, y, z;
  unsigned long long mb, used, total, rss;
  float percent;
  RunFact(state, [&] {
    get_cpu_brand(text, sizeof text);
    get_cpu_core(a, b);
    get_cpu_frequency(mhz);
    get_cpu_arch(text, sizeof text);
    get_memory_size(mb);
    get_memory_usage(percent, used, total);
    get_process_memory(rss);
    TvxGetOSVersionNumber(x, y, z);
    benchmark::DoNotOptimize(kel_get_osinfo());
    benchmark::DoNotOptimize(kel_get_devicemodel());
    benchmark::DoNotOptimize(kel_get_devicemanufacturer());
    std::vector<std::string> names;
    std::vector<uint32_t> memory;
    getGpuInfo(names, memory);
    long long usage = 0;
    kel_get_GPU_usage(usage);
  });
}

void BM_Plain_IostreamCpuinfoMeminfo(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(PlainCollect());
}

// Arg 1: caches emptied every iteration; 0: cached; 2: facts read on every call.
#define FACT(name) BENCHMARK(name)->Arg(1)->Arg(0)
FACT(BM_Cmutil_CpuBrand);
FACT(BM_Cmutil_CpuFrequency);
FACT(BM_Cmutil_CpuArch);
FACT(BM_Cmutil_OsVersion);
FACT(BM_Cmutil_OsInfoText);
FACT(BM_Cmutil_DeviceModel);
BENCHMARK(BM_Cmutil_CpuCore)->Arg(2);
BENCHMARK(BM_Cmutil_MemorySize)->Arg(2);
BENCHMARK(BM_Cmutil_MemoryUsage)->Arg(2);
BENCHMARK(BM_Cmutil_ProcessMemory)->Arg(2);
FACT(BM_Cmutil_GpuList);
BENCHMARK(BM_Cmutil_GpuUsage)->Arg(2);
BENCHMARK(BM_Cmutil_PciIdsLookup);
BENCHMARK(BM_Plain_IostreamPciIdsLookup);
FACT(BM_Cmutil_FullFactSet);
BENCHMARK(BM_Plain_IostreamCpuinfoMeminfo);

}  // namespace
