#include "text/json_text.h"

#include <charconv>
#include <cmath>

Json json_number(double value) {
  if (!std::isfinite(value)) return nullptr;
  char text[64];
  const auto written = std::to_chars(text, text + sizeof text, static_cast<float>(value));
  double decimal = value;
  std::from_chars(text, written.ptr, decimal);
  return decimal;
}
