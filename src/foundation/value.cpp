// BVValue: typed reads, deep equality and descriptions.
#include <belvane/BVValue.h>

#include <cmath>
#include <cstdio>

namespace {
const BVValue kNone;
}

const BVValue& BVValue::none() { return kNone; }

std::string BVValue::stringOr(std::string_view fallback) const {
  if (auto s = string()) return *s;
  return std::string(fallback);
}

int64_t BVValue::integerValue() const {
  switch (kind()) {
    case Kind::Integer: return std::get<int64_t>(v_);
    case Kind::Real: {
      double d = std::get<double>(v_);
      if (std::isnan(d)) return 0;
      if (d >= 9.2e18) return INT64_MAX;
      if (d <= -9.2e18) return INT64_MIN;
      return int64_t(d);
    }
    case Kind::Boolean: return std::get<bool>(v_) ? 1 : 0;
    default: return 0;
  }
}

double BVValue::doubleValue() const {
  switch (kind()) {
    case Kind::Integer: return double(std::get<int64_t>(v_));
    case Kind::Real: return std::get<double>(v_);
    case Kind::Boolean: return std::get<bool>(v_) ? 1.0 : 0.0;
    default: return 0.0;
  }
}

bool BVValue::boolValue() const {
  switch (kind()) {
    case Kind::Boolean: return std::get<bool>(v_);
    case Kind::Integer: return std::get<int64_t>(v_) != 0;
    case Kind::Real: return std::get<double>(v_) != 0.0;
    default: return false;
  }
}

const BVArray* BVValue::array() const {
  auto p = std::get_if<std::shared_ptr<const BVArray>>(&v_);
  return p ? p->get() : nullptr;
}

const BVDictionary* BVValue::dictionary() const {
  auto p = std::get_if<std::shared_ptr<const BVDictionary>>(&v_);
  return p ? p->get() : nullptr;
}

std::shared_ptr<BVObject> BVValue::object() const {
  auto p = std::get_if<std::shared_ptr<BVObject>>(&v_);
  return p ? *p : nullptr;
}

const BVValue& BVValue::operator[](std::string_view key) const {
  if (auto d = dictionary()) {
    auto it = d->find(key);
    if (it != d->end()) return it->second;
  }
  return kNone;
}

bool BVValue::operator==(const BVValue& other) const {
  if (kind() != other.kind()) return false;
  switch (kind()) {
    case Kind::Array: return *array() == *other.array();
    case Kind::Dictionary: return *dictionary() == *other.dictionary();
    case Kind::Object: {
      auto a = object(), b = other.object();
      return a == b || (a && b && a->isEqual(*b));
    }
    default: return v_ == other.v_;
  }
}

std::string BVValue::description() const {
  switch (kind()) {
    case Kind::None: return "(null)";
    case Kind::Null: return "<null>";
    case Kind::String: return *string();
    case Kind::Integer: return std::to_string(std::get<int64_t>(v_));
    case Kind::Real: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%g", std::get<double>(v_));
      return buf;
    }
    case Kind::Boolean: return std::get<bool>(v_) ? "1" : "0";
    case Kind::Date: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "<date %.3f>", date()->secondsSinceReferenceDate);
      return buf;
    }
    case Kind::Data: return "<" + std::to_string(data()->size()) + " bytes>";
    case Kind::Array: {
      std::string s = "(";
      bool first = true;
      for (auto& v : *array()) {
        s += first ? "" : ", ";
        s += v.description();
        first = false;
      }
      return s + ")";
    }
    case Kind::Dictionary: {
      std::string s = "{";
      bool first = true;
      for (auto& [k, v] : *dictionary()) {
        s += first ? "" : "; ";
        s += k + " = " + v.description();
        first = false;
      }
      return s + "}";
    }
    case Kind::Object: return object()->description();
  }
  return {};
}

const std::string* BVDictionaryString(const BVDictionary& d, std::string_view key) {
  auto it = d.find(key);
  return it == d.end() ? nullptr : it->second.string();
}
