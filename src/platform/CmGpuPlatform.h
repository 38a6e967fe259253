#pragma once
// NVIDIA GPUs through the NVIDIA management library, loaded at run time when present
// (no build or link dependency on it).

#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"

struct CmNvmlDevice {
  std::string name;
  uint64_t memoryBytes = 0;  ///< 0 when unknown
  int utilisation = -1;      ///< percent over the last sample period, -1 when unknown
  bool havePci = false;
  unsigned domain = 0, bus = 0, device = 0;
};

/// The devices NVML reports, in its index order; false when the library is missing,
/// lacks a symbol or fails to start. Under a filesystem root NVML is not consulted
/// (captured trees describe the machine) unless a test allows it.
bool cm_nvml_devices(std::vector<CmNvmlDevice>& devices);

/// Test only: lets NVML answer while a filesystem root is set, so a fixture tree and
/// a stand-in library (found through LD_LIBRARY_PATH) describe one machine.
CM_EXPORT void cm_allow_nvml_under_root_for_test(bool allow);
