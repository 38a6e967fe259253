#include "cmutil/trace/CmTextFormator.h"

namespace {
// Room for any 64-bit number in any base, its sign and the terminator.
constexpr int kScratchSize = 72;
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

namespace {

// Digits of magnitude in a constant base, written backwards ending at end; returns the
// first character. Constant divisors let the compiler replace division by multiplication,
// which is most of the cost of a produced trace line.
template <unsigned Base>
char* write_digits_backwards(unsigned long magnitude, char* end) {
  static const char kDigits[] = "0123456789abcdef";
  char* p = end;
  do {
    *--p = kDigits[magnitude % Base];
    magnitude /= Base;
  } while (magnitude != 0);
  return p;
}

// Decimal two digits at a time: half the multiplications of the plain loop.
template <>
char* write_digits_backwards<10>(unsigned long magnitude, char* end) {
  static const char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char* p = end;
  while (magnitude >= 100) {
    const unsigned pair = static_cast<unsigned>(magnitude % 100) * 2;
    magnitude /= 100;
    p -= 2;
    p[0] = kPairs[pair];
    p[1] = kPairs[pair + 1];
  }
  if (magnitude >= 10) {
    const unsigned pair = static_cast<unsigned>(magnitude) * 2;
    p -= 2;
    p[0] = kPairs[pair];
    p[1] = kPairs[pair + 1];
  } else {
    *--p = static_cast<char>('0' + magnitude);
  }
  return p;
}

}  // namespace

template <typename T>
CCmTextFormator& CCmTextFormator::appendInteger(T value) {
  char scratch[kScratchSize];
  char* end = scratch + kScratchSize;
  char* first;
  if (m_bHex) {
    // A negative signed value in hex is not meaningful; keep kel_itoa's exact output.
    if (std::is_signed<T>::value && value < 0) {
      kel_itoa(value, scratch, 16);
      m_bHex = false;
      advance(scratch, static_cast<unsigned int>(std::strlen(scratch)));
      return *this;
    }
    first = write_digits_backwards<16>(static_cast<unsigned long>(value), end);
  } else if (std::is_signed<T>::value && value < 0) {
    first = write_digits_backwards<10>(0UL - static_cast<unsigned long>(value), end);
    *--first = '-';
  } else {
    first = write_digits_backwards<10>(static_cast<unsigned long>(value), end);
  }
  m_bHex = false;
  advance(first, static_cast<unsigned int>(end - first));
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
