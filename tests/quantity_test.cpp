// Numbers with units, as in the configuration.
#include "text/quantity.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Quantity, IsANumberAndOneOfTheUnitsOfItsKind) {
  const struct {
    const char* text;
    const QuantityKind& kind;
    std::optional<double> value;
  } rows[] = {{"250ms", duration_in_seconds(), 0.25},
              {"5 s", duration_in_seconds(), 5.0},
              {"1.5  m", duration_in_seconds(), 90.0},
              {"2h", duration_in_seconds(), 7200.0},
              {"1d", duration_in_seconds(), 86400.0},
              {"-1 s", duration_in_seconds(), -1.0},  // valid here; another function checks ranges
              {"512 KiB", size_in_mib(), 0.5},
              {"3MiB", size_in_mib(), 3.0},
              {"2 GiB", size_in_mib(), 2048.0},
              {"0.5 TiB", size_in_mib(), 524288.0},
              {"80 %", percentage(), 80.0},
              {"", duration_in_seconds(), std::nullopt},
              {"5", duration_in_seconds(), std::nullopt},
              {"s", duration_in_seconds(), std::nullopt},
              {"5 S", duration_in_seconds(), std::nullopt},
              {" 5 s", duration_in_seconds(), std::nullopt},
              {"5 s ", duration_in_seconds(), std::nullopt},
              {"1h30m", duration_in_seconds(), std::nullopt},
              {"1e3 s", duration_in_seconds(), std::nullopt},
              {"0x10 s", duration_in_seconds(), std::nullopt},
              {"2 GB", size_in_mib(), std::nullopt},
              {"2 s", size_in_mib(), std::nullopt},
              {"80 % core", percentage(), std::nullopt}};
  for (const auto& row : rows) EXPECT_EQ(read_quantity(row.text, row.kind), row.value) << row.text;
}

}  // namespace
