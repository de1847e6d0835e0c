// BVValue: one value type for everything a property list, an attribute
// dictionary, a track dictionary or an archive can hold.
//
// A value is nothing (absent), the null object, a string, an integer, a real,
// a boolean, a date, data, an array, a dictionary, or a shared object (a
// record, an error). Arrays and dictionaries hold values; dictionaries keep
// their keys sorted so output is deterministic.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVObject.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

class BVValue;
using BVArray = std::vector<BVValue>;
using BVDictionary = std::map<std::string, BVValue, std::less<>>;
using BVData = std::vector<uint8_t>;

// A point in time, seconds since 2001-01-01 00:00:00 UTC (the property-list epoch).
struct BV_EXPORT BVDate {
  double secondsSinceReferenceDate = 0;
  bool operator==(const BVDate&) const = default;
};

// The null object: a present value that means "nothing" (unlike an absent value).
struct BV_EXPORT BVNull {
  bool operator==(const BVNull&) const = default;
};

class BV_EXPORT BVValue {
 public:
  enum class Kind { None, Null, String, Integer, Real, Boolean, Date, Data, Array, Dictionary, Object };

  BVValue() = default;
  BVValue(BVNull) : v_(BVNull{}) {}
  BVValue(std::string s) : v_(std::move(s)) {}
  BVValue(std::string_view s) : v_(std::string(s)) {}
  BVValue(const char* s) : v_(std::string(s ? s : "")) {}
  BVValue(int i) : v_(int64_t(i)) {}
  BVValue(unsigned int i) : v_(int64_t(i)) {}
  BVValue(long i) : v_(int64_t(i)) {}
  BVValue(long long i) : v_(int64_t(i)) {}
  BVValue(unsigned long i) : v_(int64_t(i)) {}
  BVValue(unsigned long long i) : v_(int64_t(i)) {}
  BVValue(double d) : v_(d) {}
  BVValue(float f) : v_(double(f)) {}
  BVValue(bool b) : v_(b) {}
  BVValue(BVDate d) : v_(d) {}
  BVValue(BVData d) : v_(std::move(d)) {}
  BVValue(BVArray a) : v_(std::make_shared<BVArray>(std::move(a))) {}
  BVValue(BVDictionary d) : v_(std::make_shared<BVDictionary>(std::move(d))) {}
  // Objects are held as shared, immutable values; a const object (an error)
  // is accepted too.
  template <class T, class = std::enable_if_t<std::is_base_of_v<BVObject, std::remove_const_t<T>>>>
  BVValue(std::shared_ptr<T> o) {
    if (o) v_ = std::const_pointer_cast<BVObject>(std::shared_ptr<const BVObject>(std::move(o)));
  }

  Kind kind() const { return Kind(v_.index()); }
  bool isNone() const { return kind() == Kind::None; }
  bool isNull() const { return kind() == Kind::Null; }
  bool isString() const { return kind() == Kind::String; }
  bool isNumber() const { return kind() == Kind::Integer || kind() == Kind::Real || kind() == Kind::Boolean; }
  bool isArray() const { return kind() == Kind::Array; }
  bool isDictionary() const { return kind() == Kind::Dictionary; }
  bool isObject() const { return kind() == Kind::Object; }
  explicit operator bool() const { return !isNone(); }

  // Typed reads. The pointer forms return nullptr when the kind differs; the
  // number reads convert between integers, reals and booleans (0 otherwise).
  const std::string* string() const { return std::get_if<std::string>(&v_); }
  std::string stringOr(std::string_view fallback = {}) const;
  int64_t integerValue() const;
  uint64_t unsignedValue() const { return uint64_t(integerValue()); }
  double doubleValue() const;
  bool boolValue() const;
  const BVDate* date() const { return std::get_if<BVDate>(&v_); }
  const BVData* data() const { return std::get_if<BVData>(&v_); }
  const BVArray* array() const;
  const BVDictionary* dictionary() const;
  std::shared_ptr<BVObject> object() const;
  template <class T>
  std::shared_ptr<T> objectAs() const {
    return std::dynamic_pointer_cast<T>(object());
  }

  // Dictionary lookup; an absent value when this is no dictionary or the key is missing.
  const BVValue& operator[](std::string_view key) const;

  // Deep equality; objects compare with isEqual().
  bool operator==(const BVValue& other) const;
  bool operator!=(const BVValue& other) const { return !(*this == other); }

  // A short human-readable rendering (for descriptions and diagnostics).
  std::string description() const;

  static const BVValue& none();

 private:
  std::variant<std::monostate, BVNull, std::string, int64_t, double, bool, BVDate, BVData,
               std::shared_ptr<const BVArray>, std::shared_ptr<const BVDictionary>,
               std::shared_ptr<BVObject>>
      v_;
};

// Convenience: the string under key, or nullptr.
BV_EXPORT const std::string* BVDictionaryString(const BVDictionary& d, std::string_view key);
