#ifndef OXA_TOOLS_OXACTL_BYTES_H_
#define OXA_TOOLS_OXACTL_BYTES_H_

#include <optional>
#include <string>
#include <vector>

namespace oxactl {

using Bytes = std::vector<unsigned char>;

// Two lower-case hexadecimal digits per byte, nothing between them ("" for no bytes).
std::string toHex(const Bytes &bytes);

// The bytes of an even number of hexadecimal digits; nullopt for anything else.
std::optional<Bytes> fromHex(const std::string &digits);

// Every byte of the file at `path`, or of standard input when `path` is "-". Throws
// std::runtime_error with the reason when it cannot be read.
Bytes readFile(const std::string &path);

// Copies `length` bytes that the library allocated, then frees them.
Bytes takeBuffer(unsigned char *buffer, int length);

// Copies a text that the library allocated ("" for none), then frees it.
std::string takeString(char *text);

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_BYTES_H_
