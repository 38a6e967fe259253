// NVML loaded with dlopen, with our own declarations of the few entry points we call.

#include <dlfcn.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/CmFsRoot.h"
#include "platform/CmGpuPlatform.h"

namespace {

typedef int nvmlReturn_t;  // 0 = success
typedef struct nvmlDevice_st* nvmlDevice_t;
struct nvmlMemory_t {
  unsigned long long total, free, used;
};
struct nvmlUtilization_t {
  unsigned int gpu, memory;
};
struct nvmlPciInfo_t {
  char busIdLegacy[16];
  unsigned int domain, bus, device, pciDeviceId, pciSubSystemId;
  char busId[32];
};

constexpr unsigned kNameSize = 96;

struct Nvml {
  void* handle = nullptr;
  nvmlReturn_t (*init)() = nullptr;
  nvmlReturn_t (*shutdown)() = nullptr;
  nvmlReturn_t (*count)(unsigned*) = nullptr;
  nvmlReturn_t (*byIndex)(unsigned, nvmlDevice_t*) = nullptr;
  nvmlReturn_t (*name)(nvmlDevice_t, char*, unsigned) = nullptr;
  nvmlReturn_t (*memory)(nvmlDevice_t, nvmlMemory_t*) = nullptr;
  nvmlReturn_t (*utilisation)(nvmlDevice_t, nvmlUtilization_t*) = nullptr;
  nvmlReturn_t (*pci)(nvmlDevice_t, nvmlPciInfo_t*) = nullptr;  // optional
  bool ready = false;

  template <class Fn>
  bool bind(Fn& fn, const char* symbol) {
    dlerror();
    fn = reinterpret_cast<Fn>(dlsym(handle, symbol));
    return fn != nullptr && dlerror() == nullptr;
  }

  void load() {
    handle = dlopen("libnvidia-ml.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!handle) return;
    const bool bound = bind(init, "nvmlInit_v2") && bind(shutdown, "nvmlShutdown") &&
                       bind(count, "nvmlDeviceGetCount_v2") && bind(byIndex, "nvmlDeviceGetHandleByIndex_v2") &&
                       bind(name, "nvmlDeviceGetName") && bind(memory, "nvmlDeviceGetMemoryInfo") &&
                       bind(utilisation, "nvmlDeviceGetUtilizationRates");
    if (bound && init() == 0) {
      if (!bind(pci, "nvmlDeviceGetPciInfo_v3")) pci = nullptr;
      ready = true;
      return;
    }
    dlclose(handle);
    handle = nullptr;
  }

  ~Nvml() {
    if (ready) shutdown();
  }
};

std::atomic<bool> g_allowUnderRoot{false};

Nvml* nvml() {
  static Nvml instance;
  static std::once_flag once;
  std::call_once(once, [] { instance.load(); });
  return instance.ready ? &instance : nullptr;
}

}  // namespace

void cm_allow_nvml_under_root_for_test(bool allow) { g_allowUnderRoot.store(allow); }

bool cm_nvml_devices(std::vector<CmNvmlDevice>& devices) {
  devices.clear();
  if (cm_fs_root_is_set() && !g_allowUnderRoot.load()) return false;
  Nvml* lib = nvml();
  unsigned count = 0;
  if (!lib || lib->count(&count) != 0) return false;
  for (unsigned i = 0; i < count; ++i) {
    nvmlDevice_t handle = nullptr;
    if (lib->byIndex(i, &handle) != 0) continue;
    CmNvmlDevice device;
    char name[kNameSize] = {};
    if (lib->name(handle, name, kNameSize) == 0) device.name.assign(name, strnlen(name, kNameSize));
    nvmlMemory_t memory = {};
    if (lib->memory(handle, &memory) == 0) device.memoryBytes = memory.total;
    nvmlUtilization_t rates = {};
    if (lib->utilisation(handle, &rates) == 0)
      device.utilisation = static_cast<int>(rates.gpu > 1000 ? 1000 : rates.gpu);
    nvmlPciInfo_t pci = {};
    if (lib->pci && lib->pci(handle, &pci) == 0) {
      device.havePci = true;
      device.domain = pci.domain;
      device.bus = pci.bus;
      device.device = pci.device;
    }
    devices.push_back(device);
  }
  return true;
}
