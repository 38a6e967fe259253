#pragma once
/// json::Value, json::Object, json::Array and the text codec json::Serialize /
/// json::Deserialize.
///
/// A small, lenient document model. Its deliberate quirks are part of its contract:
///  - a Value answers every numeric view (int, float, double, unsigned, 64-bit) as
///    filled at construction; GetType() says which one is meaningful;
///  - bare numbers are classified by range: int, then unsigned int, then 64-bit int,
///    then double; a token with a lower-case 'e' or a '.' is a double (an upper-case
///    'E' is not recognised: 1E5 reads as the int 1);
///  - literals compare without case (TRUE, False, NULL);
///  - null array elements are dropped ([1,null,2] has two elements);
///  - strings are trimmed on reading, "\uXXXX" gives ONE byte (the last two hex
///    digits), and strings and keys are written WITHOUT escaping;
///  - only an object or an array is a document: anything else reads as null.
///
/// Deserialize() never throws and never traces: every syntax error gives a null value.
/// Its cost is linear in the text size for a bounded nesting depth; documents nested
/// deeper than 512 levels are refused (null).
///
/// Typed accessors (ToInt, ToString, ...) on a value of another kind are programming
/// errors: they report an assertion and give the neutral value (0, false, "", empty).
///
/// Values are plain data: not thread-safe, copy freely.

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "cmutil/base/CmExport.h"

namespace json {

/// The type tag of a Value.
enum ValueType : uint32_t {
  kNull = 0,
  kString = 1,
  kInt = 2,
  kInt64 = 3,
  kFloat = 4,
  kDouble = 5,
  kObject = 6,
  kArray = 7,
  kBool = 8,
  kUInt = 9,
};

/// Nesting-stack element used while reading: 0 an object level, 1 an array level.
typedef uint8_t StackDepthType;
constexpr StackDepthType kStackObject = 0;
constexpr StackDepthType kStackArray = 1;

class Value;

/// Ordered array of values. Elements are kept in fixed-size blocks (no reallocation as the
/// array grows, so a large array never moves or frees one large block); indexing is O(1).
class CM_EXPORT Array {
 public:
  typedef std::deque<Value>::iterator iterator;
  typedef std::deque<Value>::const_iterator const_iterator;

  Array();
  Array(const Array&);
  Array(Array&&) noexcept;
  Array& operator=(const Array&);
  Array& operator=(Array&&) noexcept;
  ~Array();

  Value& operator[](size_t i);
  const Value& operator[](size_t i) const;
  void push_back(const Value& v);
  void push_back(Value&& v);
  /// Inserts before position `pos`; a position past the end appends.
  void insert(size_t pos, const Value& v);
  iterator find(const Value& v);
  const_iterator find(const Value& v) const;
  bool HasValue(const Value& v) const;
  size_t size() const;
  void Clear();
  iterator begin();
  iterator end();
  const_iterator begin() const;
  const_iterator end() const;

 private:
  std::deque<Value> m_values;
};

/// Map from key to value, iterated in ascending byte order of the keys.
class CM_EXPORT Object {
 public:
  typedef std::map<std::string, Value>::iterator iterator;
  typedef std::map<std::string, Value>::const_iterator const_iterator;

  Object();
  Object(const Object&);
  Object(Object&&) noexcept;
  Object& operator=(const Object&);
  Object& operator=(Object&&) noexcept;
  ~Object();

  /// Inserts a null member when absent.
  Value& operator[](const std::string& key);
  Value& operator[](const char* key);
  /// Inserts the member or replaces its value.
  void Set(std::string&& key, Value&& value);
  /// Returns -1 for an empty list (or null keys), 1 when every key is a member, else 0.
  int HasKeys(const char** keys, int count) const;
  bool HasKey(const std::string& key) const;
  iterator find(const std::string& key);
  const_iterator find(const std::string& key) const;
  size_t size() const;
  void Clear();
  iterator begin();
  iterator end();
  const_iterator begin() const;
  const_iterator end() const;

 private:
  std::map<std::string, Value> m_members;
};

class CM_EXPORT Value {
 public:
  Value();
  Value(int v);
  Value(unsigned int v);
  Value(int64_t v);
  Value(float v);
  Value(double v);
  Value(bool v);
  Value(const char* s);
  Value(const std::string& s);
  Value(std::string&& s);
  Value(const Object& o);
  Value(Object&& o);
  Value(const Array& a);
  Value(Array&& a);
  Value(const Value&);
  Value(Value&&) noexcept;
  Value& operator=(const Value&);
  Value& operator=(Value&&) noexcept;
  ~Value();

  ValueType GetType() const { return static_cast<ValueType>(m_type); }
  bool IsNull() const { return m_type == kNull; }
  bool IsNumeric() const;

  /// Int view; the tag must be int, 64-bit int, float, double or unsigned.
  int ToInt() const;
  /// 64-bit view (same tags as ToInt).
  int64_t ToInt64() const;
  /// Unsigned view (same tags as ToInt).
  unsigned int ToUInt() const;
  /// Float view (same tags as ToInt).
  float ToFloat() const;
  /// Double view (same tags as ToInt).
  double ToDouble() const;
  /// Tag must be bool.
  bool ToBool() const;
  /// Tag must be string.
  const std::string& ToString() const;
  /// Copy of the object; tag must be object.
  Object ToObject() const;
  /// Copy of the array; tag must be array.
  Array ToArray() const;
  operator Array() const { return ToArray(); }

  /// Members of an object, elements of an array, 1 for any other kind.
  size_t size() const;
  /// Sets the tag to null; the other views keep their contents.
  void Clear();

  /// Element of an array (out of range, or not an array: assertion, then a null
  /// placeholder that belongs to the calling thread).
  Value& operator[](unsigned long i);
  const Value& operator[](unsigned long i) const;
  /// Member of an object, inserted as null when absent. A null value becomes an empty
  /// object first.
  Value& operator[](const char* key);
  Value& operator[](const std::string& key);
  /// See Object::HasKeys; -1 as well when this is not an object.
  int HasKeys(const char** keys, int count) const;
  /// Objects: members of `other` are inserted or replace ours. Arrays: elements of
  /// `other` are appended. Otherwise this value becomes a copy of `other`.
  void MergeValue(const Value& other);

  friend CM_EXPORT bool operator==(const Value& a, const Value& b);
  friend class Parser;
  friend class Writer;

 private:
  // Storage: one 64-bit slot holds the number (as an integer or as a double, depending
  // on how the value was made), the bool, or the owned string, object or array. Every
  // numeric view (int, float, double, unsigned, 64-bit) is derived from the number
  // exactly as if all of them had been filled at construction; Clear() changes only the
  // tag, so the views stay behind it.
  enum Store : uint8_t { kStoreNone, kStoreInt, kStoreDouble, kStoreBool, kStoreString, kStoreObject, kStoreArray };

  Object& obj();
  const Object& cobj() const;
  Array& arr();
  const Array& carr() const;
  int32_t IntView() const;
  int64_t Int64View() const;
  uint32_t UIntView() const;
  float FloatView() const;
  double DoubleView() const;
  void Release();

  uint32_t m_type = kNull;
  uint8_t m_store = kStoreNone;
  union Slot {
    int64_t i;
    double d;
    bool b;
    std::string* s;
    Object* o;
    Array* a;
  } m_slot;
};

/// Deep equality: same kind and equal contents (numbers by their tagged view).
CM_EXPORT bool operator==(const Value& a, const Value& b);
inline bool operator!=(const Value& a, const Value& b) { return !(a == b); }

/// Text of an object or an array (no blanks, no escaping); empty for any other kind.
CM_EXPORT std::string Serialize(const Value& v);
/// Text of one value as it appears inside a document.
CM_EXPORT std::string SerializeValue(const Value& v);
/// Text of an array value.
CM_EXPORT std::string SerializeArray(const Array& a);
/// Reads a document (an object or an array); null on any error. Never throws.
CM_EXPORT Value Deserialize(const std::string& text);

}  // namespace json
