// The brand parser and the static performance score: bands, the desktop path with its
// classifier and rounding, the mobile paths, overrides and tuning tables.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cmutil/system/CmStaticPerformanceScore.h"
#include "cmutil/system/CmSystemInfo.h"
#include "common/CmTraceCapture.h"

namespace {

TEST(CpuBrand, ParsesIntelAndRyzenLayouts) {
  // brand; result, whether Intel, series, model, number and its text
  const std::tuple<const char*, bool, bool, std::string, std::string, uint32_t, std::string> cases[] = {
      {"Intel(R) Core(TM) i7-8750H CPU @ 2.20GHz", true, true, "Core(TM)", "i7", 8750, "8750H"},
      {"12th Gen Intel(R) Core(TM) i7-12700H", true, true, "Gen", "i7", 12700, "12700H"},  // the dash token fifth
      {"Intel(R) Core(TM) m3-7Y30 CPU @ 1.00GHz", true, true, "Core(TM)", "m3", 7030, "7030"},
      {"Intel(R) Core(TM) Ultra 7 155H", true, true, "Core(TM)", "7", 155, "155H"},
      {"Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", true, true, "Core(TM)", "i7", 920, "920"},
      {"Intel(R) Core(TM) i5 750", true, true, "Core(TM)", "i5", 750, "750"},
      {"Intel(R) Core(TM)2 Duo CPU E8400 @ 3.00GHz", true, true, "Core(TM)2", "Duo", 0, ""},
      {"Intel(R) Xeon(R) Gold 6248R CPU @ 3.00GHz", false, true, "Xeon(R)", "", 0, ""},
      {"Intel(R) Celeron(R) N4020 CPU @ 1.10GHz", true, true, "Celeron(R)", "N4020", 0, ""},
      {"Intel(R) N100", true, true, "N", "", 100, ""},
      {"Intel(R) Pentium(R) CPU G4560 @ 3.50GHz", false, true, "Pentium(R)", "", 0, ""},
      {"Intel", false, true, "", "", 0, ""},
      {"AMD Ryzen 9 7950X 16-Core Processor", true, false, "", "", 9, "09"},
      {"AMD Ryzen", true, false, "", "", 0, "0"},
      {"AMD EPYC 7B13", true, false, "", "", 0, "0"},
      {"Apple M2", true, false, "", "", 0, "0"},
  };
  for (const auto& [brand, wantResult, wantIntel, wantSeries, wantModel, wantNumber, wantText] : cases) {
    std::string model = "x", series = "x";
    uint32_t number = 77;
    bool intel = !wantIntel;
    char text[64] = {};
    const bool result = getCpuModelAndGeneration(brand, model, number, intel, series, text);
    EXPECT_EQ(std::tie(wantResult, wantIntel, wantSeries, wantModel, wantNumber, wantText),
              std::make_tuple(result, intel, series, model, number, std::string(text)))
        << brand;
  }
}

class StaticScore : public ::testing::Test {
 protected:
  void TearDown() override { CmStaticPerformanceScore::Instance(true); }

  // A fresh instance holding exactly these facts and, for family os, these parameters.
  CmStaticPerformanceScore* With(const std::string& brand, uint32_t cores, KelCurrentOS os, uint64_t memory = 8000,
                                 _tagKelSPCParamOffset offset = {}, std::vector<int> params = std::vector<int>(7, 0),
                                 uint32_t cpuClass = 0) {
    CmStaticPerformanceScore::Instance(true);
    score_ = CmStaticPerformanceScore::Instance(false);
    score_->OverrideAllSystemOption(brand, 2800, cores, 2, memory, os, 0, cpuClass, 0);
    EXPECT_EQ(CM_OK, score_->ConfigureParameters(os, params, offset));
    return score_;
  }

  int ScoreAt(int level) {
    int value = -1;
    score_->ResetScore();
    EXPECT_EQ(CM_OK, score_->GetStaticPerformanceScore(value, static_cast<kel::KelPerformanceLevel>(level)));
    return value;
  }

  CmStaticPerformanceScore* score_ = nullptr;
};

TEST_F(StaticScore, BandsPerLevelFamilyAndCores) {
  // family, cores, level; the band's minimum and maximum
  const std::tuple<KelCurrentOS, uint32_t, int, int, int> cases[] = {
      {KelOSLinux, 8, 0, 50, 60},  {KelOSLinux, 8, 4, 90, 100}, {KelOSLinux, 8, 5, 100, 128},
      {KelOSWin, 15, 5, 100, 110}, {KelOSWin, 16, 5, 110, 120}, {KelOSWin, 31, 5, 110, 120},
      {KelOSWin, 32, 5, 120, 128}, {KelOSMac, 64, 5, 100, 128}};
  for (const auto& [os, cores, level, wantMinimum, wantMaximum] : cases) {
    With("", cores, os);
    int minimum = 0, maximum = 0;
    EXPECT_EQ(CM_OK, score_->GetLimitScore(minimum, maximum, static_cast<kel::KelPerformanceLevel>(level)));
    EXPECT_EQ(std::make_pair(wantMinimum, wantMaximum), std::make_pair(minimum, maximum)) << level;
  }
  CmTraceCapture capture;
  int minimum = 0, maximum = 0;
  EXPECT_EQ(CM_ERROR_GENERIC,
            score_->GetLimitScore(minimum, maximum, kel::KelPerformanceLevel3, kel::KelPerformanceLevel1));
  EXPECT_TRUE(capture.contains(0, "CmStaticPerformanceScore::GetLimitScore error maxValue = 70, minValue = 80 [this="));
  EXPECT_EQ(CM_ERROR_GENERIC, score_->GetLimitScore(minimum, maximum, static_cast<kel::KelPerformanceLevel>(6)));
}

TEST_F(StaticScore, DesktopScoresOfWorkedExamples) {
  // brand, family, cores, parameter offsets and values; level and score
  const std::tuple<const char*, KelCurrentOS, uint32_t, _tagKelSPCParamOffset, std::vector<int>, int, int> cases[] = {
      {"Intel(R) Core(TM) i7-8750H CPU @ 2.20GHz", KelOSLinux, 6, {}, {0, 0, 0, 0, 0, 0, 0}, 3, 86},
      {"Intel(R) Core(TM) i7-8750H CPU @ 2.20GHz", KelOSLinux, 6, {}, {0, 0, 0, 0, 0, 0, 0}, 0, 50},
      {"Intel(R) Core(TM) i7-8750H CPU @ 2.20GHz", KelOSLinux, 6, {}, {0, 0, 0, 0, 0, 0, 0}, 1, 60},
      {"Intel(R) Core(TM) i7-8750H CPU @ 2.20GHz", KelOSLinux, 6, {}, {0, 0, 0, 0, 0, 0, 0}, 2, 75},
      {"Intel(R) Core(TM) i7-8750H CPU @ 2.20GHz", KelOSLinux, 6, {0, 1, 0}, {0, 0, 0, 0, 0, 0, 0}, 3, 87},
      // P suffix, raw 87: max(83, 85) = 85; U suffix, raw 87: 83.
      {"Intel(R) Core(TM) i7-1360P", KelOSLinux, 12, {0, 3, 0}, {-6, 0, 0, 0, 0, 0, 0}, 3, 85},
      {"Intel(R) Core(TM) i7-8550U CPU @ 1.80GHz", KelOSLinux, 4, {0, 1, 0}, {0, 0, 0, 0, 0, 0, 0}, 3, 83},
      // Raw 95 at level 3 ends one below the band's maximum.
      {"Intel(R) Core(TM) i9-9900K CPU @ 3.60GHz", KelOSLinux, 8, {}, {2, 0, 0, 0, 0, 0, 0}, 3, 89},
      // k (8) above i (7): the bonus X + 1 is added.
      {"AMD Ryzen 7 5800X 8-Core Processor", KelOSWin, 8, {0, 0, 3}, {0, 0, -3, 0, 0, 0, 0}, 3, 80 + 2 * 2 + 4},
      {"AMD Ryzen 7 PRO 4750U", KelOSWin, 8, {}, {0, 0, 0, 0, 0, 0, 0}, 4, 90 + 2 * 2},
      {"Apple M1 Max", KelOSMac, 10, {}, {0, 0, 0, 0, 0, 0, 0}, 5, 100 + 2 * (1 + 10 + 9 - 17)},
      {"Apple M2", KelOSMac, 8, {}, {0, 0, 0, 0, 0, 0, 0}, 4, 90 + 2 * (2 + 10 + 5 - 14)},
      // 64 cores, family 3, level 5: (64 - 32) / 16 + B + 120.
      {"AMD EPYC 7B13", KelOSWin, 64, {0, 3, 0}, {0, 0, 0, 0, 0, 0, 0}, 5, 125},
      {"Intel(R) Core(TM) i9-13900K", KelOSLinux, 24, {}, {0, 0, 0, 0, 0, 0, 0}, 5, 110 + 2 * (13 + 9 - 22)},
      // Rejected or unknown CPUs below 32 cores take the band's minimum.
      {"Apple Virtual CPU", KelOSMac, 8, {}, {0, 0, 0, 0, 0, 0, 0}, 4, 90},
      {"Intel(R) Xeon(R) Gold 6248R CPU @ 3.00GHz", KelOSLinux, 8, {}, {0, 0, 0, 0, 0, 0, 0}, 3, 80},
      {"Intel(R) Core(TM) i7-99999K", KelOSLinux, 8, {}, {0, 0, 0, 0, 0, 0, 0}, 3, 80},
      {"Mystery CPU", KelOSMac, 8, {}, {0, 0, 0, 0, 0, 0, 0}, 3, 80},
  };
  for (const auto& [brand, os, cores, offset, params, level, expected] : cases) {
    With(brand, cores, os, 8000, offset, params);
    EXPECT_EQ(expected, ScoreAt(level)) << brand << " level " << level;
  }
  // Core M is the m3 class: the same number scores the same.
  With("Intel(R) Core(TM) M-5Y71 CPU @ 1.20GHz", 2, KelOSLinux);
  const int coreM = ScoreAt(2);
  With("Intel(R) Core(TM) m3-5Y71 CPU @ 1.20GHz", 2, KelOSLinux);
  EXPECT_EQ(ScoreAt(2), coreM);
  With("Intel(R) Core(TM) q-5Y71 CPU @ 1.20GHz", 2, KelOSLinux);  // a model of no class
  EXPECT_GT(coreM, ScoreAt(2));
}

TEST_F(StaticScore, MobileFamiliesAndTheRememberedScore) {
  // family, CPU class, level, score
  const std::tuple<KelCurrentOS, uint32_t, int, int> cases[] = {
      {KelOSIPhone, 2, 1, 67}, {KelOSIPhone, 12, 3, 84}, {KelOSIPhone, 17, 5, 102}, {KelOSIPhone, 4, 1, 69},
      {KelOSIPad, 2, 2, 70},   {KelOSIPad, 14, 4, 94},   {KelOSIPad, 17, 5, 102},   {KelOSIPad, 1, 2, 70},
      {KelOSTvOS, 14, 4, 95},  {KelOSTvOS, 1, 1, 64},    {KelOSTvOS, 4, 5, 100},    {KelOSVisionOS, 15, 5, 104},
      {KelOSIPhone, 4, 0, 50}};
  for (const auto& [os, cpuClass, level, expected] : cases) {
    With("", 4, os, 8000, {}, std::vector<int>(7, 0), cpuClass);
    EXPECT_EQ(expected, ScoreAt(level)) << os << " level " << level;
  }
  // Android: Init runs again after configuring, so the class comes through an override.
  With("", 4, KelOSAndroid);
  uint32_t cpuClass = 83;
  KelCurrentOS android = KelOSAndroid;
  EXPECT_EQ(CM_OK, score_->OverrideSystemOption(KelSystemOptionCurrentOS, &android, 4));
  EXPECT_EQ(CM_OK, score_->OverrideSystemOption(KelSystemOptionCpuClass, &cpuClass, 4));
  EXPECT_EQ(83, ScoreAt(3));
  int unused = 0;
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->GetStaticPerformanceScoreForLinux(unused, kel::KelPerformanceLevel3));

  // A remembered score inside the asked band is returned as it is; outside, it is recomputed.
  With("", 4, KelOSLinux);
  score_->OverrideStaticPerformanceScore(83);
  int at3 = 0, at4 = 0, remembered = 0;
  EXPECT_EQ(CM_OK, score_->GetStaticPerformanceScore(at3, kel::KelPerformanceLevel3));
  EXPECT_EQ(CM_OK, score_->GetStaticPerformanceScore(at4, kel::KelPerformanceLevel4));
  EXPECT_EQ(CM_OK, score_->GetStaticPerformanceScore(remembered));
  EXPECT_EQ(std::make_tuple(83, 90, 90), std::make_tuple(at3, at4, remembered));
}

TEST_F(StaticScore, OverridesConfigurationAndFamilies) {
  _tagKelSystemInfo* info = With("", 4, KelOSLinux)->GetSystemOSInfo();
  uint64_t memory = 9000;
  uint32_t four = 4;
  std::string brand = "Intel(R) Core(TM) i5-8250U";
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->OverrideSystemOption(KelSystemOptionMemSize, &memory, 4));
  EXPECT_EQ(CM_OK, score_->OverrideSystemOption(KelSystemOptionMemSize, &memory, 8));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->OverrideSystemOption(KelSystemOptionCpuFrequency, nullptr, 4));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->OverrideSystemOption(static_cast<KelSystemOption>(10), &four, 4));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->OverrideSystemOption(KelSystemOptionCpuInfo, &brand, 4));
  EXPECT_EQ(CM_OK, score_->OverrideSystemOption(KelSystemOptionCpuInfo, &brand, sizeof brand));
  EXPECT_EQ(std::make_pair(brand, uint64_t{9000}), std::make_pair(info->cpuInfo, info->m_memSize));

  CmTraceCapture capture;
  EXPECT_EQ(CM_ERROR_FAILURE, score_->ConfigureParameters(KelOSLinux, std::vector<int>(6, 1), {}));
  EXPECT_TRUE(capture.contains(0, "spcCpuParam error, spcCpuParam.size() = 6 [this="));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->ConfigureParameters(KelOSWin, std::vector<int>(7, 1), {}));
  EXPECT_TRUE(capture.contains(0, "ConfigureParameters fail,  OS not match, m_currOS = 2, os = 3 [this="));
  // Nine values: the last two land in the Windows row (its Intel and three-digit bases).
  EXPECT_EQ(CM_OK, score_->ConfigureParameters(KelOSLinux, {0, 0, 0, 0, 0, 0, 0, 5, 6}, {}));
  EXPECT_EQ(std::make_pair(5, 6), std::make_pair(info->spcCpuParam[KelOSWin][0], info->spcCpuParam[KelOSWin][1]));
  EXPECT_TRUE(capture.contains(2, "CmStaticPerformanceScore::ConfigureParameters success [this="));

  KelCurrentOS os = KelOSNone;
  std::string text;
  const char* texts[] = {"", "android", "linux", "win", "win-uwp", "mac", "ios-iphone", "ios-ipad", "tvos", "visionos"};
  for (uint32_t family = 1; family <= 9; ++family) {
    info->m_currOS = static_cast<KelCurrentOS>(family);
    EXPECT_EQ(std::make_pair(CM_OK, std::string(texts[family])), std::make_pair(score_->GetOSType(os, text), text));
  }
  info->m_currOS = static_cast<KelCurrentOS>(12);
  EXPECT_EQ(CM_OK, score_->GetOSType(os, text));
  EXPECT_TRUE(capture.contains(0, "GetOSType not support OS, currOS = 12"));
  int value = 0;
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->GetStaticPerformanceScore(value, kel::KelPerformanceLevel3));
  EXPECT_TRUE(capture.contains(0, "CmStaticPerformanceScore::GetStaticPerformanceScore error currOS = 12 [this="));
  EXPECT_TRUE(capture.contains(
      2, "CmStaticPerformanceScore m_currOS = 12, m_osVersion = 0.000, m_cpuClass = 0, m_specificModel0"));
  info->m_cpuClass = info->m_specificModel = info->m_ScoreOffset = 2;
  score_->Reset();
  EXPECT_EQ(0u, info->m_cpuClass | info->m_specificModel | info->m_ScoreOffset);  // the classification too
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->GetOSType(os, text));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, score_->ConfigureParameters(KelOSNone, std::vector<int>(7, 0), {}));
  EXPECT_TRUE(capture.contains(0, "ConfigureParameters fail, need init OS, m_currOS = 0"));
  EXPECT_EQ(KelOSLinux, score_->GetSystemOSInfo()->m_currOS);  // asking again detects the OS anew
}

// Regression: the classifier copied the brand's number into a fixed 1024-byte buffer, so
// an overridden brand longer than that overran it.
TEST_F(StaticScore, BrandOfAnyLengthIsClassified) {
  std::string brand = "Intel(R) Core(TM) i7-" + std::string(5000, '8') + "P";
  With(brand, 8, KelOSLinux);
  _tagKelCPUModelInfo info;
  EXPECT_EQ(CM_ERROR_GENERIC, score_->CheckCPUInfo(info));  // the number is out of range
  With("AMD Ryzen 99999999999999 5800X", 8, KelOSLinux);
  EXPECT_EQ(CM_OK, score_->CheckCPUInfo(info));
}

TEST_F(StaticScore, ClassifierRoundingModesAndTraces) {
  CmTraceCapture capture;
  With("Intel(R) Core(TM) i5-1035G1 CPU @ 1.00GHz", 4, KelOSLinux);
  _tagKelCPUModelInfo info;
  EXPECT_EQ(CM_OK, score_->CheckCPUInfo(info));
  // gen 1035: Intel base + 1035 / 100; rounding mode 2 for G as the next-to-last character
  EXPECT_EQ(std::make_tuple(10, 3, 2u), std::make_tuple(info.gen, info.k, score_->GetSystemOSInfo()->m_ScoreOffset));
  EXPECT_TRUE(capture.contains(2, "CmStaticPerformanceScore::CheckCPUInfo gen = 10, i = 5, k = 3 [this="));
  for (const auto& [brand, rv] :
       {std::pair{"Intel(R) Core(TM) i7-19999K", CM_OK}, {"Intel(R) Core(TM) i7-20000K", CM_ERROR_GENERIC}}) {
    score_->GetSystemOSInfo()->cpuInfo = brand;  // model numbers end at 19999
    EXPECT_EQ(rv, score_->CheckCPUInfo(info)) << brand;
  }
  score_->GetSystemOSInfo()->cpuInfo = "Mystery CPU";  // classified as nothing: the offset stays
  score_->GetSystemOSInfo()->m_ScoreOffset = 7;
  ScoreAt(3);
  EXPECT_TRUE(capture.contains(2, "GetStaticPerformanceScoreForDesktop error scoreOffset, scoreOffset = 7"));
  EXPECT_TRUE(capture.contains(2, "CmStaticPerformanceScore::CmStaticPerformanceScore [this="));
  CmStaticPerformanceScore::DestroyInstance();
  score_ = CmStaticPerformanceScore::Instance(false);
  EXPECT_TRUE(capture.contains(2, "CmStaticPerformanceScore::~CmStaticPerformanceScore [this="));
  EXPECT_TRUE(capture.contains(2, "CmStaticPerformanceScore::DestroyInstance [this="));
}

}  // namespace
