// A stand-in for the NVIDIA management library with two A100 GPUs at 35 % and 120 %
// utilisation (the second beyond the range a driver should report). Only the entry
// points the library calls exist.

#include <cstring>

extern "C" {

struct nvmlDevice_st {
  const char* name;
  unsigned long long memory;
  unsigned utilisation;
  unsigned domain, bus, device;
};

static nvmlDevice_st g_devices[] = {{"NVIDIA A100-SXM4-40GB", 40ULL << 30, 35, 0, 0x17, 0},
                                    {"NVIDIA A100-SXM4-40GB", 40ULL << 30, 120, 0, 0x65, 0}};

struct Memory {
  unsigned long long total, free, used;
};
struct Utilization {
  unsigned gpu, memory;
};
struct PciInfo {
  char busIdLegacy[16];
  unsigned domain, bus, device, pciDeviceId, pciSubSystemId;
  char busId[32];
};

__attribute__((visibility("default"))) int nvmlInit_v2() { return 0; }
__attribute__((visibility("default"))) int nvmlShutdown() { return 0; }
__attribute__((visibility("default"))) int nvmlDeviceGetCount_v2(unsigned* count) {
  *count = 2;
  return 0;
}
__attribute__((visibility("default"))) int nvmlDeviceGetHandleByIndex_v2(unsigned index, nvmlDevice_st** device) {
  if (index >= 2) return 2;
  *device = &g_devices[index];
  return 0;
}
__attribute__((visibility("default"))) int nvmlDeviceGetName(nvmlDevice_st* device, char* name, unsigned length) {
  std::strncpy(name, device->name, length);
  return 0;
}
__attribute__((visibility("default"))) int nvmlDeviceGetMemoryInfo(nvmlDevice_st* device, Memory* memory) {
  *memory = {device->memory, device->memory / 2, device->memory / 2};
  return 0;
}
__attribute__((visibility("default"))) int nvmlDeviceGetUtilizationRates(nvmlDevice_st* device, Utilization* rates) {
  *rates = {device->utilisation, 10};
  return 0;
}
__attribute__((visibility("default"))) int nvmlDeviceGetPciInfo_v3(nvmlDevice_st* device, PciInfo* info) {
  *info = {{}, device->domain, device->bus, device->device, 0, 0, {}};  // zero but the address
  return 0;
}
}
