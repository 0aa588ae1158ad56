#include "text/quantity.h"

#include <algorithm>
#include <charconv>

const QuantityKind& duration_in_seconds() {
  static const QuantityKind kind{"seconds",
                                 "a number of seconds, or text with ms, s, m, h or d",
                                 {{"ms", 0.001}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}}};
  return kind;
}

const QuantityKind& size_in_mib() {
  static const QuantityKind kind{
      "MiB",
      "a number of MiB, or text with KiB, MiB, GiB or TiB",
      {{"KiB", 1.0 / 1024}, {"MiB", 1}, {"GiB", 1024}, {"TiB", 1024.0 * 1024}}};
  return kind;
}

const QuantityKind& percentage() {
  static const QuantityKind kind{"percent", "a number of percent, or text with %", {{"%", 1}}};
  return kind;
}

std::optional<double> read_quantity(std::string_view text, const QuantityKind& kind) {
  double number = 0.0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (error != std::errc()) return std::nullopt;
  std::string_view unit(stop, static_cast<size_t>(end - stop));
  unit.remove_prefix(std::min(unit.find_first_not_of(' '), unit.size()));
  for (const UnitRow& row : kind.units) {
    if (unit == row.name) return number * row.factor;
  }
  return std::nullopt;
}
