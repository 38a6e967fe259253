// The json::Value model: arrays, objects, values and their typed views.
#include "cmutil/config/CmJson.h"

#include <cmath>
#include <cstdint>
#include <utility>

#include "cmutil/base/CmAssert.h"
#include "config/CmJsonNumbers.h"

namespace json {

using detail::trunc_to_int64;

namespace {

int32_t trunc_to_int32(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 2147483648.0) return INT32_MAX;
  if (d <= -2147483649.0) return INT32_MIN;
  return static_cast<int32_t>(d);
}

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
  CM_ASSERTE(IsNumeric());  // a value of another kind reads as 0
  return IntView();
}

int64_t Value::ToInt64() const {
  CM_ASSERTE(IsNumeric());  // a value of another kind reads as 0
  return Int64View();
}

unsigned int Value::ToUInt() const {
  CM_ASSERTE(IsNumeric());  // a value of another kind reads as 0
  return UIntView();
}

float Value::ToFloat() const {
  CM_ASSERTE(IsNumeric());  // a value of another kind reads as 0
  return FloatView();
}

double Value::ToDouble() const {
  CM_ASSERTE(IsNumeric());  // a value of another kind reads as 0
  return DoubleView();
}

bool Value::ToBool() const {
  CM_ASSERTE_RETURN(m_type == kBool, false);
  return m_slot.b;
}

const std::string& Value::ToString() const {
  static const std::string s_empty;
  CM_ASSERTE_RETURN(m_type == kString, s_empty);
  return *m_slot.s;
}

Object Value::ToObject() const {
  CM_ASSERTE(m_type == kObject);  // a value of another kind reads as empty
  return cobj();
}

Array Value::ToArray() const {
  CM_ASSERTE(m_type == kArray);  // a value of another kind reads as empty
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

}  // namespace json
