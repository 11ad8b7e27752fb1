// Bytes of names and answers as UTF-8 text, without loss.
#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <cstddef>

#include "run_json.hpp"
#include "text.hpp"

namespace report {
namespace {

constexpr std::size_t code_length = 4;  // \xNN

// Whether the text begins with such a code.
bool begins_with_code(std::string_view text) {
  const auto is_hex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
  return text.size() >= code_length && text[0] == '\\' && text[1] == 'x' && is_hex(text[2]) &&
         is_hex(text[3]);
}

std::string code_of(char byte) {
  return fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
}

}  // namespace

std::string text_of_bytes(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const std::size_t length = util::utf8_length(bytes);
    const std::string_view character = bytes.substr(0, length == 0 ? 1 : length);
    // What stands in the bytes as a code already would come back as a byte of its own.
    if (length == 0 || begins_with_code(bytes)) {
      text += code_of(character[0]);
    } else {
      text += character;
    }
    bytes.remove_prefix(character.size());
  }
  return text;
}

// Byte by byte: no part of a longer character of UTF-8 is a backslash, so none is taken for a code.
std::string bytes_of_text(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    if (!begins_with_code(text)) {
      bytes += text[0];
      text.remove_prefix(1);
      continue;
    }
    unsigned value = 0;
    constexpr int hexadecimal = 16;
    std::from_chars(text.data() + 2, text.data() + code_length, value, hexadecimal);
    bytes += static_cast<char>(value);
    text.remove_prefix(code_length);
  }
  return bytes;
}

}  // namespace report
