// json::Value model and its text codec.
//
// The reader works on positions inside the one input buffer: every step hands the
// remaining text on as a pointer range instead of a copy, which keeps a parse linear in
// the size of the text (times the nesting depth, which is bounded).
#include "cmutil/config/CmJson.h"

#include <strings.h>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace json {

namespace {

constexpr size_t kMaxDepth = 512;

inline bool json_isspace(char c) {
  // NUL and the "C" locale's space class.
  return c == '\0' || c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

int64_t trunc_to_int64(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9223372036854775808.0) return INT64_MAX;
  if (d < -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(d);
}

int32_t trunc_to_int32(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 2147483648.0) return INT32_MAX;
  if (d <= -2147483649.0) return INT32_MIN;
  return static_cast<int32_t>(d);
}

// A typed accessor on a value of another kind is a programming error: report the
// assertion like every other one, then stop.
#define CM_JSON_REQUIRE(expr) \
  do {                        \
    if (!(expr)) {            \
      CM_ASSERTE(expr);       \
      abort();                \
    }                         \
  } while (0)

Value& scratch_null() {
  thread_local Value s_null;
  s_null = Value();
  return s_null;
}

}  // namespace

// ---------------------------------------------------------------- Array

Array::Array() = default;
Array::Array(const Array&) = default;
Array::Array(Array&&) noexcept = default;
Array& Array::operator=(const Array&) = default;
Array& Array::operator=(Array&&) noexcept = default;
Array::~Array() = default;

Value& Array::operator[](size_t i) {
  if (i >= m_values.size()) {
    CM_ASSERTE(i < m_values.size());
    return scratch_null();
  }
  return m_values[i];
}

const Value& Array::operator[](size_t i) const {
  if (i >= m_values.size()) {
    CM_ASSERTE(i < m_values.size());
    return scratch_null();
  }
  return m_values[i];
}

void Array::push_back(const Value& v) { m_values.push_back(v); }
void Array::push_back(Value&& v) { m_values.push_back(std::move(v)); }

void Array::insert(size_t pos, const Value& v) {
  if (pos > m_values.size()) pos = m_values.size();
  m_values.insert(m_values.begin() + static_cast<std::ptrdiff_t>(pos), v);
}

Array::iterator Array::find(const Value& v) {
  for (auto it = m_values.begin(); it != m_values.end(); ++it)
    if (*it == v) return it;
  return m_values.end();
}

Array::const_iterator Array::find(const Value& v) const {
  for (auto it = m_values.begin(); it != m_values.end(); ++it)
    if (*it == v) return it;
  return m_values.end();
}

bool Array::HasValue(const Value& v) const { return find(v) != end(); }
size_t Array::size() const { return m_values.size(); }
void Array::Clear() { m_values.clear(); }
Array::iterator Array::begin() { return m_values.begin(); }
Array::iterator Array::end() { return m_values.end(); }
Array::const_iterator Array::begin() const { return m_values.begin(); }
Array::const_iterator Array::end() const { return m_values.end(); }

// ---------------------------------------------------------------- Object

Object::Object() = default;
Object::Object(const Object&) = default;
Object::Object(Object&&) noexcept = default;
Object& Object::operator=(const Object&) = default;
Object& Object::operator=(Object&&) noexcept = default;
Object::~Object() = default;

Value& Object::operator[](const std::string& key) { return m_members[key]; }
Value& Object::operator[](const char* key) { return m_members[key ? std::string(key) : std::string()]; }

namespace {
// a < b in byte order, deciding on the first bytes without a library call where they differ.
inline bool KeyLess(const std::string& a, const std::string& b) {
  if (!a.empty() && !b.empty() && a[0] != b[0])
    return static_cast<unsigned char>(a[0]) < static_cast<unsigned char>(b[0]);
  return a < b;
}
}  // namespace

void Object::Set(std::string&& key, Value&& value) {
  // Members usually arrive in key order: append at the right end with one comparison.
  if (m_members.empty() || KeyLess(m_members.rbegin()->first, key)) {
    m_members.emplace_hint(m_members.end(), std::move(key), std::move(value));
    return;
  }
  m_members.insert_or_assign(std::move(key), std::move(value));
}

int Object::HasKeys(const char** keys, int count) const {
  if (!keys || count <= 0) return -1;
  for (int i = 0; i < count; ++i) {
    if (!keys[i] || m_members.find(keys[i]) == m_members.end()) return 0;
  }
  return 1;
}

bool Object::HasKey(const std::string& key) const { return m_members.find(key) != m_members.end(); }
Object::iterator Object::find(const std::string& key) { return m_members.find(key); }
Object::const_iterator Object::find(const std::string& key) const { return m_members.find(key); }
size_t Object::size() const { return m_members.size(); }
void Object::Clear() { m_members.clear(); }
Object::iterator Object::begin() { return m_members.begin(); }
Object::iterator Object::end() { return m_members.end(); }
Object::const_iterator Object::begin() const { return m_members.begin(); }
Object::const_iterator Object::end() const { return m_members.end(); }

// ---------------------------------------------------------------- Value

void Value::Release() {
  switch (m_store) {
    case kStoreString:
      delete m_slot.s;
      break;
    case kStoreObject:
      delete m_slot.o;
      break;
    case kStoreArray:
      delete m_slot.a;
      break;
    default:
      break;
  }
  m_store = kStoreNone;
  m_slot.i = 0;
}

Value::Value() { m_slot.i = 0; }

Value::Value(int v) : m_type(kInt), m_store(kStoreInt) { m_slot.i = v; }

Value::Value(unsigned int v) : m_type(kUInt), m_store(kStoreInt) { m_slot.i = v; }

Value::Value(int64_t v) : m_type(kInt64), m_store(kStoreInt) { m_slot.i = v; }

Value::Value(float v) : m_type(kFloat), m_store(kStoreDouble) { m_slot.d = v; }

Value::Value(double v) : m_type(kDouble), m_store(kStoreDouble) { m_slot.d = v; }

Value::Value(bool v) : m_type(kBool), m_store(kStoreBool) {
  m_slot.i = 0;
  m_slot.b = v;
}

Value::Value(const char* s) : m_type(kString), m_store(kStoreString) { m_slot.s = new std::string(s ? s : ""); }

Value::Value(const std::string& s) : m_type(kString), m_store(kStoreString) { m_slot.s = new std::string(s); }

Value::Value(std::string&& s) : m_type(kString), m_store(kStoreString) { m_slot.s = new std::string(std::move(s)); }

Value::Value(const Object& o) : m_type(kObject), m_store(kStoreObject) { m_slot.o = new Object(o); }

Value::Value(Object&& o) : m_type(kObject), m_store(kStoreObject) { m_slot.o = new Object(std::move(o)); }

Value::Value(const Array& a) : m_type(kArray), m_store(kStoreArray) { m_slot.a = new Array(a); }

Value::Value(Array&& a) : m_type(kArray), m_store(kStoreArray) { m_slot.a = new Array(std::move(a)); }

Value::Value(const Value& o) : m_type(o.m_type), m_store(o.m_store) {
  switch (o.m_store) {
    case kStoreString:
      m_slot.s = new std::string(*o.m_slot.s);
      break;
    case kStoreObject:
      m_slot.o = new Object(*o.m_slot.o);
      break;
    case kStoreArray:
      m_slot.a = new Array(*o.m_slot.a);
      break;
    default:
      m_slot = o.m_slot;
      break;
  }
}

Value::Value(Value&& o) noexcept : m_type(o.m_type), m_store(o.m_store), m_slot(o.m_slot) {
  o.m_type = kNull;
  o.m_store = kStoreNone;
  o.m_slot.i = 0;
}

Value& Value::operator=(const Value& o) {
  if (this != &o) {
    Value copy(o);
    *this = std::move(copy);
  }
  return *this;
}

Value& Value::operator=(Value&& o) noexcept {
  if (this != &o) {
    // `o` may live inside this value (v = std::move(v["k"])): detach its contents
    // before the old contents are destroyed, and destroy them only at the end.
    Value taken(std::move(o));
    std::swap(m_type, taken.m_type);
    std::swap(m_store, taken.m_store);
    std::swap(m_slot, taken.m_slot);
  }
  return *this;
}

Value::~Value() { Release(); }

Object& Value::obj() {
  if (m_store != kStoreObject) {
    Release();
    m_store = kStoreObject;
    m_slot.o = new Object;
  }
  return *m_slot.o;
}

const Object& Value::cobj() const {
  static const Object s_empty;
  return m_store == kStoreObject ? *m_slot.o : s_empty;
}

Array& Value::arr() {
  if (m_store != kStoreArray) {
    Release();
    m_store = kStoreArray;
    m_slot.a = new Array;
  }
  return *m_slot.a;
}

const Array& Value::carr() const {
  static const Array s_empty;
  return m_store == kStoreArray ? *m_slot.a : s_empty;
}

int32_t Value::IntView() const {
  if (m_store == kStoreInt) return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(m_slot.i)));
  if (m_store == kStoreDouble) return trunc_to_int32(m_slot.d);
  return 0;
}

int64_t Value::Int64View() const {
  if (m_store == kStoreInt) return m_slot.i;
  if (m_store == kStoreDouble) return trunc_to_int64(m_slot.d);
  return 0;
}

uint32_t Value::UIntView() const {
  if (m_store == kStoreInt) return m_slot.i >= 0 ? static_cast<uint32_t>(static_cast<uint64_t>(m_slot.i)) : 0;
  if (m_store == kStoreDouble)
    return m_slot.d >= 0 ? static_cast<uint32_t>(static_cast<uint64_t>(trunc_to_int64(m_slot.d))) : 0;
  return 0;
}

float Value::FloatView() const {
  if (m_store == kStoreInt) return static_cast<float>(m_slot.i);
  if (m_store == kStoreDouble) return static_cast<float>(m_slot.d);
  return 0.0f;
}

double Value::DoubleView() const {
  if (m_store == kStoreInt) return static_cast<double>(m_slot.i);
  if (m_store == kStoreDouble) return m_slot.d;
  return 0.0;
}

bool Value::IsNumeric() const {
  return m_type == kInt || m_type == kInt64 || m_type == kFloat || m_type == kDouble || m_type == kUInt;
}

int Value::ToInt() const {
  CM_JSON_REQUIRE(IsNumeric());
  return IntView();
}

int64_t Value::ToInt64() const {
  CM_JSON_REQUIRE(IsNumeric());
  return Int64View();
}

unsigned int Value::ToUInt() const {
  CM_JSON_REQUIRE(IsNumeric());
  return UIntView();
}

float Value::ToFloat() const {
  CM_JSON_REQUIRE(IsNumeric());
  return FloatView();
}

double Value::ToDouble() const {
  CM_JSON_REQUIRE(IsNumeric());
  return DoubleView();
}

bool Value::ToBool() const {
  CM_JSON_REQUIRE(m_type == kBool);
  return m_slot.b;
}

const std::string& Value::ToString() const {
  CM_JSON_REQUIRE(m_type == kString);
  return *m_slot.s;
}

Object Value::ToObject() const {
  CM_JSON_REQUIRE(m_type == kObject);
  return cobj();
}

Array Value::ToArray() const {
  CM_JSON_REQUIRE(m_type == kArray);
  return carr();
}

size_t Value::size() const {
  if (m_type == kObject) return cobj().size();
  if (m_type == kArray) return carr().size();
  return 1;
}

void Value::Clear() { m_type = kNull; }

Value& Value::operator[](unsigned long i) {
  if (m_type != kArray) {
    CM_ASSERTE(m_type == kArray);
    return scratch_null();
  }
  return arr()[i];
}

const Value& Value::operator[](unsigned long i) const {
  if (m_type != kArray) {
    CM_ASSERTE(m_type == kArray);
    return scratch_null();
  }
  return carr()[i];
}

Value& Value::operator[](const char* key) {
  if (m_type == kNull) {
    m_type = kObject;
    obj().Clear();
  }
  if (m_type != kObject) {
    CM_ASSERTE(m_type == kObject);
    return scratch_null();
  }
  return obj()[key];
}

Value& Value::operator[](const std::string& key) { return (*this)[key.c_str()]; }

int Value::HasKeys(const char** keys, int count) const {
  if (m_type != kObject) return -1;
  return cobj().HasKeys(keys, count);
}

void Value::MergeValue(const Value& other) {
  if (this == &other) {
    Value copy(other);
    MergeValue(copy);
    return;
  }
  if (m_type == kObject && other.m_type == kObject) {
    for (const auto& kv : other.cobj()) obj()[kv.first] = kv.second;
  } else if (m_type == kArray && other.m_type == kArray) {
    for (const auto& v : other.carr()) arr().push_back(v);
  } else {
    *this = other;
  }
}

bool operator==(const Value& a, const Value& b) {
  if (a.m_type != b.m_type) return false;
  switch (a.m_type) {
    case kNull:
      return true;
    case kString:
      return *a.m_slot.s == *b.m_slot.s;
    case kInt:
      return a.IntView() == b.IntView();
    case kInt64:
      return a.Int64View() == b.Int64View();
    case kFloat:
      return a.FloatView() == b.FloatView();
    case kDouble:
      return a.DoubleView() == b.DoubleView();
    case kBool:
      return a.m_slot.b == b.m_slot.b;
    case kUInt:
      return a.UIntView() == b.UIntView();
    case kObject: {
      const Object& oa = a.cobj();
      const Object& ob = b.cobj();
      if (oa.size() != ob.size()) return false;
      auto ib = ob.begin();
      for (auto ia = oa.begin(); ia != oa.end(); ++ia, ++ib) {
        if (ia->first != ib->first || !(ia->second == ib->second)) return false;
      }
      return true;
    }
    case kArray: {
      const Array& xa = a.carr();
      const Array& xb = b.carr();
      if (xa.size() != xb.size()) return false;
      for (size_t i = 0; i < xa.size(); ++i)
        if (!(xa[i] == xb[i])) return false;
      return true;
    }
    default:
      return true;
  }
}

// ---------------------------------------------------------------- writing

class Writer {
 public:
  // The bytes printf's "%f" gives (six decimals, correctly rounded) without its format
  // parsing and locale work, which cost most of a number-heavy document's time.
  static int WriteFixed(char* buf, size_t size, double value) {
    auto result = std::to_chars(buf, buf + size, value, std::chars_format::fixed, 6);
    if (result.ec == std::errc()) return static_cast<int>(result.ptr - buf);
    return snprintf(buf, size, "%f", value);
  }

  static void Write(std::string& out, const Value& v) {
    char buf[500];
    int n = 0;
    switch (v.m_type) {
      case kNull:
        out += "null";
        return;
      case kString:
        out += '"';
        out += *v.m_slot.s;
        out += '"';
        return;
      case kInt:
        n = static_cast<int>(std::to_chars(buf, buf + sizeof(buf), v.IntView()).ptr - buf);
        break;
      case kInt64:
        n = static_cast<int>(std::to_chars(buf, buf + sizeof(buf), v.Int64View()).ptr - buf);
        break;
      case kFloat:
        n = WriteFixed(buf, sizeof(buf), static_cast<double>(v.FloatView()));
        break;
      case kDouble:
        n = WriteFixed(buf, sizeof(buf), v.DoubleView());
        break;
      case kObject:
        WriteObject(out, v.cobj());
        return;
      case kArray:
        WriteArray(out, v.carr());
        return;
      case kBool:
        out += v.m_slot.b ? "true" : "false";
        return;
      case kUInt:
        n = static_cast<int>(std::to_chars(buf, buf + sizeof(buf), v.UIntView()).ptr - buf);
        break;
      default:
        return;
    }
    if (n > 0) out.append(buf, static_cast<size_t>(n) < sizeof(buf) ? static_cast<size_t>(n) : sizeof(buf) - 1);
  }

  static void WriteArray(std::string& out, const Array& a) {
    out += '[';
    bool first = true;
    for (const auto& e : a) {
      if (!first) out += ',';
      first = false;
      Write(out, e);
    }
    out += ']';
  }

  static void WriteObject(std::string& out, const Object& o) {
    out += '{';
    bool first = true;
    for (const auto& kv : o) {
      if (!first) out += ',';
      first = false;
      out += '"';
      out += kv.first;
      out += "\":";
      Write(out, kv.second);
    }
    out += '}';
  }
};

std::string SerializeValue(const Value& v) {
  std::string out;
  Writer::Write(out, v);
  return out;
}

std::string SerializeArray(const Array& a) {
  std::string out;
  Writer::WriteArray(out, a);
  return out;
}

std::string Serialize(const Value& v) {
  std::string out;
  if (v.GetType() == kObject || v.GetType() == kArray) Writer::Write(out, v);
  return out;
}

// ---------------------------------------------------------------- reading

class Parser {
 public:
  Value Document(const char* b, const char* e) {
    Trim(b, e);
    if (b == e) return Value();
    Value out;
    bool ok = false;
    if (*b == '[' && e[-1] == ']') {
      m_stack.push_back(kStackArray);
      ok = ParseArray(b, e, out);
    } else if (*b == '{' && e[-1] == '}') {
      m_stack.push_back(kStackObject);
      ok = ParseObject(b, e, out);
    }
    if (!ok) return Value();
    return out;
  }

 private:
  // Character classes of the scanners: what ends a run inside a string, and what ends
  // a run outside one.
  static constexpr uint8_t kInString = 1;
  static constexpr uint8_t kStructural = 2;
  struct ClassTable {
    uint8_t c[256] = {};
    constexpr ClassTable() {
      c[static_cast<uint8_t>('"')] = kInString | kStructural;
      c[static_cast<uint8_t>('\\')] = kInString;
      c[static_cast<uint8_t>('[')] = kStructural;
      c[static_cast<uint8_t>(']')] = kStructural;
      c[static_cast<uint8_t>('{')] = kStructural;
      c[static_cast<uint8_t>('}')] = kStructural;
      c[static_cast<uint8_t>(',')] = kStructural;
    }
  };

  // First position at or after p whose character is of class `cls`, or e.
  static const char* SkipTo(const char* p, const char* e, uint8_t cls) {
    static constexpr ClassTable kTable;
    while (p < e && !(kTable.c[static_cast<uint8_t>(*p)] & cls)) ++p;
    return p;
  }

  static void Trim(const char*& b, const char*& e) {
    while (b < e && json_isspace(*b)) ++b;
    while (e > b && json_isspace(e[-1])) --e;
  }

  // First double quote at or after `p` that is not escaped by a backslash.
  static const char* QuotePos(const char* p, const char* e) {
    while (p < e) {
      p = SkipTo(p, e, kInString);
      if (p >= e) break;
      if (*p == '\\') {
        p += (e - p >= 2) ? 2 : 1;
        continue;
      }
      return p;
    }
    return nullptr;
  }

  // `b` points at '[' or '{' whose level is already on the stack. Returns the position
  // of the matching closer, or null when the nesting is wrong or the text ends first.
  const char* EndOfArrayOrObj(const char* b, const char* e) {
    const size_t start = m_stack.size() - 1;
    bool inString = false;
    for (const char* p = b + 1; p < e; ++p) {
      p = SkipTo(p, e, inString ? kInString : kStructural);
      if (p >= e) break;
      char c = *p;
      if (inString) {
        if (c == '\\') {
          if (p + 1 < e) ++p;
        } else {
          inString = false;
        }
        continue;
      }
      switch (c) {
        case '"':
          inString = true;
          break;
        case '[':
          m_stack.push_back(kStackArray);
          break;
        case '{':
          m_stack.push_back(kStackObject);
          break;
        case ']':
        case '}':
          if (m_stack.empty() || m_stack.back() != (c == ']' ? kStackArray : kStackObject)) return nullptr;
          m_stack.pop_back();
          if (m_stack.size() == start) return p;
          break;
        default:
          break;
      }
    }
    return nullptr;
  }

  static int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

  static std::string Unescape(const char* b, const char* e) {
    std::string s;
    s.reserve(static_cast<size_t>(e - b));
    const char* p = b;
    while (p < e) {
      const char* bs = static_cast<const char*>(memchr(p, '\\', static_cast<size_t>(e - p)));
      if (!bs) {
        s.append(p, e);
        break;
      }
      s.append(p, bs);
      if (bs + 1 == e) {
        s += '\\';  // a backslash at the very end stays
        break;
      }
      char c = bs[1];
      p = bs + 2;
      switch (c) {
        case 'n':
          s += '\n';
          break;
        case 'r':
          s += '\r';
          break;
        case 't':
          s += '\t';
          break;
        case 'b':
          s += '\b';
          break;
        case 'f':
          s += '\f';
          break;
        case '"':
          s += '"';
          break;
        case '/':
          s += '/';
          break;
        case '\\':
          s += '\\';
          break;
        case 'u':
          if (e - p >= 4 && HexDigit(p[0]) >= 0 && HexDigit(p[1]) >= 0 && HexDigit(p[2]) >= 0 && HexDigit(p[3]) >= 0) {
            // One byte only: the last two of the four digits.
            s += static_cast<char>(HexDigit(p[2]) * 16 + HexDigit(p[3]));
            p += 4;
          }
          break;
        default:
          break;  // unknown escape: dropped with its backslash
      }
    }
    // Blanks at both ends of the text are not kept.
    size_t first = 0;
    while (first < s.size() && json_isspace(s[first])) ++first;
    size_t last = s.size();
    while (last > first && json_isspace(s[last - 1])) --last;
    if (first != 0 || last != s.size()) s = s.substr(first, last - first);
    return s;
  }

  bool ParseObject(const char* b, const char* e, Value& out) {
    ++b;
    --e;
    Object obj;
    for (;;) {
      Trim(b, e);
      if (b >= e) break;
      const char* q1 = QuotePos(b, e);
      if (!q1) return false;
      const char* q2 = QuotePos(q1 + 1, e);
      if (!q2) return false;
      const char* colon = static_cast<const char*>(memchr(q2 + 1, ':', static_cast<size_t>(e - (q2 + 1))));
      if (!colon) return false;
      if (q2 == q1 + 1) return false;  // empty key
      Value v;
      const char* rest = nullptr;
      if (!ParseValue(colon + 1, e, v, rest)) return false;
      obj.Set(std::string(q1 + 1, q2), std::move(v));
      b = rest;
    }
    if (!m_stack.empty() && m_stack.back() == kStackObject) m_stack.pop_back();
    out = Value(std::move(obj));
    return true;
  }

  bool ParseArray(const char* b, const char* e, Value& out) {
    ++b;
    --e;
    Array arr;
    const char* piece = b;
    int depth = 0;
    bool inString = false;
    for (const char* p = b;; ++p) {
      if (p < e) p = SkipTo(p, e, inString ? kInString : kStructural);
      if (p < e) {
        char c = *p;
        if (inString) {
          if (c == '\\')
            ++p;
          else
            inString = false;
          continue;
        }
        if (c == '"') {
          inString = true;
          continue;
        }
        if (c == '[' || c == '{') {
          ++depth;
          continue;
        }
        if (c == ']' || c == '}') {
          --depth;
          continue;
        }
        if (c != ',' || depth != 0) continue;
      }
      // A piece ends at a top-level comma or at the end of the content.
      const char* pe = p < e ? p : e;
      Value v;
      const char* rest = nullptr;
      if (!ParseValue(piece, pe, v, rest)) return false;
      if (v.GetType() != kNull) arr.push_back(std::move(v));
      if (p >= e) break;
      piece = p + 1;
    }
    out = Value(std::move(arr));
    return true;
  }

  bool ParseValue(const char* b, const char* e, Value& out, const char*& rest) {
    Trim(b, e);
    if (b == e) {
      out = Value();
      rest = e;
      return true;
    }
    char c = *b;
    if (c == '[' || c == '{') {
      if (m_depth >= kMaxDepth) return false;
      m_stack.push_back(c == '[' ? kStackArray : kStackObject);
      const char* end = EndOfArrayOrObj(b, e);
      if (!end) return false;
      ++m_depth;
      bool ok = c == '[' ? ParseArray(b, end + 1, out) : ParseObject(b, end + 1, out);
      --m_depth;
      rest = end + 1;
      return ok;
    }
    if (c == '"') {
      const char* close = QuotePos(b + 1, e);
      if (!close) return false;
      out = Value(Unescape(b + 1, close));
      rest = close + 1;
      return true;
    }
    return ParseToken(b, e, out, rest);
  }

  // Decimal conversion of the token; the fast conversion is used only where it gives
  // exactly what strtod gives (no hexadecimal form, no leading '+', no range error).
  double ToDouble(const char* t, size_t n) {
    if (n && t[0] != '+' && !memchr(t, 'x', n) && !memchr(t, 'X', n)) {
      double d = 0;
      auto r = std::from_chars(t, t + n, d);
      if (r.ec == std::errc() && r.ptr != t) return d;
    }
    return strtod(t, nullptr);
  }

  static bool LiteralIs(const char* t, size_t n, const char* lower) {
    return strlen(lower) == n && strncasecmp(t, lower, n) == 0;
  }

  void Classify(bool floating, Value& out) {
    const char* t = m_token.c_str();
    const size_t n = m_token.size();
    const char c0 = static_cast<char>(n ? (t[0] | 0x20) : 0);
    if (c0 == 't' && LiteralIs(t, n, "true")) {
      out = Value(true);
      return;
    }
    if (c0 == 'f' && LiteralIs(t, n, "false")) {
      out = Value(false);
      return;
    }
    if (floating) {
      out = Value(ToDouble(t, n));
      return;
    }
    if (c0 == 'n' && LiteralIs(t, n, "null")) {
      out = Value();
      return;
    }
    // Plain integers of up to 18 digits are exact in both conversions: classify them
    // directly. Anything else goes through the decimal floating conversion.
    const size_t sign = (n && t[0] == '-') ? 1 : 0;
    const size_t digits = n - sign;
    if (digits >= 1 && digits <= 18) {
      int64_t v = 0;
      size_t i = sign;
      for (; i < n && t[i] >= '0' && t[i] <= '9'; ++i) v = v * 10 + (t[i] - '0');
      if (i == n) {
        if (sign) v = -v;
        if (v >= INT32_MIN && v <= INT32_MAX)
          out = Value(static_cast<int>(v));
        else if (v >= 0 && v <= static_cast<int64_t>(UINT32_MAX))
          out = Value(static_cast<unsigned int>(v));
        else
          out = Value(trunc_to_int64(static_cast<double>(v)));
        return;
      }
    }
    double x = strtod(t, nullptr);
    if (x >= -2147483648.0 && x <= 2147483647.0) {
      out = Value(static_cast<int>(static_cast<int32_t>(strtol(t, nullptr, 10))));
    } else if (x >= 0.0 && x <= 4294967295.0) {
      out = Value(static_cast<unsigned int>(x));
    } else if (x >= -9223372036854775808.0 && x <= 9223372036854775808.0) {
      out = Value(trunc_to_int64(x));
    } else {
      out = Value(x);
    }
  }

  bool ParseToken(const char* b, const char* e, Value& out, const char*& rest) {
    bool floating = false;
    // The common case first: a run of token characters copied in one piece, up to the
    // first blank, closer or comma; the loop below handles whatever follows.
    const char* p = b;
    for (; p < e; ++p) {
      const char c = *p;
      if (c == ',' || c == ']' || c == '}' || json_isspace(c)) break;
      if (c == 'e' || c == '.') floating = true;
    }
    m_token.assign(b, p);
    for (; p < e && *p != ','; ++p) {
      char c = *p;
      if (json_isspace(c)) continue;
      if (c == ']' || c == '}') {
        StackDepthType want = c == ']' ? kStackArray : kStackObject;
        if (m_stack.empty() || m_stack.back() != want) return false;
        m_stack.pop_back();
        continue;
      }
      if (c == 'e' || c == '.') floating = true;
      m_token += c;
    }
    rest = p;
    Classify(floating, out);
    return true;
  }

  std::vector<StackDepthType> m_stack;
  std::string m_token;
  size_t m_depth = 0;
};

Value Deserialize(const std::string& text) {
  Parser parser;
  return parser.Document(text.data(), text.data() + text.size());
}

}  // namespace json
