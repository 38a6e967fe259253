// Feeds arbitrary text to the parsers of machine-fact files: cpuinfo, meminfo, cpulists,
// kernel releases, CPU brand texts and the PCI ID database. Each must answer or refuse
// without reading past the text.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/system/CmSystemInfo.h"
#include "system/CmPciIds.h"
#include "system/CmSystemTextParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CmCpuInfoText info;
  if (cm_parse_cpuinfo(text, info) && info.processors == 0) __builtin_trap();
  if (info.hasArmIds) cm_arm_cpu_name(info.implementer, info.part);
  unsigned long long total = 0, used = 0;
  if (cm_parse_meminfo_used(text, total, used) && used > total) __builtin_trap();
  std::vector<unsigned> cpus;
  if (cm_parse_cpulist(text, cpus) && cpus.size() > (1u << 16)) __builtin_trap();
  unsigned major = 0, minor = 0, patch = 0;
  cm_parse_release(text, major, minor, patch);
  std::string model, series;
  uint32_t number = 0;
  bool intel = false;
  std::vector<char> numberText(size + 2);  // holds the longest word of the brand
  getCpuModelAndGeneration(text, model, number, intel, series, numberText.data());
  std::string vendor, device;
  if (!cm_pci_ids_lookup(text, 0x10de, 0x20b0, vendor, device) && !device.empty()) __builtin_trap();
  return 0;
}
