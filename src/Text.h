#ifndef OXA_SRC_TEXT_H_
#define OXA_SRC_TEXT_H_

#include <cstddef>
#include <cstdlib>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Oxa::Capi {

// An owned, NUL-terminated text in one malloc block. It can take over a string that the
// platform's parcel reads hand out, so an address or a name read from a parcel reaches the
// application without another copy: a std::string would need a block of its own past 15
// characters, and every device address is 17.
class Text {
 public:
  Text() = default;
  // Copies; like std::string's, they stand in wherever a text is expected.
  // A null `text` throws as a std::string built from null does.
  Text(const char *text);  // NOLINT(google-explicit-constructor)
  // NOLINTNEXTLINE(google-explicit-constructor)
  Text(const std::string &text) : Text(std::string_view(text)) {}
  Text(std::string_view text);  // NOLINT(google-explicit-constructor)
  Text(const Text &other) : Text(std::string_view(other)) {}
  Text(Text &&other) noexcept : text_(other.text_) { other.text_ = nullptr; }
  Text &operator=(const Text &other) { return *this = Text(other); }
  Text &operator=(Text &&other) noexcept;
  ~Text() { std::free(text_); }

  // Takes over `owned`, a string from malloc. A null one throws the std::logic_error that a
  // std::string built from null throws, which is how a null string in a parcel is rejected.
  static Text adopt(char *owned);

  const char *c_str() const { return text_ != nullptr ? text_ : ""; }
  std::size_t size() const { return std::string_view(*this).size(); }
  bool empty() const { return text_ == nullptr || *text_ == '\0'; }
  std::string str() const { return c_str(); }
  operator std::string_view() const { return c_str(); }  // NOLINT(google-explicit-constructor)

  friend bool operator==(const Text &left, const Text &right) {
    return std::string_view(left) == std::string_view(right);
  }
  template <class Other,
            std::enable_if_t<std::is_convertible_v<const Other &, std::string_view>, int> = 0>
  friend bool operator==(const Text &left, const Other &right) {
    return std::string_view(left) == std::string_view(right);
  }
  template <class Other,
            std::enable_if_t<std::is_convertible_v<const Other &, std::string_view>, int> = 0>
  friend bool operator==(const Other &left, const Text &right) {
    return right == left;
  }
  template <class Other>
  friend bool operator!=(const Text &left, const Other &right) {
    return !(left == right);
  }
  friend std::ostream &operator<<(std::ostream &out, const Text &text) {
    return out << text.c_str();
  }

 private:
  char *text_ = nullptr;
};

}  // namespace Oxa::Capi

#endif  // OXA_SRC_TEXT_H_
