// Machine facts on captured trees (this build VM, an Intel hybrid laptop, an ARM
// big.LITTLE board), on hand-made hostile trees, and on the live machine.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/system/CmSystemInformation.h"
#include "common/CmFsTree.h"
#include "common/CmTraceCapture.h"
#include "system/CmSystemTextParsers.h"

namespace {

struct Facts {
  const char* tree = nullptr;  // the captured tree, for the cases
  unsigned physical = 0, threads = 0, performance = 0, efficiency = 0, mhz = 0;
  std::string brand, arch, osver, model, maker;
  unsigned long long memoryMb = 0, usedKib = 0, totalKib = 0, rssKib = 0;
  std::string osinfo = "";  // from here on not given by the cases
  float percent = 0;
  int rssResult = 0;
  auto Tie() const {
    return std::tie(physical, threads, performance, efficiency, mhz, brand, arch, osver, model, maker, memoryMb,
                    usedKib, totalKib, rssKib);
  }
};

TEST(SystemFacts, CapturedTreesGiveEveryFact) {
  const Facts cases[] = {
      // A KVM guest: no cpufreq, no DMI, one thread per core; the current MHz stands in.
      {"vm-debian12-kvm-2c", 2, 1, 0, 0, 2596, "AMD EPYC", "x86_64", "6.18.44", "unknown", "unknown", 25276, 457900,
       24684084, 1684},
      // Four two-thread performance cores and eight efficiency cores; the 400 MHz minimum
      // is abnormal and gives the default.
      {"intel-hybrid", 12, 1, 4, 8, 2800, "13th Gen Intel(R) Core(TM) i7-1360P", "x86_64", "6.5.0", "XPS 13 9320",
       "Dell Inc.", 17179, 8388608, 16777216, 123456},
      // Capacities 446 and 1024; no model name, so the arm64 part names the brand; an old
      // meminfo without MemAvailable; device-tree model and maker.
      {"arm-biglittle", 6, 1, 2, 4, 1416, "ARM Cortex-A53", "aarch64", "5.10.160", "Radxa ROCK 4 Model B", "radxa",
       3977, 1954424, 3884424, 0},
  };
  for (const Facts& want : cases) {
    SCOPED_TRACE(want.tree);
    CmFixtureRoot root(want.tree);
    Facts f;
    char text[256] = {};
    CmSystemInformation info;  // the interface object over the readers
    EXPECT_EQ(CM_OK, info.GetCPUCore(f.physical, f.threads));
    get_cpu_core_levels(f.performance, f.efficiency);
    EXPECT_EQ(CM_OK, info.GetCPUBrand(text, sizeof text));
    f.brand = text;
    EXPECT_EQ(CM_OK, info.GetCPUFrequency(f.mhz));
    if (info.GetCPUArch(text, sizeof text) == CM_OK) f.arch = text;
    info.GetMemorySize(f.memoryMb);
    get_memory_usage(f.percent, f.usedKib, f.totalKib);
    f.rssResult = get_process_memory(f.rssKib);
    f.osver = kel_get_osver();
    f.osinfo = kel_get_osinfo();
    f.model = kel_get_devicemodel();
    f.maker = kel_get_devicemanufacturer();
    EXPECT_EQ(want.Tie(), f.Tie());
    EXPECT_EQ(std::make_pair("linux," + want.osver + "," + want.arch, want.rssKib ? 0 : -1),
              std::make_pair(f.osinfo, f.rssResult));
    EXPECT_FLOAT_EQ(static_cast<float>(want.usedKib) * 100.0f / static_cast<float>(want.totalKib), f.percent);
  }
}

TEST(SystemFacts, FrequencySourcesFallBackAndClampWithTheirTraces) {
  const char* kMin = "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_min_freq";
  const char* kCppcMin = "/sys/devices/system/cpu/cpu0/acpi_cppc/lowest_freq";
  const char* kBase = "/sys/devices/system/cpu/cpu0/cpufreq/base_frequency";
  const char* kNominal = "/sys/devices/system/cpu/cpu0/acpi_cppc/nominal_freq";
  // files; MHz; whether the minimum failed, the default was taken, the value was abnormal
  const std::tuple<CmFsTree::Files, unsigned, bool, bool, bool> cases[] = {
      {{{kMin, "800999\n"}, {kBase, "3000000\n"}}, 800, false, false, false},  // kHz, cut to whole MHz
      {{{kMin, "500000"}}, 500, false, false, false},                          // the floor itself, no newline
      {{{kCppcMin, "1200\n"}}, 1200, false, false, false},
      {{{kMin, "0\n"}, {kBase, "2100000\n"}}, 2100, false, false, false},  // a zero minimum asks on
      {{{kNominal, "3100\n"}}, 3100, true, false, false},
      {{{kBase, "400000\n"}}, 2800, true, false, true},
      {{{"/proc/cpuinfo", "processor: 0\ncpu MHz: 0\ncpu MHz: 1999.6\n"}}, 1999, true, false, false},  // 0: no reading
      {{{kMin, "99999999999999999999999\n"}}, 2800, true, true, false},  // overflows: absent
      {{{"/proc/cpuinfo", "garbage"}}, 2800, true, true, false},
      {{}, 2800, true, true, false},
  };
  for (const auto& [files, want, minFailed, defaulted, abnormal] : cases) {
    CmFsTree tree(files);
    CmTraceCapture capture;
    unsigned mhz = 0;
    SCOPED_TRACE(testing::Message() << "expecting " << want);
    EXPECT_EQ(std::make_pair(0, want), std::make_pair(get_cpu_frequency(mhz), mhz));
    EXPECT_EQ(minFailed, capture.contains("get_cpu_frequency hw.cpufrequency_min failed with error: "));
    EXPECT_EQ(defaulted, capture.contains("get_cpu_frequency error result=-1"));
    EXPECT_EQ(defaulted, capture.contains("get_cpu_frequency error , set cpu frequency to default(2800)"));
    EXPECT_EQ(abnormal, capture.contains("get_cpu_frequency cpu_frequency is abnormal, frequency = 400, set cpu "
                                         "frequency to default = 2800"));
    EXPECT_TRUE(capture.contains("get_cpu_frequency cpu_frequency = " + std::to_string(want)));
  }
}

// The whole text must match; out takes the first group, or nothing when that group
// took no part, and stays as it was when the text does not match.
TEST(SystemFacts, RegexParseTakesTheFirstGroupOfAWholeMatch) {
  CmTraceCapture capture;
  std::string out = "kept";
  for (const char* text : {"model: X1 extra", "no model"}) EXPECT_EQ(0, regex_parse_info(text, "model: (\\w+)", out));
  EXPECT_EQ("kept", out);
  EXPECT_EQ(std::make_pair(0, std::string("X1")),
            std::make_pair(regex_parse_info("model: X1", "model: (\\w+)", out), out));
  EXPECT_EQ(std::make_pair(0, std::string()), std::make_pair(regex_parse_info("abc", "a(x)?bc", out), out));
  regex_parse_info("abc", "(", out);
  EXPECT_TRUE(capture.contains(1, "regex_parse_info bad pattern (: "));
}

TEST(SystemFacts, CoreCountsFromTopologyCpuinfoOrNothing) {
  const char* kOnline = "/sys/devices/system/cpu/online";
  // (result, physical cores, threads per core) and the files
  const std::tuple<std::tuple<int, unsigned, unsigned>, CmFsTree::Files> cases[] = {
      // No topology: distinct (physical id, core id) pairs of cpuinfo.
      {{0, 2, 2},
       {{kOnline, "0-3\n"},
        {"/proc/cpuinfo",
         "processor: 0\nphysical id: 0\ncore id: 0\nprocessor: 1\nphysical id: 0\ncore id: 0\n"
         "processor: 2\nphysical id: 1\ncore id: 0\nprocessor: 3\nphysical id: 1\ncore id: 0\n"}}},
      // Old kernels name siblings in thread_siblings_list only.
      {{0, 1, 2},
       {{kOnline, "0-1"},
        {"/sys/devices/system/cpu/cpu0/topology/thread_siblings_list", "0-1\n"},
        {"/sys/devices/system/cpu/cpu1/topology/thread_siblings_list", "0-1\n"}}},
      {{0, 3, 1}, {{kOnline, "0,2-3\n"}}},  // nothing else: one core per CPU
      {{0, 1, 1}, {{kOnline, "0"}}},        // a one-byte file
      // ARM-style equal capacities are no levels; x86 never uses capacities.
      {{0, 2, 1},
       {{kOnline, "0-1\n"},
        {"/proc/sys/kernel/arch", "x86_64\n"},
        {"/sys/devices/system/cpu/cpu0/cpu_capacity", "446\n"},
        {"/sys/devices/system/cpu/cpu1/cpu_capacity", "1024\n"}}},
      {{1, 77, 77}, {{kOnline, "0-99999999\n"}}},  // a list too large to be real: the query fails
      {{1, 77, 77}, {{kOnline, "0-65535,0\n"}}},   // one CPU past the cap on the whole list
      {{1, 77, 77}, {{kOnline, "x\n"}}},
      {{1, 77, 77}, {}},
  };
  for (const auto& [want, files] : cases) {
    CmFsTree tree(files);
    CmTraceCapture capture;
    unsigned physical = 77, threads = 77;
    const int rc = get_cpu_core(physical, threads);
    EXPECT_EQ(want, std::tie(rc, physical, threads));
    if (std::get<0>(want) == 0) {
      EXPECT_TRUE(capture.contains("get_cpu_core cpu_performace_core_num failed with error: 2"));
      EXPECT_TRUE(capture.contains("get_cpu_core cpu_performace_core_num = 0, cpu_efficiency_core_num = 0, old " +
                                   ("physical_core_num = " + std::to_string(std::get<1>(want)))));
      EXPECT_TRUE(capture.contains("get_cpu_core new physical_core_num = " + std::to_string(std::get<1>(want))));
    }
  }
}

TEST(SystemFacts, MemoryReadersDegradeOnBadMeminfo) {
  // meminfo; result, used and total kB; MB
  const std::tuple<const char*, int, unsigned long long, unsigned long long, unsigned long long> cases[] = {
      // Outputs keep their low 32 bits: 2^32 + 5 kB reads as 5.
      {"MemTotal: 4294967301 kB\nMemAvailable: 4294967296 kB\n", 0, 5, 5, 4398046},
      {"MemTotal: 1000 kB\nMemAvailable: 5000 kB\n", 0, 0, 1000, 1},  // never below 0
      {"MemTotal: 1000 kB\nMemFree: 999999 kB\n", 0, 0, 1000, 1},
      {"MemFree: 100 kB\n", -1, 0, 0, 0},
      {"MemTotal: -5 kB\n", -1, 0, 0, 0},
      {"MemTot", -1, 0, 0, 0},
      {nullptr, -1, 0, 0, 0},
  };
  for (const auto& [meminfo, result, usedKib, totalKib, memoryMb] : cases) {
    CmFsTree tree;
    if (meminfo) tree.Write("/proc/meminfo", meminfo);
    float percent = -1;
    unsigned long long used = 9, total = 9, mb = 9;
    const int rc = get_memory_usage(percent, used, total), sizeRc = get_memory_size(mb);
    EXPECT_EQ(std::make_tuple(result, usedKib, totalKib, 0, memoryMb), std::make_tuple(rc, used, total, sizeRc, mb));
    EXPECT_EQ(total ? used * 100.0f / total : 0.0f, percent);
  }
}

TEST(SystemFacts, OsVersionRecordFromTheKernelRelease) {
  // release; whether valid, major, minor, patch; the text
  const std::tuple<const char*, bool, uint32_t, uint32_t, uint32_t, const char*> cases[] = {
      {"6.1.0-18-amd64\n", true, 6, 1, 0, "6.1.0"}, {"6.18\n", true, 6, 18, 0, "6.18.0"},
      {"5.15.0.1.2", true, 5, 15, 0, "5.15.0"},     {"99999999999.1.1", true, 0xffffffff, 1, 1, "4294967295.1.1"},
      {"linux-6.1", false, 0, 0, 0, "0.0.0"},       {nullptr, false, 0, 0, 0, "0.0.0"},
  };
  for (const auto& [release, wantValid, wantMajor, wantMinor, wantPatch, text] : cases) {
    SCOPED_TRACE(text);
    CmFsTree tree;
    if (release) tree.Write("/proc/sys/kernel/osrelease", release);
    uint32_t major = 7, minor = 7, patch = 7;
    int64_t m = -1;
    const bool valid = TvxGetOSVersionNumber(major, minor, patch);
    getMacSystemVersion(&m, nullptr, nullptr);
    EXPECT_EQ(std::make_tuple(wantValid, wantMajor, wantMinor, wantPatch, int64_t{wantMajor}, 100u),
              std::make_tuple(valid, major, minor, patch, m, TvxGetOSVersion()));
    EXPECT_EQ((std::vector<std::string>{text, "unknown", std::string("linux,") + text + ","}),
              (std::vector<std::string>{kel_get_osver(), kel_get_osarch(), kel_get_osinfo()}));
  }
}

}  // namespace
