#include "JsonFields.h"

#include <limits>
#include <stdexcept>

#include "Limits.h"

namespace oxa_sim {

namespace {

[[noreturn]] void badField(const char *key, const char *what) {
  throw std::runtime_error(std::string("field \"") + key + "\" " + what);
}

const Json *fieldOf(const Json &object, const char *key) {
  const auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

int intOf(const Json &value, const char *key) {
  if (!value.is_number_integer()) {
    badField(key, "must be an integer");
  }
  const auto number = value.get<long long>();
  if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
    badField(key, "is out of the range of a 32-bit integer");
  }
  return static_cast<int>(number);
}

std::string stringOf(const Json &value, const char *key) {
  if (!value.is_string()) {
    badField(key, "must be a string");
  }
  return value.get<std::string>();
}

void checkDataSize(size_t bytes, const char *key) {
  if (bytes > kMaxDataBytes) {
    badField(key, ("holds more than " + std::to_string(kMaxDataBytes) + " bytes").c_str());
  }
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  throw std::runtime_error(std::string("invalid hex digit '") + c + "'");
}

Bytes fromHex(const std::string &text) {
  if (text.size() % 2 != 0) {
    throw std::runtime_error("hex data \"" + text + "\" has an odd number of digits");
  }
  checkDataSize(text.size() / 2, "hex");
  Bytes bytes(text.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<unsigned char>(hexDigit(text[2 * i]) * 16 + hexDigit(text[2 * i + 1]));
  }
  return bytes;
}

}  // namespace

std::string requireString(const Json &object, const char *key) {
  const Json *value = fieldOf(object, key);
  if (value == nullptr) {
    badField(key, "is missing");
  }
  return stringOf(*value, key);
}

int requireInt(const Json &object, const char *key) {
  const Json *value = fieldOf(object, key);
  if (value == nullptr) {
    badField(key, "is missing");
  }
  return intOf(*value, key);
}

int optionalInt(const Json &object, const char *key, int fallback) {
  const Json *value = fieldOf(object, key);
  return value == nullptr ? fallback : intOf(*value, key);
}

bool optionalBool(const Json &object, const char *key, bool fallback) {
  const Json *value = fieldOf(object, key);
  if (value == nullptr) {
    return fallback;
  }
  if (!value->is_boolean()) {
    badField(key, "must be true or false");
  }
  return value->get<bool>();
}

std::string optionalString(const Json &object, const char *key, const std::string &fallback) {
  const Json *value = fieldOf(object, key);
  return value == nullptr ? fallback : stringOf(*value, key);
}

Bytes dataOf(const Json &object) {
  if (!object.is_object()) {
    throw std::runtime_error("data must be an object with \"text\" or \"hex\"");
  }
  if (const Json *text = fieldOf(object, "text")) {
    const std::string value = stringOf(*text, "text");
    checkDataSize(value.size(), "text");
    return {value.begin(), value.end()};
  }
  if (const Json *hex = fieldOf(object, "hex")) {
    return fromHex(stringOf(*hex, "hex"));
  }
  return {};
}

}  // namespace oxa_sim
