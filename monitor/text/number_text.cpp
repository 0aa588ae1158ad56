#include "text/number_text.h"

#include <cstdio>

std::string number_text(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", number);
  return text;
}
