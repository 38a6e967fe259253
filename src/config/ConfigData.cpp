// ConfigData: a text-backed configuration value with an optional raw-integer form.
#include "cmutil/config/ConfigData.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

const std::string& empty_text() {
  static const std::string s_empty;
  return s_empty;
}

std::string fixed6(double v) {
  char buf[512];
  int n = snprintf(buf, sizeof(buf), "%f", v);
  if (n < 0) return std::string();
  return std::string(buf, static_cast<size_t>(n) < sizeof(buf) ? static_cast<size_t>(n) : sizeof(buf) - 1);
}

}  // namespace

ConfigData::ConfigData() : m_pStr(new (std::nothrow) std::string) {}

ConfigData::ConfigData(std::string s) : m_pStr(new (std::nothrow) std::string(std::move(s))), m_bIsText(true) {}

ConfigData::ConfigData(char* s) : ConfigData(static_cast<const char*>(s)) {}

ConfigData::ConfigData(const char* s) : m_pStr(new (std::nothrow) std::string(s ? s : "")), m_bIsText(s != nullptr) {}

ConfigData::ConfigData(int v) : ConfigData(std::to_string(v)) {}

ConfigData::ConfigData(bool v) : ConfigData(std::string(v ? "1" : "0")) {}

ConfigData::ConfigData(unsigned int v) : ConfigData(std::to_string(v)) {}

ConfigData::ConfigData(unsigned long v) : ConfigData(std::to_string(v)) {}

ConfigData::ConfigData(long long v) : ConfigData(std::to_string(v)) {}

ConfigData::ConfigData(unsigned long long v) : ConfigData(std::to_string(v)) {}

ConfigData::ConfigData(long v) : ConfigData(std::to_string(v)) {}

ConfigData::ConfigData(double v) : ConfigData(fixed6(v)) {}

ConfigData::ConfigData(float v) : ConfigData(fixed6(static_cast<double>(v))) {}

ConfigData::ConfigData(const ConfigData& other)
    : m_pStr(new (std::nothrow) std::string(other.text())), m_bIsText(other.m_bIsText) {
  copyStructFrom(other);
}

ConfigData& ConfigData::operator=(const ConfigData& other) {
  if (this == &other) return *this;
  if (m_pStr)
    *m_pStr = other.text();
  else
    m_pStr = new (std::nothrow) std::string(other.text());
  m_bIsText = other.m_bIsText;
  copyStructFrom(other);
  return *this;
}

ConfigData::~ConfigData() {
  freeStruct();
  delete m_pStr;
}

const std::string& ConfigData::text() const { return m_pStr ? *m_pStr : empty_text(); }

void ConfigData::freeStruct() {
  delete[] m_pStruct;
  m_pStruct = nullptr;
  m_nStructSize = 0;
}

void ConfigData::copyStructFrom(const ConfigData& other) {
  freeStruct();
  if (!other.m_pStruct || other.m_nStructSize == 0) return;
  m_pStruct = new (std::nothrow) uint8_t[other.m_nStructSize];
  if (!m_pStruct) return;
  memcpy(m_pStruct, other.m_pStruct, other.m_nStructSize);
  m_nStructSize = other.m_nStructSize;
}

void ConfigData::setStrValue(const std::string& s) {
  freeStruct();
  if (!m_pStr) m_pStr = new (std::nothrow) std::string;
  if (m_pStr) *m_pStr = s;
  m_bIsText = true;
}

void ConfigData::SetStructValue(const void* data, uint32_t size) {
  freeStruct();
  if (m_pStr) m_pStr->clear();
  m_bIsText = false;
  if (!data || size == 0) return;
  m_pStruct = new (std::nothrow) uint8_t[size];
  if (!m_pStruct) return;
  memcpy(m_pStruct, data, size);
  m_nStructSize = size;
}

void ConfigData::SetInvalid() {
  if (m_pStr) m_pStr->clear();
  m_bIsText = false;
  freeStruct();
}

bool ConfigData::IsValid() const { return m_bIsText || m_pStruct != nullptr; }

bool ConfigData::IsIntStruct() const {
  return m_pStruct && !m_bIsText &&
         (m_nStructSize == 1 || m_nStructSize == 2 || m_nStructSize == 4 || m_nStructSize == 8);
}

uint64_t ConfigData::structToUint64() const {
  if (!IsIntStruct()) return 0;
  switch (m_nStructSize) {
    case 1:
      return m_pStruct[0];
    case 2: {
      uint16_t v;
      memcpy(&v, m_pStruct, 2);
      return v;
    }
    case 4: {
      uint32_t v;
      memcpy(&v, m_pStruct, 4);
      return v;
    }
    default: {
      uint64_t v;
      memcpy(&v, m_pStruct, 8);
      return v;
    }
  }
}

std::string ConfigData::structTostring() const { return std::to_string(structToUint64()); }

std::string ConfigData::ToString() const { return IsIntStruct() ? structTostring() : text(); }

const char* ConfigData::ToCstr() const { return text().c_str(); }

int ConfigData::ToInt() const {
  if (IsIntStruct()) return static_cast<int>(structToUint64());
  return atoi(text().c_str());
}

int ConfigData::ToIntOrDefault(int def) const { return IsValid() ? ToInt() : def; }

bool ConfigData::ToBool() const {
  if (IsIntStruct()) return structToUint64() != 0;
  return ToInt() != 0;
}

long long ConfigData::ToLonglong() const {
  if (IsIntStruct()) return static_cast<long long>(structToUint64());
  return atoll(text().c_str());
}

unsigned int ConfigData::ToUint32() const { return static_cast<unsigned int>(ToLonglong()); }

unsigned long ConfigData::ToDWORD() const {
  if (IsIntStruct()) return static_cast<unsigned long>(structToUint64());
  return static_cast<unsigned long>(ToLonglong());
}

unsigned long long ConfigData::ToUint64() const {
  if (IsIntStruct()) return structToUint64();
  if (!m_pStr) return 0;
  return std::stoull(*m_pStr, nullptr, 10);
}

long ConfigData::ToLong() const { return atol(text().c_str()); }

double ConfigData::ToDouble() const { return atof(text().c_str()); }

float ConfigData::ToFloat() const { return static_cast<float>(atof(text().c_str())); }

bool ConfigData::operator==(const ConfigData& other) const {
  if (m_bIsText && other.m_bIsText) return text() == other.text();
  if (!m_bIsText && !other.m_bIsText) {
    if (!m_pStruct && !other.m_pStruct) return true;
    if (!m_pStruct || !other.m_pStruct) return false;
    return m_nStructSize == other.m_nStructSize && memcmp(m_pStruct, other.m_pStruct, m_nStructSize) == 0;
  }
  // One text and one not: the text side has no buffer, so they never compare equal.
  return false;
}

void ConfigData::SafeCopy(char* dst, const char* src, unsigned int n) {
  if (!dst || !src || n == 0) return;
  memcpy(dst, src, n);
}
