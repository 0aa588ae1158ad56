#include <cstdio>

#include "command/commands.h"
#include "item/item_table.h"
#include "text/complaint.h"

namespace {

const char* interval_text(Interval interval) {
  switch (interval) {
    case Interval::kHalfSecond:
      return "takes 0.5 s";
    case Interval::kPeriodParameter:
      return "takes the seconds in Period";
    default:
      return "";
  }
}

const char* reports_text(Reports reports) {
  switch (reports) {
    case Reports::kValueAndPid:
      return "reports a pid";
    case Reports::kValueAndThread:
      return "reports a thread id";
    case Reports::kValueAndFlowId:
      return "reports a flow id";
    default:
      return "";
  }
}

void print_notes(const ItemRow& item) {
  const char* const notes[] = {
      reports_text(item.reports), interval_text(item.interval),
      item.context == Context::kNeeded ? "needs a context" : "needs no context"};
  std::printf("    ");
  const char* separator = "";
  for (const char* const note : notes) {
    if (*note == '\0') continue;
    std::printf("%s%s", separator, note);
    separator = ", ";
  }
  std::printf("\n");
}

void print_params(const ParamList& params) {
  for (const ParamRow& row : params) {
    std::printf("    %s%s: %s\n", row.name,
                row.presence == ParamRow::Presence::kOptional ? " (optional)"
                : row.naming == ParamRow::Name::kFree         ? " (or any other name)"
                                                              : "",
                row.meaning);
  }
  if (params.further == ParamList::Further::kAccepted) std::printf("    and any others\n");
}

}  // namespace

int command_items() {
  for (const ItemRow& item : all_items()) {
    const char* const unit = *item.unit ? item.unit : "-";
    std::printf("%-36s [%s]  %s\n", item.name, unit, item.meaning);
    print_params(*item.params);
    print_notes(item);
  }
  return kExitOk;
}
