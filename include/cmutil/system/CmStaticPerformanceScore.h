#pragma once
/// Static performance score: one integer, inside the band of the performance level a
/// caller asks about, that tells the media engine how much work (resolutions, codecs,
/// effects) this machine can take. It is computed once from the fixed machine facts
/// (CPU brand, frequency, cores, memory, OS family) and remembered; every input and the
/// tuning tables can be overridden. The tables ship all zero: the engine supplies its
/// values through ConfigureParameters.
///
/// A process-wide singleton without locks: compute the score from one thread.
///
///   int score = 0;
///   CmStaticPerformanceScore::Instance(false)->GetStaticPerformanceScore(score, kel::KelPerformanceLevel3);

#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

/// Operating-system families; the score path follows from the family.
enum KelCurrentOS : uint32_t {
  KelOSNone = 0,
  KelOSAndroid = 1,
  KelOSLinux = 2,
  KelOSWin = 3,
  KelOSWinUWP = 4,
  KelOSMac = 5,
  KelOSIPhone = 6,
  KelOSIPad = 7,
  KelOSTvOS = 8,
  KelOSVisionOS = 9,
};

namespace kel {
enum KelPerformanceLevel {
  KelPerformanceLevel0 = 0,
  KelPerformanceLevel1 = 1,
  KelPerformanceLevel2 = 2,
  KelPerformanceLevel3 = 3,
  KelPerformanceLevel4 = 4,
  KelPerformanceLevel5 = 5,
};
}  // namespace kel

/// Inputs OverrideSystemOption can replace, each with the exact size its value must have.
enum KelSystemOption {
  KelSystemOptionCpuInfo = 1,        ///< std::string, sizeof(std::string)
  KelSystemOptionCpuFrequency = 2,   ///< uint32_t MHz
  KelSystemOptionPhysicalCore = 3,   ///< uint32_t
  KelSystemOptionVirtualCore = 4,    ///< uint32_t
  KelSystemOptionMemSize = 5,        ///< uint64_t, units of 1,000,000 bytes
  KelSystemOptionCurrentOS = 6,      ///< KelCurrentOS
  KelSystemOptionOSVersion = 7,      ///< float
  KelSystemOptionCpuClass = 8,       ///< uint32_t
  KelSystemOptionSpecificModel = 9,  ///< uint32_t
};

/// CPU generation, class (3/5/7/9 ...) and SKU digit found by the classifier.
struct _tagKelCPUModelInfo {
  int32_t gen = 0;
  int32_t i = 0;
  int32_t k = 0;
};

/// Per-family score parameters.
struct _tagKelSPCParamOffset {
  int32_t multiplier = 0;
  int32_t baseAddend = 0;
  int32_t bonus = 0;
};

constexpr int kKelOSFamilies = 10;
constexpr int kKelCpuParams = 7;

/// The facts and tables the score is computed from.
struct _tagKelSystemInfo {
  int32_t m_staticPerformanceScore = 0;  ///< remembered score; 0 = not computed
  std::string cpuInfo;
  uint32_t m_cpuFrequency = 0;  ///< MHz
  uint32_t m_physicalCore = 0;
  uint32_t m_virtualCore = 0;  ///< threads per physical core
  uint64_t m_memSize = 0;      ///< units of 1,000,000 bytes
  float m_osVersion = 0;
  KelCurrentOS m_currOS = KelOSNone;
  uint32_t m_cpuClass = 0;
  uint32_t m_specificModel = 0;
  uint32_t m_ScoreOffset = 0;  ///< rounding mode of desktop scores: 0, 1 or 2
  /// Per family: Intel base, Intel three-digit base, AMD base, Apple base, then spare.
  int32_t spcCpuParam[kKelOSFamilies][kKelCpuParams] = {};
  _tagKelSPCParamOffset offset[kKelOSFamilies] = {};
};

class CM_EXPORT CmStaticPerformanceScore {
 public:
  /// false: the instance, created (and initialised from the machine) on first use;
  /// true: deletes it and returns null.
  static CmStaticPerformanceScore* Instance(bool destroy = false);
  static void DestroyInstance();
  virtual ~CmStaticPerformanceScore();

  /// Reads brand, frequency, cores and memory from the machine; the family is Linux.
  int Init();
  /// Clears the score and every fact (the tables stay).
  void Reset();
  /// Clears the remembered score and the specific model.
  void ResetScore();
  /// The record, with the family set to Linux.
  _tagKelSystemInfo* GetSystemOSInfo();
  /// The family and its text ("android", "linux", "win", ...).
  CmResult GetOSType(KelCurrentOS& os, std::string& text);
  /// Stores the CPU parameters (at least 7; more run on into the next family's row) and
  /// the offsets of family os, which must be the current one.
  CmResult ConfigureParameters(KelCurrentOS os, const std::vector<int>& spcCpuParam, _tagKelSPCParamOffset offset);

  /// The remembered score.
  CmResult GetStaticPerformanceScore(int& score);
  /// The score for level, always inside the level's band [minimum, maximum).
  CmResult GetStaticPerformanceScore(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForMac(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForLinux(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForWin(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForIOSIphone(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForIOSIpad(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForTVOS(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForVisionOS(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForAndroid(int& score, kel::KelPerformanceLevel level);

  /// The band of one level, or the minimum of one and the maximum of another.
  CmResult GetLimitScore(int& minimum, int& maximum, kel::KelPerformanceLevel level);
  CmResult GetLimitScore(int& minimum, int& maximum, kel::KelPerformanceLevel minLevel,
                         kel::KelPerformanceLevel maxLevel);

  void OverrideStaticPerformanceScore(int score);
  /// Replaces one input; value must point to a value of exactly the option's size.
  CmResult OverrideSystemOption(KelSystemOption option, void* value, unsigned int size);
  void OverrideAllSystemOption(const std::string& cpuInfo, uint32_t cpuFrequency, uint32_t physicalCore,
                               uint32_t virtualCore, uint64_t memSize, KelCurrentOS currOS, float osVersion,
                               uint32_t cpuClass, uint32_t specificModel);

  /// Classifies the brand (Intel Core, Apple, AMD Ryzen) into generation, class and SKU
  /// digit; 0x46000001 for a rejected CPU, 0 otherwise (zeros when nothing matched).
  CmResult CheckCPUInfo(_tagKelCPUModelInfo& info);
  /// Traces the record at level 2.
  void Print();

 protected:
  CmStaticPerformanceScore();
  CmResult GetStaticPerformanceScoreForDesktop(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForAppleMoblie(int& score, kel::KelPerformanceLevel level);
  CmResult GetStaticPerformanceScoreForAndroidFamily(int& score, kel::KelPerformanceLevel level);

 private:
  CmResult ClampIntoBand(int raw, kel::KelPerformanceLevel level, int& score);
  CmResult ClassifyIntel(_tagKelCPUModelInfo& info);
  CmResult ClassifyApple(_tagKelCPUModelInfo& info);
  void ClassifyAmd(_tagKelCPUModelInfo& info);

  _tagKelSystemInfo* m_pSystemInfo;
};
