// Numbers with a unit, as people write them: "10m", "2 GiB", "80 %".
#ifndef MONITOR_QUANTITY_H
#define MONITOR_QUANTITY_H

#include <optional>
#include <string_view>
#include <vector>

// A unit and how many of the kind's own units it is.
struct UnitRow {
  std::string_view name;
  double factor;
};

// A kind of quantity. A number without a unit is in the kind's own one.
struct QuantityKind {
  const char* own;   // the own unit, for messages: "seconds"
  const char* what;  // all that can be written, for messages
  std::vector<UnitRow> units;
};

const QuantityKind& duration_in_seconds();  // ms, s, m, h, d
const QuantityKind& size_in_mib();          // KiB, MiB, GiB, TiB
const QuantityKind& percentage();           // %

// "1.5 h" -> 5400: a decimal number, and behind it, with or without blanks, one of the units, which
// are case-sensitive. Nothing if the text is anything else, a number alone included.
std::optional<double> read_quantity(std::string_view text, const QuantityKind& kind);

#endif
