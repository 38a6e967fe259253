#pragma once
// Parsers of the text files behind the machine facts (/proc/cpuinfo, /proc/meminfo,
// /proc/self/status, cpulists, kernel releases). They take the text and never touch the
// filesystem, so captured or hostile text can be fed to them directly; every one is safe
// on arbitrary bytes.

#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"

/// What /proc/cpuinfo says about the CPU brand, frequency and cores.
struct CmCpuInfoText {
  std::string modelName;     ///< first "model name" (x86, some arm32)
  std::string hardware;      ///< "Hardware" (arm32 boards)
  unsigned implementer = 0;  ///< first "CPU implementer" (arm64), when hasArmIds
  unsigned part = 0;         ///< first "CPU part" (arm64), when hasArmIds
  bool hasArmIds = false;
  double mhz = 0;              ///< first "cpu MHz", 0 when absent
  unsigned processors = 0;     ///< "processor" entries
  unsigned physicalCores = 0;  ///< distinct ("physical id", "core id") pairs, 0 when absent
};

/// Parses cpuinfo text; false when it names no processor at all.
CM_EXPORT bool cm_parse_cpuinfo(const std::string& text, CmCpuInfoText& out);

/// Brand text for an arm64 implementer/part pair ("ARM Cortex-A72"); empty when unknown.
CM_EXPORT std::string cm_arm_cpu_name(unsigned implementer, unsigned part);

/// Expands a cpulist ("0-3,8,10-11") into CPU numbers. False on malformed text or a
/// range too large to be a CPU list.
CM_EXPORT bool cm_parse_cpulist(const std::string& text, std::vector<unsigned>& cpus);

/// Value in kB of "key:" in meminfo-style text (also /proc/self/status); false when absent.
CM_EXPORT bool cm_parse_kb_field(const std::string& text, const char* key, unsigned long long& kb);

/// Memory in use from meminfo text, in kB: MemTotal - MemAvailable, or on kernels without
/// MemAvailable MemTotal - MemFree - Buffers - Cached - SReclaimable + Shmem; never below 0.
CM_EXPORT bool cm_parse_meminfo_used(const std::string& text, unsigned long long& totalKb, unsigned long long& usedKb);

/// Leading "major.minor.patch" numbers of a kernel release; missing parts are 0. False
/// when the text does not start with a digit.
CM_EXPORT bool cm_parse_release(const std::string& release, unsigned& major, unsigned& minor, unsigned& patch);
