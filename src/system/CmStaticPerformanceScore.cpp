// Static performance score: bands per level, the desktop, Apple-mobile and Android
// paths, overrides and tuning tables.

#include "cmutil/system/CmStaticPerformanceScore.h"

#include <algorithm>
#include <cstring>

#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

CmStaticPerformanceScore* g_instance = nullptr;

const char* const kOSTexts[] = {"",    "android",    "linux",    "win",  "win-uwp",
                                "mac", "ios-iphone", "ios-ipad", "tvos", "visionos"};

bool is_desktop(KelCurrentOS os) { return os >= KelOSLinux && os <= KelOSMac; }
bool is_apple_mobile(KelCurrentOS os) { return os >= KelOSIPhone && os <= KelOSVisionOS; }

// Band minimum (as the first of a pair) or maximum of one level; level 5 depends on
// the family and, on Windows, the core count. -1 for a level without a band.
int band_edge(kel::KelPerformanceLevel level, bool maximum, KelCurrentOS os, uint32_t cores) {
  if (level >= kel::KelPerformanceLevel0 && level <= kel::KelPerformanceLevel4)
    return 50 + 10 * level + (maximum ? 10 : 0);
  if (level != kel::KelPerformanceLevel5) return 0;
  if (os != KelOSWin) return maximum ? 128 : 100;
  if (cores < 16) return maximum ? 110 : 100;
  if (cores < 32) return maximum ? 120 : 110;
  return maximum ? 128 : 120;
}

int round_by_offset(int raw, uint32_t mode, bool& unknownMode) {
  const int tens = raw / 10;
  const int units = raw - tens * 10;
  unknownMode = false;
  switch (mode) {
    case 0:
      return raw;
    case 1:
      return std::max(tens * 10 + units / 2, raw - 2);
    case 2:
      return tens * 10 + units / 2;
    default:
      unknownMode = true;
      return raw;
  }
}

}  // namespace

CmStaticPerformanceScore* CmStaticPerformanceScore::Instance(bool destroy) {
  if (destroy) {
    delete g_instance;
    g_instance = nullptr;
    return nullptr;
  }
  if (!g_instance) g_instance = new CmStaticPerformanceScore();
  return g_instance;
}

void CmStaticPerformanceScore::DestroyInstance() {
  CM_INFO_TRACE(CM_FUNC_NAME << " [this=" << static_cast<const void*>(g_instance) << "]");
  delete g_instance;
  g_instance = nullptr;
}

CmStaticPerformanceScore::CmStaticPerformanceScore() : m_pSystemInfo(new _tagKelSystemInfo()) {
  CM_INFO_TRACE_THIS(CM_FUNC_NAME);
  Init();
}

CmStaticPerformanceScore::~CmStaticPerformanceScore() {
  CM_INFO_TRACE_THIS(CM_FUNC_NAME);
  delete m_pSystemInfo;
}

int CmStaticPerformanceScore::Init() {
  char brand[1024] = {};
  get_cpu_brand(brand, sizeof brand);
  m_pSystemInfo->cpuInfo = brand;
  get_cpu_frequency(m_pSystemInfo->m_cpuFrequency);
  get_cpu_core(m_pSystemInfo->m_physicalCore, m_pSystemInfo->m_virtualCore);
  unsigned long long memory = 0;
  get_memory_size(memory);
  m_pSystemInfo->m_memSize = memory;
  m_pSystemInfo->m_currOS = KelOSLinux;
  return 0;
}

void CmStaticPerformanceScore::Reset() {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  s.m_staticPerformanceScore = 0;
  s.cpuInfo.clear();
  s.m_cpuFrequency = s.m_physicalCore = s.m_virtualCore = 0;
  s.m_memSize = 0;
  s.m_osVersion = 0;
  s.m_currOS = KelOSNone;
  s.m_cpuClass = s.m_specificModel = s.m_ScoreOffset = 0;
}

void CmStaticPerformanceScore::ResetScore() {
  m_pSystemInfo->m_staticPerformanceScore = 0;
  m_pSystemInfo->m_specificModel = 0;
}

_tagKelSystemInfo* CmStaticPerformanceScore::GetSystemOSInfo() {
  m_pSystemInfo->m_currOS = KelOSLinux;
  return m_pSystemInfo;
}

CmResult CmStaticPerformanceScore::GetOSType(KelCurrentOS& os, std::string& text) {
  os = m_pSystemInfo->m_currOS;
  if (os == KelOSNone) {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::GetOSType fail, m_currOS = " << os);
    return CM_ERROR_INVALID_ARG;
  }
  if (os > KelOSVisionOS) {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::GetOSType not support OS, currOS = " << os);
    return CM_OK;
  }
  text = kOSTexts[os];
  return CM_OK;
}

CmResult CmStaticPerformanceScore::ConfigureParameters(KelCurrentOS os, const std::vector<int>& spcCpuParam,
                                                       _tagKelSPCParamOffset offset) {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  if (s.m_currOS == KelOSNone) {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::ConfigureParameters fail, need init OS, m_currOS = " << s.m_currOS);
    return CM_ERROR_INVALID_ARG;
  }
  if (os != s.m_currOS) {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::ConfigureParameters fail,  OS not match, m_currOS = "
                        << s.m_currOS << ", os = " << os);
    return CM_ERROR_INVALID_ARG;
  }
  if (spcCpuParam.size() < static_cast<size_t>(kKelCpuParams)) {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::ConfigureParameters fail, spcCpuParam error, spcCpuParam.size() = "
                        << spcCpuParam.size());
    return CM_ERROR_FAILURE;
  }
  // The table is one run of rows: more values than a row holds go on into the next
  // family's row (never past the table's end).
  int32_t* table = &s.spcCpuParam[0][0];
  const size_t start = static_cast<size_t>(os) * kKelCpuParams;
  const size_t room =
      static_cast<size_t>(kKelOSFamilies * kKelCpuParams) - std::min<size_t>(start, kKelOSFamilies * kKelCpuParams);
  const size_t count = std::min(spcCpuParam.size(), room);
  for (size_t i = 0; i < count; ++i) table[start + i] = spcCpuParam[i];
  if (os < kKelOSFamilies) s.offset[os] = offset;
  if (s.m_currOS == KelOSAndroid) {
    Reset();
    Init();
  }
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore::ConfigureParameters success");
  return CM_OK;
}

CmResult CmStaticPerformanceScore::GetStaticPerformanceScore(int& score) {
  score = m_pSystemInfo->m_staticPerformanceScore;
  return CM_OK;
}

CmResult CmStaticPerformanceScore::GetStaticPerformanceScore(int& score, kel::KelPerformanceLevel level) {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  if (s.m_staticPerformanceScore > 0) {
    int minimum = 0, maximum = 0;
    if (GetLimitScore(minimum, maximum, level) != CM_OK) return CM_ERROR_FAILURE;
    if (s.m_staticPerformanceScore >= minimum && s.m_staticPerformanceScore < maximum) {
      score = s.m_staticPerformanceScore;
      return CM_OK;
    }
  }
  CmResult rv;
  if (s.m_currOS == KelOSAndroid) {
    rv = GetStaticPerformanceScoreForAndroidFamily(score, level);
  } else if (is_desktop(s.m_currOS)) {
    rv = GetStaticPerformanceScoreForDesktop(score, level);
  } else if (is_apple_mobile(s.m_currOS)) {
    rv = GetStaticPerformanceScoreForAppleMoblie(score, level);
  } else {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::GetStaticPerformanceScore error currOS = " << s.m_currOS);
    Print();
    return CM_ERROR_INVALID_ARG;
  }
  if (score > 0) s.m_staticPerformanceScore = score;
  return rv;
}

#define CM_FAMILY_SCORE(Name, Condition, Path)                                          \
  CmResult CmStaticPerformanceScore::Name(int& score, kel::KelPerformanceLevel level) { \
    const KelCurrentOS os = m_pSystemInfo->m_currOS;                                    \
    return (Condition) ? Path(score, level) : CM_ERROR_INVALID_ARG;                     \
  }
CM_FAMILY_SCORE(GetStaticPerformanceScoreForMac, os == KelOSMac, GetStaticPerformanceScoreForDesktop)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForLinux, os == KelOSLinux, GetStaticPerformanceScoreForDesktop)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForWin, os == KelOSWin || os == KelOSWinUWP,
                GetStaticPerformanceScoreForDesktop)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForIOSIphone, os == KelOSIPhone, GetStaticPerformanceScoreForAppleMoblie)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForIOSIpad, os == KelOSIPad, GetStaticPerformanceScoreForAppleMoblie)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForTVOS, os == KelOSTvOS, GetStaticPerformanceScoreForAppleMoblie)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForVisionOS, os == KelOSVisionOS, GetStaticPerformanceScoreForAppleMoblie)
CM_FAMILY_SCORE(GetStaticPerformanceScoreForAndroid, os == KelOSAndroid, GetStaticPerformanceScoreForAndroidFamily)
#undef CM_FAMILY_SCORE

CmResult CmStaticPerformanceScore::GetLimitScore(int& minimum, int& maximum, kel::KelPerformanceLevel level) {
  return GetLimitScore(minimum, maximum, level, level);
}

CmResult CmStaticPerformanceScore::GetLimitScore(int& minimum, int& maximum, kel::KelPerformanceLevel minLevel,
                                                 kel::KelPerformanceLevel maxLevel) {
  const KelCurrentOS os = m_pSystemInfo->m_currOS;
  const uint32_t cores = m_pSystemInfo->m_physicalCore;
  minimum = band_edge(minLevel, false, os, cores);
  maximum = band_edge(maxLevel, true, os, cores);
  if (maximum <= minimum) {
    CM_ERROR_TRACE_THIS("CmStaticPerformanceScore::GetLimitScore error maxValue = " << maximum
                                                                                    << ", minValue = " << minimum);
    return CM_ERROR_GENERIC;
  }
  return CM_OK;
}

CmResult CmStaticPerformanceScore::ClampIntoBand(int raw, kel::KelPerformanceLevel level, int& score) {
  int minimum = 0, maximum = 0;
  if (GetLimitScore(minimum, maximum, level) != CM_OK) return CM_ERROR_FAILURE;
  score = std::max(raw, minimum);
  if (score >= maximum) score = maximum - 1;
  return CM_OK;
}

CmResult CmStaticPerformanceScore::GetStaticPerformanceScoreForDesktop(int& score, kel::KelPerformanceLevel level) {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  int minimum = 0, maximum = 0;
  if (GetLimitScore(minimum, maximum, level) != CM_OK) return CM_ERROR_FAILURE;
  _tagKelCPUModelInfo cpu;
  const int32_t cores = static_cast<int32_t>(s.m_physicalCore);
  if (CheckCPUInfo(cpu) != CM_OK && cores < 32) {
    score = minimum;
    Print();
    return CM_OK;
  }
  const _tagKelSPCParamOffset& row = s.offset[s.m_currOS];
  const int32_t m = row.multiplier + 2;
  const int32_t b = row.baseAddend;
  const int32_t bonus = cpu.k > cpu.i ? row.bonus + 1 : 0;
  const int32_t genClass = cpu.gen + cpu.i;
  int32_t raw = 0;
  switch (level) {
    case kel::KelPerformanceLevel1:
      raw = 60;
      break;
    case kel::KelPerformanceLevel2:
      raw = static_cast<int32_t>(s.m_cpuFrequency * 2 / 1000) + b + 70;
      break;
    case kel::KelPerformanceLevel3:
      raw = m * (genClass - 12) + b + 80 + bonus;
      break;
    case kel::KelPerformanceLevel4:
      raw = m * (genClass - 14) + b + 90 + bonus;
      break;
    case kel::KelPerformanceLevel5:
      if (s.m_currOS == KelOSMac) {
        raw = m * (genClass - 17) + b + 100 + bonus;
      } else if (s.m_currOS >= KelOSLinux && s.m_currOS <= KelOSWinUWP) {
        if (s.m_memSize >= 4000 && cores >= 32) {
          raw = (cores - 32) / 16 + b + 120;
          s.m_ScoreOffset = 0;
        } else if (s.m_memSize >= 4000 && cores >= 16) {
          raw = m * (genClass - 22) + b + 110 + bonus;
        } else {
          raw = m * (genClass - 17) + b + 100 + bonus;
        }
      } else {
        return CM_ERROR_INVALID_ARG;
      }
      break;
    default:
      raw = 0;
      break;
  }
  bool unknownMode = false;
  raw = round_by_offset(raw, s.m_ScoreOffset, unknownMode);
  if (unknownMode)
    CM_INFO_TRACE_THIS("CmStaticPerformanceScore::GetStaticPerformanceScoreForDesktop error scoreOffset, scoreOffset = "
                       << s.m_ScoreOffset);
  score = std::max(raw, minimum);
  if (score >= maximum) score = maximum - 1;
  return CM_OK;
}

CmResult CmStaticPerformanceScore::GetStaticPerformanceScoreForAppleMoblie(int& score, kel::KelPerformanceLevel level) {
  const _tagKelSystemInfo& s = *m_pSystemInfo;
  const int32_t q = static_cast<int32_t>(s.m_cpuClass);
  const int32_t b = s.offset[s.m_currOS].baseAddend;
  const bool low = level == kel::KelPerformanceLevel1 || level == kel::KelPerformanceLevel2;
  const bool mid = level == kel::KelPerformanceLevel3 || level == kel::KelPerformanceLevel4;
  const bool high = level == kel::KelPerformanceLevel4 || level == kel::KelPerformanceLevel5;
  int32_t raw = 0;
  switch (s.m_currOS) {
    case KelOSIPhone:
      raw = low ? b + q * 3 / 2 + 64 : level == kel::KelPerformanceLevel3 ? b + 4 * q + 36 : high ? b + 4 * q + 34 : 0;
      break;
    case KelOSIPad:
      raw = low ? b + q + 68 : mid ? b + 4 * q + 38 : level == kel::KelPerformanceLevel5 ? b + 4 * q + 34 : 0;
      break;
    case KelOSTvOS:
      raw = low ? b + 3 * q + 61 : mid ? b + 5 * q + 25 : 0;
      break;
    case KelOSVisionOS:
      raw = level >= kel::KelPerformanceLevel1 && level <= kel::KelPerformanceLevel5 ? b + 4 * q + 44 : 0;
      break;
    default:
      break;
  }
  return ClampIntoBand(raw, level, score);
}

CmResult CmStaticPerformanceScore::GetStaticPerformanceScoreForAndroidFamily(int& score,
                                                                             kel::KelPerformanceLevel level) {
  const _tagKelSystemInfo& s = *m_pSystemInfo;
  return ClampIntoBand(s.offset[s.m_currOS].baseAddend + static_cast<int32_t>(s.m_cpuClass), level, score);
}

void CmStaticPerformanceScore::OverrideStaticPerformanceScore(int score) {
  m_pSystemInfo->m_staticPerformanceScore = score;
}

CmResult CmStaticPerformanceScore::OverrideSystemOption(KelSystemOption option, void* value, unsigned int size) {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  struct Field {
    void* target;
    unsigned int size;
  };
  const Field fields[] = {{nullptr, 0},           {nullptr, static_cast<unsigned int>(sizeof(std::string))},
                          {&s.m_cpuFrequency, 4}, {&s.m_physicalCore, 4},
                          {&s.m_virtualCore, 4},  {&s.m_memSize, 8},
                          {&s.m_currOS, 4},       {&s.m_osVersion, 4},
                          {&s.m_cpuClass, 4},     {&s.m_specificModel, 4}};
  if (option < KelSystemOptionCpuInfo || option > KelSystemOptionSpecificModel || !value || size != fields[option].size)
    return CM_ERROR_INVALID_ARG;
  if (option == KelSystemOptionCpuInfo)
    s.cpuInfo = *static_cast<const std::string*>(value);
  else
    std::memcpy(fields[option].target, value, size);
  return CM_OK;
}

void CmStaticPerformanceScore::OverrideAllSystemOption(const std::string& cpuInfo, uint32_t cpuFrequency,
                                                       uint32_t physicalCore, uint32_t virtualCore, uint64_t memSize,
                                                       KelCurrentOS currOS, float osVersion, uint32_t cpuClass,
                                                       uint32_t specificModel) {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  s.cpuInfo = cpuInfo;
  s.m_cpuFrequency = cpuFrequency;
  s.m_physicalCore = physicalCore;
  s.m_virtualCore = virtualCore;
  s.m_memSize = memSize;
  s.m_currOS = currOS;
  s.m_osVersion = osVersion;
  s.m_cpuClass = cpuClass;
  s.m_specificModel = specificModel;
}

void CmStaticPerformanceScore::Print() {
  const _tagKelSystemInfo& s = *m_pSystemInfo;
  const char kLine[] = "----------------------------------------";
  CM_INFO_TRACE_THIS(kLine);
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore::Print");
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore cpuInfo = "
                     << s.cpuInfo.c_str() << ", m_cpuFrequency = " << s.m_cpuFrequency
                     << ", m_physicalCore = " << s.m_physicalCore << ", m_virtualCore = " << s.m_virtualCore);
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore m_memSize = " << s.m_memSize);
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore m_currOS = " << s.m_currOS << ", m_osVersion = " << s.m_osVersion
                                                            << ", m_cpuClass = " << s.m_cpuClass << ", m_specificModel"
                                                            << s.m_specificModel);
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore m_ScoreOffset = " << s.m_ScoreOffset);
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore m_staticPerformanceScore = " << s.m_staticPerformanceScore);
  CM_INFO_TRACE_THIS(kLine);
}
