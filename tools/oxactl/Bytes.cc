#include "Bytes.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace oxactl {

namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr int kNibbleBits = 4;
constexpr unsigned kNibbleMask = 0xf;

int nibble(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  if (digit >= 'a' && digit <= 'f') {
    return digit - 'a' + 10;
  }
  if (digit >= 'A' && digit <= 'F') {
    return digit - 'A' + 10;
  }
  return -1;
}

Bytes readAll(std::istream &stream) {
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace

std::string toHex(const Bytes &bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const unsigned char byte : bytes) {
    text.push_back(kDigits[byte >> kNibbleBits]);
    text.push_back(kDigits[byte & kNibbleMask]);
  }
  return text;
}

std::optional<Bytes> fromHex(const std::string &digits) {
  if (digits.size() % 2 != 0) {
    return std::nullopt;
  }
  Bytes bytes;
  bytes.reserve(digits.size() / 2);
  for (size_t i = 0; i < digits.size(); i += 2) {
    const int high = nibble(digits[i]);
    const int low = nibble(digits[i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<unsigned char>((high << kNibbleBits) | low));
  }
  return bytes;
}

Bytes readFile(const std::string &path) {
  if (path == "-") {
    return readAll(std::cin);
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
  }
  return readAll(file);
}

Bytes takeBuffer(unsigned char *buffer, int length) {
  const std::unique_ptr<unsigned char, decltype(&std::free)> owned(buffer, &std::free);
  if (buffer == nullptr || length <= 0) {
    return {};
  }
  return {buffer, buffer + length};
}

std::string takeString(char *text) {
  const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
  return text != nullptr ? text : "";
}

}  // namespace oxactl
