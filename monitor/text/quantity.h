// Reads numbers with a unit: "10m", "2 GiB", "80 %".
#ifndef MONITOR_QUANTITY_H
#define MONITOR_QUANTITY_H

#include <optional>
#include <string_view>
#include <vector>

// A unit, and its size in the kind's base unit.
struct UnitRow {
  std::string_view name;
  double factor;
};

// A kind of quantity. A number without a unit is in the base unit.
struct QuantityKind {
  const char* own;   // the base unit, for messages: "seconds"
  const char* what;  // the accepted forms, for messages
  std::vector<UnitRow> units;
};

const QuantityKind& duration_in_seconds();  // ms, s, m, h, d
const QuantityKind& size_in_mib();          // KiB, MiB, GiB, TiB
const QuantityKind& percentage();           // %

// "1.5 h" -> 5400: a decimal number, optional spaces, and one of the units, which are
// case-sensitive. Nothing for any other text, also for a number without a unit.
std::optional<double> read_quantity(std::string_view text, const QuantityKind& kind);

#endif
