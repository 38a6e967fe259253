#include "cmutil/trace/CmTextFormator.h"

namespace {
// Room for any 64-bit number in any base, its sign and the terminator.
constexpr int kScratchSize = 72;
// The tail of every buffer that appends leave to the trace core's decoration.
constexpr unsigned int kReserve = 96;
}  // namespace

CCmTextFormator::CCmTextFormator(char* buffer, unsigned int capacity)
    : m_pBuffer(buffer), m_nCapacity(capacity), m_nPosition(0), m_bHex(false) {
  m_pBuffer[0] = '\0';
}

CCmTextFormator::~CCmTextFormator() = default;

void CCmTextFormator::reset() {
  m_nPosition = 0;
  m_bHex = false;
  m_pBuffer[0] = '\0';
}

void CCmTextFormator::advance(const char* text, unsigned int len) {
  const unsigned int room = m_nCapacity - m_nPosition - kReserve;
  const unsigned int count = len < room ? len : room;
  std::memcpy(m_pBuffer + m_nPosition, text, count);
  m_nPosition += count;
  m_pBuffer[m_nPosition] = '\0';
}

template <typename T>
CCmTextFormator& CCmTextFormator::appendInteger(T value) {
  char scratch[kScratchSize];
  kel_itoa(value, scratch, m_bHex ? 16 : 10);
  m_bHex = false;
  advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(const char* text) {
  if (text != nullptr) advance(text, static_cast<unsigned int>(std::strlen(text)));
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(const CCmString& text) {
  advance(text.data(), static_cast<unsigned int>(text.size()));
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(char value) { return appendInteger<int>(value); }
CCmTextFormator& CCmTextFormator::operator<<(short value) { return appendInteger<int>(value); }
CCmTextFormator& CCmTextFormator::operator<<(int value) { return appendInteger<int>(value); }
CCmTextFormator& CCmTextFormator::operator<<(unsigned char value) { return appendInteger<unsigned int>(value); }
CCmTextFormator& CCmTextFormator::operator<<(unsigned short value) { return appendInteger<unsigned int>(value); }
CCmTextFormator& CCmTextFormator::operator<<(unsigned int value) { return appendInteger<unsigned int>(value); }
CCmTextFormator& CCmTextFormator::operator<<(long value) { return appendInteger<long>(value); }
CCmTextFormator& CCmTextFormator::operator<<(unsigned long value) { return appendInteger<unsigned long>(value); }

CCmTextFormator& CCmTextFormator::operator<<(long long value) {
  char scratch[65];
  if (xtoa_tvx<long long>(value, scratch, sizeof scratch) == CM_OK) {
    advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
  }
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(unsigned long long value) {
  char scratch[65];
  if (xtoa_tvx<unsigned long long>(value, scratch, sizeof scratch) == CM_OK) {
    advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
  }
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(float value) {
  char scratch[kScratchSize];
  kel_ftoa(value, scratch);
  advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(double value) {
  char scratch[kScratchSize];
  kel_ftoa(value, scratch);
  advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(const void* pointer) {
  char scratch[kScratchSize] = {'0', 'x'};
  kel_itoa(reinterpret_cast<uintptr_t>(pointer), scratch + 2, 16);
  m_bHex = false;
  advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
  return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(void* pointer) { return *this << static_cast<const void*>(pointer); }

CCmTextFormator& CCmTextFormator::operator<<(CCmOrdix ordix) {
  if (ordix == hex) {
    m_bHex = true;
  } else if (ordix == decimal) {
    m_bHex = false;
  }
  return *this;
}
