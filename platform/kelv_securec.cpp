#include "kelv_securec.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

int memset_s(void* destination, size_t size, int byte, size_t count) {
  if (destination == nullptr) return EINVAL;
  memset(destination, byte, std::min(count, size));
  return count > size ? ERANGE : 0;
}

int memcpy_s(void* destination, size_t size, const void* source, size_t count) {
  if (destination == nullptr || source == nullptr) return EINVAL;
  memcpy(destination, source, std::min(count, size));
  return count > size ? ERANGE : 0;
}

namespace {

// Text in a bounded buffer, truncated to fit.
class BoundedText {
 public:
  BoundedText(char* buffer, size_t room) : begin_(buffer), at_(buffer), end_(buffer + room) {}

  void append(char c) {
    if (at_ == end_) {
      cut_ = true;
    } else {
      *at_++ = c;
    }
  }

  void append(const char* text) {
    for (; *text != '\0'; ++text) append(*text);  // NOLINT(clang-analyzer-core.*): see va_arg
  }

  template <typename Number>
  void append_number(Number number) {
    char digits[16];
    *std::to_chars(digits, digits + sizeof digits - 1, number).ptr = '\0';
    append(digits);
  }

  // Returns its length, or -1 when it was truncated.
  int terminate() {
    *at_ = '\0';
    return cut_ ? -1 : static_cast<int>(at_ - begin_);
  }

 private:
  char* begin_;
  char* at_;
  char* end_;  // the last position for the terminating NUL
  bool cut_ = false;
};

// Fast path for formats that contain only text and plain %s, %d and %u, such as paths. It calls no
// function: after a system call the branch predictor is cold, and the calls would cost more than
// the formatting.
std::optional<int> print_plain(BoundedText text, const char* format, va_list arguments) {
  for (; *format != '\0'; ++format) {
    if (*format != '%') {
      text.append(*format);
    } else if (*++format == 'd') {
      text.append_number(va_arg(arguments, int));
    } else if (*format == 'u') {
      text.append_number(va_arg(arguments, unsigned int));
    } else if (*format == 's') {
      const char* word = va_arg(arguments, const char*);
      text.append(word != nullptr ? word : "(null)");
    } else {
      return std::nullopt;
    }
  }
  return text.terminate();
}

int print(char* destination, size_t size, size_t count, const char* format, va_list arguments) {
  if (destination == nullptr || size == 0 || format == nullptr) return -1;
  const size_t room = std::min(count, size - 1);
  va_list plain_arguments;
  va_copy(plain_arguments, arguments);
  const std::optional<int> printed =
      print_plain(BoundedText(destination, room), format, plain_arguments);
  va_end(plain_arguments);
  if (printed) return *printed;
  const int length = vsnprintf(destination, room + 1, format, arguments);
  return length >= 0 && static_cast<size_t>(length) <= room ? length : -1;
}

}  // namespace

int vsnprintf_s(char* destination, size_t size, size_t count, const char* format,
                va_list arguments) {
  return print(destination, size, count, format, arguments);
}

int snprintf_s(char* destination, size_t size, size_t count, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = print(destination, size, count, format, arguments);
  va_end(arguments);
  return length;
}

namespace {

// isspace() of the C locale, without a function call.
bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) {
  return isdigit(static_cast<unsigned char>(c)) != 0;
}

const char* skip_blanks(const char* text) {
  while (is_blank(*text)) ++text;
  return text;
}

// One "%..." of a format.
struct Conversion {
  bool assigns = true;
  size_t width = 0;  // 0: no width
  char length[3] = "";
  char kind = '\0';
};

// Reads the conversion at the '%' that format points to and moves format past it.
Conversion read_conversion(const char*& format) {
  Conversion conversion;
  ++format;
  if (*format == '*') {
    conversion.assigns = false;
    ++format;
  }
  while (is_digit(*format)) {
    conversion.width = conversion.width * 10 + static_cast<size_t>(*format++ - '0');
  }
  for (size_t i = 0; i < 2 && *format != '\0' && strchr("hlzj", *format) != nullptr; ++i) {
    conversion.length[i] = *format++;
  }
  conversion.kind = *format;
  if (*format != '\0') ++format;
  return conversion;
}

// Stores a number in the size that the conversion's length modifier selects.
void store_number(const Conversion& conversion, uintmax_t value, void* target) {
  size_t bytes = sizeof(int);
  if (strcmp(conversion.length, "hh") == 0)
    bytes = sizeof(char);
  else if (conversion.length[0] == 'h')
    bytes = sizeof(short);
  else if (conversion.length[0] != '\0')
    bytes = sizeof(long);         // l ll z j: all 64 bits here
  memcpy(target, &value, bytes);  // little-endian: the low bytes come first
}

int base_of(char kind) {
  switch (kind) {
    case 'x':
    case 'X':
      return 16;
    case 'o':
      return 8;
    case 'i':
      return 0;  // the number's prefix decides
    default:
      return 10;
  }
}

// Reads the number at text. Returns its end, or null if there is no number.
const char* scan_number(char kind, const char* text, uintmax_t& value) {
  char* end = nullptr;
  if (kind == 'd' || kind == 'i') {
    value = static_cast<uintmax_t>(strtoimax(text, &end, base_of(kind)));
  } else {
    value = strtoumax(text, &end, base_of(kind));
  }
  return end != text ? end : nullptr;
}

// The same, limited to the conversion's width if it has one. No number needs more than 127
// characters.
const char* scan_number(const Conversion& conversion, const char* text, uintmax_t& value) {
  if (conversion.width == 0) return scan_number(conversion.kind, text, value);
  char digits[128] = "";
  memcpy(digits, text, strnlen(text, std::min(conversion.width, sizeof digits - 1)));
  const char* const end = scan_number(conversion.kind, digits, value);
  return end != nullptr ? text + (end - digits) : nullptr;
}

// Reads text and format in parallel.
class Scanner {
 public:
  explicit Scanner(const char* text) : text_(text) {}

  int run(const char* format, va_list& arguments) {
    while (*format != '\0') {
      if (is_blank(*format)) {
        text_ = skip_blanks(text_);
        format = skip_blanks(format);
      } else if (*format != '%' || format[1] == '%') {
        if (*format == '%') {
          text_ = skip_blanks(text_);
          ++format;
        }
        if (*text_ != *format) return result();
        ++text_;
        ++format;
      } else if (!convert(read_conversion(format), arguments)) {
        return result();
      }
    }
    return assigned_;
  }

 private:
  int result() const { return assigned_ == 0 && !converted_ && *text_ == '\0' ? -1 : assigned_; }

  bool convert(const Conversion& conversion, va_list& arguments) {
    if (conversion.kind != 'c') text_ = skip_blanks(text_);
    if (*text_ == '\0') return false;
    void* target = conversion.assigns ? va_arg(arguments, void*) : nullptr;
    const bool done = conversion.kind == 's' || conversion.kind == 'c'
                          ? convert_text(conversion, target, arguments)
                          : convert_number(conversion, target);
    if (done) {
      converted_ = true;
      assigned_ += conversion.assigns ? 1 : 0;
    }
    return done;
  }

  bool convert_text(const Conversion& conversion, void* target, va_list& arguments) {
    const size_t size = target != nullptr ? va_arg(arguments, unsigned int) : 0;
    size_t length = conversion.kind == 'c' ? std::max<size_t>(conversion.width, 1) : 0;
    if (conversion.kind == 's') {
      while (text_[length] != '\0' && !is_blank(text_[length]) &&
             (conversion.width == 0 || length < conversion.width)) {
        ++length;
      }
    } else if (strnlen(text_, length) < length || (target != nullptr && size < length)) {
      return false;
    }
    if (target != nullptr) store_text(conversion, static_cast<char*>(target), size, length);
    text_ += length;
    return true;
  }

  void store_text(const Conversion& conversion, char* target, size_t size, size_t length) {
    if (conversion.kind == 'c') {
      memcpy(target, text_, length);
    } else if (size > 0) {
      const size_t kept = std::min(length, size - 1);
      memcpy(target, text_, kept);
      target[kept] = '\0';
    }
  }

  bool convert_number(const Conversion& conversion, void* target) {
    if (conversion.kind == '\0' || strchr("diuxXo", conversion.kind) == nullptr) return false;
    uintmax_t value = 0;
    const char* behind = scan_number(conversion, text_, value);
    if (behind == nullptr) return false;
    if (target != nullptr) store_number(conversion, value, target);
    text_ = behind;
    return true;
  }

  const char* text_;
  int assigned_ = 0;
  bool converted_ = false;
};

}  // namespace

int sscanf_s(const char* text, const char* format, ...) {
  if (text == nullptr || format == nullptr) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int assigned = Scanner(text).run(format, arguments);
  va_end(arguments);
  return assigned;
}
