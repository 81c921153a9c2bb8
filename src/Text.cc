#include "Text.h"

#include <cstring>
#include <new>
#include <utility>

namespace Oxa::Capi {

namespace {

[[noreturn]] void throwNullText() {
  // The standard library's own exception and message, as a std::string built from null gives.
  const char *volatile none = nullptr;
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.StringChecker): the null is the point
  const std::string built(none);
  std::abort();  // not reached: the line above throws
}

const char *nonNull(const char *text) {
  if (text == nullptr) {
    throwNullText();
  }
  return text;
}

}  // namespace

Text::Text(const char *text) : Text(std::string_view(nonNull(text))) {}

Text::Text(std::string_view text) : text_(static_cast<char *>(std::malloc(text.size() + 1))) {
  if (text_ == nullptr) {
    throw std::bad_alloc();
  }
  std::memcpy(text_, text.data(), text.size());
  text_[text.size()] = '\0';
}

Text &Text::operator=(Text &&other) noexcept {
  std::swap(text_, other.text_);
  return *this;
}

Text Text::adopt(char *owned) {
  if (owned == nullptr) {
    throwNullText();
  }
  Text text;
  text.text_ = owned;
  return text;
}

}  // namespace Oxa::Capi
