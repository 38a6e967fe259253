// GPU facts: DRM cards from sysfs (names from pci.ids), NVIDIA devices through NVML,
// one entry per card, the default (display) GPU, memory and utilisation.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmFsRoot.h"
#include "platform/CmGpuPlatform.h"
#include "system/CmFactCache.h"
#include "system/CmPciIds.h"

namespace {

constexpr unsigned kNvidia = 0x10de, kAmd = 0x1002, kIntel = 0x8086;

struct GpuCard {
  std::string name;
  uint64_t memoryBytes = 0;
  int utilisation = -1;  // percent, -1 when the card reports none
  unsigned vendor = 0, deviceId = 0;
  bool bootVga = false;
  std::string driver;
  std::string pciAddress;  // "0000:01:00.0"
  int nvmlIndex = -1;
};

struct GpuList {
  std::vector<std::string> names;
  std::vector<uint32_t> memoryMib;
  std::string defaultName;
};

CmFactCache<GpuList> g_gpuList;

void clear_gpu_cache() { g_gpuList.Clear(); }
CM_FS_CACHE_RESET(clear_gpu_cache);

std::string base_name(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::vector<int> drm_card_numbers() {
  std::vector<std::string> names;
  std::vector<int> cards;
  if (!cm_list_fs_dir("/sys/class/drm", names)) return cards;
  for (const std::string& name : names) {
    if (name.size() < 5 || name.compare(0, 4, "card") != 0 || name.size() > 8) continue;
    if (name.find_first_not_of("0123456789", 4) != std::string::npos) continue;  // cardN-<connector>
    cards.push_back(std::atoi(name.c_str() + 4));
  }
  std::sort(cards.begin(), cards.end());
  return cards;
}

std::string card_path(int card, const char* leaf) {
  char path[96];
  std::snprintf(path, sizeof path, "/sys/class/drm/card%d/%s", card, leaf);
  return path;
}

unsigned read_hex(int card, const char* leaf) {
  unsigned long long value = 0;
  return cm_read_fs_u64(card_path(card, leaf).c_str(), value) && value <= 0xffff ? static_cast<unsigned>(value) : 0;
}

const std::string& pci_ids_text() {
  static const std::string text = [] {
    std::string content;
    if (!cm_read_fs_file("/usr/share/hwdata/pci.ids", content)) cm_read_fs_file("/usr/share/misc/pci.ids", content);
    return content;
  }();
  return text;
}

std::string card_name(int card, const GpuCard& gpu) {
  std::string name;
  if (cm_read_fs_line(card_path(card, "device/product_name").c_str(), name) && !name.empty()) return name;
  std::string text;
  // A captured tree carries its own small database; the live machine reads it once.
  if (cm_fs_root_is_set()) {
    if (!cm_read_fs_file("/usr/share/hwdata/pci.ids", text)) cm_read_fs_file("/usr/share/misc/pci.ids", text);
  }
  std::string vendorName, deviceName;
  cm_pci_ids_lookup(cm_fs_root_is_set() ? text : pci_ids_text(), gpu.vendor, gpu.deviceId, vendorName, deviceName);
  if (!deviceName.empty()) return deviceName;
  char fallback[64];
  if (!vendorName.empty()) {
    std::snprintf(fallback, sizeof fallback, " device %04x", gpu.deviceId);
    return vendorName + fallback;
  }
  std::snprintf(fallback, sizeof fallback, "GPU %04x:%04x", gpu.vendor, gpu.deviceId);
  return fallback;
}

int card_utilisation(int card, const GpuCard& gpu) {
  if (gpu.driver != "amdgpu") return -1;
  std::string state;
  // Reading a suspended card would wake it (or fail): it is idle.
  if (cm_read_fs_line(card_path(card, "device/power/runtime_status").c_str(), state) && state == "suspended") return 0;
  unsigned long long busy = 0;
  return cm_read_fs_u64(card_path(card, "device/gpu_busy_percent").c_str(), busy)
             ? static_cast<int>(std::min(busy, 1000ULL))
             : -1;
}

GpuCard read_card(int card, bool withNames) {
  GpuCard gpu;
  gpu.vendor = read_hex(card, "device/vendor");
  gpu.deviceId = read_hex(card, "device/device");
  unsigned long long bootVga = 0;
  gpu.bootVga = cm_read_fs_u64(card_path(card, "device/boot_vga").c_str(), bootVga) && bootVga == 1;
  std::string link;
  if (cm_read_fs_link(card_path(card, "device/driver").c_str(), link)) gpu.driver = base_name(link);
  if (cm_read_fs_link(card_path(card, "device").c_str(), link)) gpu.pciAddress = base_name(link);
  unsigned long long vram = 0;
  if (cm_read_fs_u64(card_path(card, "device/mem_info_vram_total").c_str(), vram)) gpu.memoryBytes = vram;
  gpu.utilisation = card_utilisation(card, gpu);
  if (withNames) gpu.name = card_name(card, gpu);
  return gpu;
}

bool same_pci(const GpuCard& card, const CmNvmlDevice& device) {
  unsigned domain = 0, bus = 0, slot = 0, function = 0;
  return device.havePci && std::sscanf(card.pciAddress.c_str(), "%x:%x:%x.%x", &domain, &bus, &slot, &function) == 4 &&
         domain == device.domain && bus == device.bus && slot == device.device;
}

// DRM cards in card order, NVIDIA devices merged into their cards by PCI address and
// the ones without a DRM card appended. False when neither source exists.
bool enumerate(std::vector<GpuCard>& cards, bool withNames) {
  cards.clear();
  const bool haveDrm = cm_fs_exists("/sys/class/drm");
  for (int number : drm_card_numbers()) cards.push_back(read_card(number, withNames));
  std::vector<CmNvmlDevice> devices;
  const bool haveNvml = cm_nvml_devices(devices);
  for (size_t i = 0; i < devices.size(); ++i) {
    auto match = std::find_if(cards.begin(), cards.end(), [&](const GpuCard& c) { return same_pci(c, devices[i]); });
    if (match == cards.end()) match = cards.insert(cards.end(), GpuCard());
    match->nvmlIndex = static_cast<int>(i);
    match->vendor = kNvidia;
    if (!devices[i].name.empty()) match->name = devices[i].name;
    if (devices[i].memoryBytes) match->memoryBytes = devices[i].memoryBytes;
    match->utilisation = devices[i].utilisation;
  }
  return haveDrm || haveNvml;
}

bool display_vendor(unsigned vendor) { return vendor == kNvidia || vendor == kAmd || vendor == kIntel; }

// The GPU driving the display: the boot VGA card of a real GPU vendor, else NVML's
// first device, else the lowest-numbered AMD or Intel card. Server BMC and virtual
// adapters are never chosen.
const GpuCard* default_card(const std::vector<GpuCard>& cards) {
  for (const GpuCard& c : cards)
    if (c.bootVga && display_vendor(c.vendor)) return &c;
  for (const GpuCard& c : cards)
    if (c.nvmlIndex == 0) return &c;
  for (const GpuCard& c : cards)
    if (c.driver == "amdgpu" || c.driver == "i915" || c.driver == "xe") return &c;
  return nullptr;
}

}  // namespace

CmResult getGpuInfo(std::vector<std::string>& names, std::vector<uint32_t>& memory_mib, std::vector<uint64_t>*) {
  if (g_gpuList.Filled() && !g_gpuList.Value().names.empty()) {
    names = g_gpuList.Value().names;
    memory_mib = g_gpuList.Value().memoryMib;
    return CM_OK;
  }
  std::vector<GpuCard> cards;
  enumerate(cards, true);
  if (cards.empty()) {
    CM_ERROR_TRACE("getGpuInfo: fail to get gpu");
    return CM_ERROR_GENERIC;
  }
  GpuList list;
  const GpuCard* chosen = default_card(cards);
  list.defaultName = chosen ? chosen->name : std::string();
  CM_INFO_TRACE("getGpuInfo: default gpu is " << list.defaultName.c_str());
  for (const GpuCard& card : cards) {
    const uint32_t mib = static_cast<uint32_t>(card.memoryBytes >> 20);
    CM_INFO_TRACE("getGpuInfo: name=" << card.name.c_str() << ", memory=" << mib);
    names.push_back(card.name);
    memory_mib.push_back(mib);
    list.names.push_back(card.name);
    list.memoryMib.push_back(mib);
  }
  g_gpuList.Set(list);
  return CM_OK;
}

std::string getDefaultGpuName() {
  std::vector<std::string> names;
  std::vector<uint32_t> memory;
  if (getGpuInfo(names, memory) != CM_OK) return std::string();
  return g_gpuList.Value().defaultName;
}

bool kel_get_GPU_usage(long long& usage) {
  std::vector<GpuCard> cards;
  if (!enumerate(cards, false)) return false;
  long long highest = usage;
  bool reported = false;
  for (const GpuCard& card : cards) {
    if (card.utilisation < 0) continue;
    highest = std::max<long long>(highest, card.utilisation);
    reported = true;
  }
  usage = highest >= 101 ? 100 : highest;
  return reported;
}

long long kel_get_GPU_usage() {
  long long usage = 0;
  kel_get_GPU_usage(usage);
  return usage;
}

float getGpuUsage() { return static_cast<float>(kel_get_GPU_usage()); }
