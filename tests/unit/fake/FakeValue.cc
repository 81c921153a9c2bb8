#include <iomanip>
#include <ostream>

#include "FakePlatform.h"

namespace fake {

namespace {

Value integerValue(Kind kind, long long integer) {
  Value value;
  value.kind = kind;
  value.integer = integer;
  return value;
}

Value realValue(Kind kind, double real) {
  Value value;
  value.kind = kind;
  value.real = real;
  return value;
}

}  // namespace

Value Byte(char value) {
  return integerValue(Kind::Byte, static_cast<unsigned char>(value));
}
Value Int16(short value) {
  return integerValue(Kind::Int16, value);
}
Value Int32(int value) {
  return integerValue(Kind::Int32, value);
}
Value Int64(long long value) {
  return integerValue(Kind::Int64, value);
}
Value Float(float value) {
  return realValue(Kind::Float, value);
}
Value Double(double value) {
  return realValue(Kind::Double, value);
}
Value Bool(bool value) {
  return integerValue(Kind::Bool, value ? 1 : 0);
}
Value Count(int value) {
  return integerValue(Kind::Count, value);
}

Value String(const std::string &text) {
  Value value;
  value.kind = Kind::String;
  value.text = text;
  return value;
}

Value NullString() {
  Value value;
  value.kind = Kind::NullString;
  return value;
}

void AppendBytes(Values &values, const std::vector<unsigned char> &bytes) {
  values.push_back(Count(static_cast<int>(bytes.size())));
  for (unsigned char byte : bytes) {
    values.push_back(Byte(static_cast<char>(byte)));
  }
}

bool operator==(const Value &left, const Value &right) {
  return left.kind == right.kind && left.integer == right.integer && left.real == right.real &&
         left.text == right.text;
}

bool operator!=(const Value &left, const Value &right) {
  return !(left == right);
}

const char *KindName(Kind kind) {
  switch (kind) {
    case Kind::Byte:
      return "Byte";
    case Kind::Int16:
      return "Int16";
    case Kind::Int32:
      return "Int32";
    case Kind::Int64:
      return "Int64";
    case Kind::Float:
      return "Float";
    case Kind::Double:
      return "Double";
    case Kind::String:
      return "String";
    case Kind::NullString:
      return "NullString";
    case Kind::Bool:
      return "Bool";
    case Kind::Count:
      return "Count";
  }
  return "?";
}

std::ostream &operator<<(std::ostream &out, const Value &value) {
  out << KindName(value.kind) << '(';
  switch (value.kind) {
    case Kind::Byte: {
      const std::ios::fmtflags flags = out.flags();
      const char fill = out.fill();
      out << "0x" << std::hex << std::setw(2) << std::setfill('0') << value.integer;
      out.flags(flags);
      out.fill(fill);
      break;
    }
    case Kind::Float:
    case Kind::Double:
      out << value.real;
      break;
    case Kind::String:
      out << std::quoted(value.text);
      break;
    case Kind::NullString:
      break;
    case Kind::Bool:
      out << (value.integer != 0 ? "true" : "false");
      break;
    default:
      out << value.integer;
      break;
  }
  return out << ')';
}

}  // namespace fake
