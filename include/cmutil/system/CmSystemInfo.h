#pragma once
/// Machine facts for the media engine: CPU cores, brand, frequency and architecture,
/// physical memory and memory in use, the process's own memory, GPUs, the operating
/// system version and the device model.
///
/// Each fact is read once from the system (/proc, /sys, uname ...) and remembered for the
/// life of the process, so later calls are cheap; a source missing at run time (a VM
/// without cpufreq, a host without a GPU) degrades to a fixed value with a trace line:
/// 0 counts, "unknown" texts, 2800 MHz. The caches are filled without locks and hold
/// idempotent values: prime them early from one thread (the static performance score
/// does) when several threads will read them. Results are 0 on success unless noted.
///
///   unsigned int cores = 0, threads = 0;
///   get_cpu_core(cores, threads);

#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

/// Operating-system version record, filled exactly once (thread-safely).
struct CM_EXPORT TvxOSVersionInfo {
  uint32_t platformId;  ///< always 100
  uint32_t major;
  uint32_t minor;
  uint32_t patch;
  uint32_t patchCopy;  ///< the patch again; reported third by TvxGetOSVersionNumber
  bool valid;          ///< false when the version could not be read (numbers are 0)
};

/// Physical core count and logical CPUs per physical core. On a hybrid CPU the physical
/// count is performance + efficiency cores. Returns 1, outputs untouched, when the CPU
/// count cannot be read.
CM_EXPORT int get_cpu_core(unsigned int& physical_core_num, unsigned int& threads_per_core);

/// Performance and efficiency core counts of a hybrid CPU; both 0 when the CPU has one
/// kind of core (or the kinds cannot be told apart). Not cached.
CM_EXPORT void get_cpu_core_levels(unsigned int& performance_cores, unsigned int& efficiency_cores);

/// CPU brand text into dest (bounded copy; truncated texts are refused by the copy).
/// Always returns 0; an unreadable brand leaves dest empty and is asked again next call.
CM_EXPORT int get_cpu_brand(char* dest, int size);

/// CPU frequency in MHz, never 0: the minimum frequency when known, else the base or
/// current one; below 500 MHz or unknown gives 2800.
CM_EXPORT int get_cpu_frequency(unsigned int& frequency_mhz);

/// value when it is at least minimum, else fallback.
CM_EXPORT int set_cpu_frequency_min(int value, int minimum, int fallback);

/// Hardware machine name ("x86_64", "aarch64"); -1 on failure.
CM_EXPORT int get_cpu_arch(char* dest, int size);

/// Whole-text match of text against pattern; out = first capture group when it took
/// part, else empty; out is untouched when the text does not match. Always 0.
CM_EXPORT int regex_parse_info(const std::string& text, const std::string& pattern, std::string& out);

/// Physical memory in units of 1,000,000 bytes (decimal megabytes). Always 0.
CM_EXPORT int get_memory_size(unsigned long long& memory_mb);

/// System memory in use: percent, used KiB and total KiB. -1 when it cannot be read
/// (outputs stay 0).
CM_EXPORT int get_memory_usage(float& percent, unsigned long long& used_kib, unsigned long long& total_kib);

/// Resident memory of this process in KiB; -1 on failure.
CM_EXPORT int get_process_memory(unsigned long long& resident_kib);

/// Raw reader behind get_memory_usage. Both outputs keep only their low 32 bits.
CM_EXPORT int GetMemoryUsageMac64(unsigned long long& used_kib, unsigned long long& total_kib);

/// Raw reader behind get_process_memory.
CM_EXPORT int GetProcessMemoryMac64(unsigned long long& resident_kib);

/// Physical memory in bytes; 0 when unknown.
CM_EXPORT unsigned long long kel_get_memory_total_memory();

/// Brand-text parser: series ("Core(TM)"), model ("i7"), number (8750) and whether the
/// brand is Intel's. number_text, when given, receives the number's text ("8750H"); it
/// must hold the brand's longest word. Returns false on an Intel brand it cannot read.
CM_EXPORT bool getCpuModelAndGeneration(std::string brand, std::string& model, uint32_t& number, bool& is_intel,
                                        std::string& series, char* number_text = nullptr);

/// Platform identifier of the version record: 100.
CM_EXPORT uint32_t TvxGetOSVersion();

/// Major, minor and patch of the operating system (the kernel release); returns whether
/// they were read.
CM_EXPORT bool TvxGetOSVersionNumber(uint32_t& major, uint32_t& minor, uint32_t& patch);

/// The version record, filled on the first call.
CM_EXPORT const TvxOSVersionInfo* TvxGetOSVersionInfo();

/// Each non-null pointer receives the matching version number, 0 when unknown.
CM_EXPORT void getMacSystemVersion(int64_t* major, int64_t* minor, int64_t* patch);

/// "linux".
CM_EXPORT const char* kel_get_platform();
/// Device (product) model, "unknown" when the machine does not say.
CM_EXPORT const char* kel_get_devicemodel();
/// Device maker, "unknown" when the machine does not say.
CM_EXPORT const char* kel_get_devicemanufacturer();
/// "major.minor.patch" of the operating system.
CM_EXPORT const char* kel_get_osver();
/// Machine name of the kernel ("x86_64"), "unknown" when unavailable.
CM_EXPORT const char* kel_get_osarch();
/// "linux,<osver>,<osarch>".
CM_EXPORT const char* kel_get_osinfo();

// ---- GPUs -------------------------------------------------------------------------

/// Highest utilisation of any GPU in percent, starting from the caller's value and
/// clamped to 100. Returns true when any GPU reported a value; false leaves usage as it
/// was.
CM_EXPORT bool kel_get_GPU_usage(long long& usage);
/// The same, starting at 0 and returning the percentage.
CM_EXPORT long long kel_get_GPU_usage();
/// kel_get_GPU_usage() as a float.
CM_EXPORT float getGpuUsage();

/// GPU names and memory (MiB) in enumeration order, one entry per card, remembered after
/// the first success. The third argument is ignored. 0x46000001 when there is no GPU.
CM_EXPORT CmResult getGpuInfo(std::vector<std::string>& names, std::vector<uint32_t>& memory_mib,
                              std::vector<uint64_t>* ignored = nullptr);

/// Name of the default GPU (the one driving the main display), empty when there is none.
CM_EXPORT std::string getDefaultGpuName();
