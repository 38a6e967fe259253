// Operating-system and device facts: the version record (from the kernel release), and
// the device model, maker, OS version, architecture and info texts.

#include <cstring>
#include <mutex>
#include <string>

#include "cmutil/safe/CmSafeLib.h"
#include "cmutil/system/CmSystemInfo.h"
#include "platform/CmFsRoot.h"
#include "platform/CmSystemPlatform.h"
#include "system/CmFactCache.h"
#include "system/CmSystemTextParsers.h"

namespace {

constexpr uint32_t kPlatformId = 100;
constexpr size_t kTextSize = 256;
const char kUnknown[] = "unknown";

CmFactCache<TvxOSVersionInfo> g_os_version;

// One of the 256-byte texts handed out by pointer: filled once, then stable.
struct FactText {
  CmFactCache<bool> filled;
  char text[kTextSize] = {};
};

FactText g_device_model, g_device_maker, g_os_ver, g_os_arch, g_os_info;

void clear_os_caches() {
  g_os_version.Clear();
  for (FactText* t : {&g_device_model, &g_device_maker, &g_os_ver, &g_os_arch, &g_os_info}) t->filled.Clear();
}
CM_FS_CACHE_RESET(clear_os_caches);

TvxOSVersionInfo read_os_version() {
  TvxOSVersionInfo info = {kPlatformId, 0, 0, 0, 0, false};
  std::string release;
  unsigned major = 0, minor = 0, patch = 0;
  if (cm_sys_os_release(release) && cm_parse_release(release, major, minor, patch)) {
    info = {kPlatformId, major, minor, patch, patch, true};
  }
  return info;
}

template <class Compose>
const char* fill_once(FactText& fact, Compose&& compose) {
  if (fact.filled.Filled()) return fact.text;
  static std::mutex fillMutex;
  std::lock_guard<std::mutex> lock(fillMutex);
  if (!fact.filled.Filled()) {
    std::string value = compose();
    if (value.empty()) value = kUnknown;
    if (value.size() >= kTextSize) value.resize(kTextSize - 1);
    strcpy_s(fact.text, kTextSize, value.c_str());
    fact.filled.Set(true);
  }
  return fact.text;
}

// First non-empty line among the files (DMI strings, device-tree texts).
std::string first_text(std::initializer_list<const char*> paths) {
  std::string text;
  for (const char* path : paths) {
    if (!cm_read_fs_line(path, text)) continue;
    text = text.c_str();  // device-tree strings end in NUL
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n')) text.pop_back();
    if (!text.empty()) return text;
  }
  return std::string();
}

std::string device_tree_maker() {
  std::string compatible;
  if (!cm_read_fs_file("/proc/device-tree/compatible", compatible)) return std::string();
  compatible = compatible.c_str();  // first of the NUL-separated entries
  size_t comma = compatible.find(',');
  return comma == std::string::npos ? std::string() : compatible.substr(0, comma);
}

}  // namespace

const TvxOSVersionInfo* TvxGetOSVersionInfo() {
  if (!g_os_version.Filled()) g_os_version.Set(read_os_version());
  return &g_os_version.Value();
}

uint32_t TvxGetOSVersion() { return TvxGetOSVersionInfo()->platformId; }

bool TvxGetOSVersionNumber(uint32_t& major, uint32_t& minor, uint32_t& patch) {
  const TvxOSVersionInfo* info = TvxGetOSVersionInfo();
  major = info->major;
  minor = info->minor;
  patch = info->patchCopy;
  return info->valid;
}

void getMacSystemVersion(int64_t* major, int64_t* minor, int64_t* patch) {
  const TvxOSVersionInfo* info = TvxGetOSVersionInfo();
  if (major) *major = info->major;
  if (minor) *minor = info->minor;
  if (patch) *patch = info->patch;
}

const char* kel_get_platform() { return "linux"; }

const char* kel_get_devicemodel() {
  return fill_once(g_device_model, [] {
    return first_text({"/sys/class/dmi/id/product_name", "/sys/class/dmi/id/board_name", "/proc/device-tree/model"});
  });
}

const char* kel_get_devicemanufacturer() {
  return fill_once(g_device_maker, [] {
    std::string maker = first_text({"/sys/class/dmi/id/sys_vendor", "/sys/class/dmi/id/board_vendor"});
    return maker.empty() ? device_tree_maker() : maker;
  });
}

const char* kel_get_osver() {
  return fill_once(g_os_ver, [] {
    int64_t major = 0, minor = 0, patch = 0;
    getMacSystemVersion(&major, &minor, &patch);
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
  });
}

const char* kel_get_osarch() {
  return fill_once(g_os_arch, [] {
    std::string machine;
    return cm_sys_machine(machine) ? machine : std::string();
  });
}

const char* kel_get_osinfo() {
  return fill_once(g_os_info, [] {
    std::string machine;
    cm_sys_machine(machine);
    return std::string(kel_get_platform()) + "," + kel_get_osver() + "," + machine;
  });
}
