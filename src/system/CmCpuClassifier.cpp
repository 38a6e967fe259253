// The desktop CPU classifier of the static score: generation, class and SKU digit of an
// Intel Core, Apple or AMD Ryzen brand, from the family's base parameters.

#include <cctype>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "cmutil/system/CmStaticPerformanceScore.h"
#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

enum BaseColumn { kIntelBase = 0, kIntelThreeDigitBase = 1, kAmdBase = 2, kAppleBase = 3 };

bool has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

int intel_class(const std::string& model) {
  if (model == "i3" || model == "m3" || model == "M" || model == "3") return 3;
  if (model == "i5" || model == "5") return 5;
  if (model == "i7" || model == "7") return 7;
  if (model == "i9" || model == "9") return 9;
  return 0;
}

bool starts_with_digit(const std::string& word) {
  return !word.empty() && std::isdigit(static_cast<unsigned char>(word[0]));
}

}  // namespace

CmResult CmStaticPerformanceScore::ClassifyIntel(_tagKelCPUModelInfo& info) {
  _tagKelSystemInfo& s = *m_pSystemInfo;
  const int32_t* base = s.spcCpuParam[s.m_currOS];
  std::string model, series;
  uint32_t n = 0;
  bool intel = false;
  // The number text is one word of the brand; an overridden brand may be of any length.
  std::vector<char> numberText(s.cpuInfo.size() + 2, '\0');
  getCpuModelAndGeneration(s.cpuInfo, model, n, intel, series, numberText.data());
  const int cls = intel_class(model);
  if (series != "Core(TM)" || cls == 0 || n > 19999) return CM_ERROR_GENERIC;
  info.i = cls;
  if (n < 1000) {
    info.gen = base[kIntelThreeDigitBase] + static_cast<int32_t>(n / 100) + 12;
    info.k = static_cast<int32_t>(n % 100 / 10);
  } else if (n < 2000) {
    info.gen = base[kIntelBase] + static_cast<int32_t>(n / 100);
    info.k = static_cast<int32_t>(n % 100 / 10);
  } else {
    info.gen = base[kIntelBase] + static_cast<int32_t>(n / 1000);
    info.k = static_cast<int32_t>(n % 1000 / 100);
  }
  // The suffix tells the power class: P rounds gently, U/V and G* strongly.
  const std::string suffix = numberText.data();
  const size_t len = suffix.size();
  if (len >= 1 && suffix[len - 1] == 'P')
    s.m_ScoreOffset = 1;
  else if ((len >= 1 && (suffix[len - 1] == 'U' || suffix[len - 1] == 'V')) || (len >= 2 && suffix[len - 2] == 'G'))
    s.m_ScoreOffset = 2;
  return CM_OK;
}

CmResult CmStaticPerformanceScore::ClassifyApple(_tagKelCPUModelInfo& info) {
  const _tagKelSystemInfo& s = *m_pSystemInfo;
  const std::string& brand = s.cpuInfo;
  if (has(brand, "Virtual") || has(brand, "virtual")) return CM_ERROR_GENERIC;
  long long digits = 0;
  for (char c : brand)
    if (std::isdigit(static_cast<unsigned char>(c)) && digits < 100000000) digits = digits * 10 + (c - '0');
  if (digits < 1) return CM_ERROR_GENERIC;
  info.gen = static_cast<int32_t>(digits) + s.spcCpuParam[s.m_currOS][kAppleBase] + 10;
  info.i = has(brand, "Pro") ? 7 : has(brand, "Max") ? 9 : has(brand, "Ultra") ? 11 : 5;
  info.k = 0;
  return CM_OK;
}

void CmStaticPerformanceScore::ClassifyAmd(_tagKelCPUModelInfo& info) {
  const _tagKelSystemInfo& s = *m_pSystemInfo;
  const int32_t amdBase = s.spcCpuParam[s.m_currOS][kAmdBase];
  std::vector<std::string> words;
  std::istringstream in(s.cpuInfo);
  for (std::string w; in >> w;) words.push_back(w);
  for (size_t i = 0; i + 2 < words.size(); ++i) {
    if (words[i] != "Ryzen") continue;
    const int32_t tier = starts_with_digit(words[i + 1]) ? std::atoi(words[i + 1].substr(0, 9).c_str()) : 0;
    size_t modelAt = i + 2;
    if (words[modelAt] == "PRO") ++modelAt;
    if (modelAt >= words.size() || !starts_with_digit(words[modelAt])) continue;
    const int32_t n = std::atoi(words[modelAt].substr(0, 9).c_str());
    const int32_t gen = amdBase + n / 1000 + 5;
    if (tier == 0 || gen == 0 || n % 1000 < 100) continue;
    info.gen = gen;
    info.i = tier;
    info.k = n % 1000 / 100;
    return;
  }
}

CmResult CmStaticPerformanceScore::CheckCPUInfo(_tagKelCPUModelInfo& info) {
  const std::string& brand = m_pSystemInfo->cpuInfo;
  CmResult rv = CM_OK;
  if (has(brand, "Intel"))
    rv = ClassifyIntel(info);
  else if (has(brand, "Apple"))
    rv = ClassifyApple(info);
  else if (has(brand, "AMD") && has(brand, "Ryzen"))
    ClassifyAmd(info);
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore::CheckCPUInfo cpuInfo = " << brand.c_str());
  CM_INFO_TRACE_THIS("CmStaticPerformanceScore::CheckCPUInfo gen = " << info.gen << ", i = " << info.i
                                                                     << ", k = " << info.k);
  return rv;
}
