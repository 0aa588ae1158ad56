#include <algorithm>
#include <cctype>
#include <limits>
#include <utility>

#include "command/commands.h"
#include "command/run_instances.h"
#include "item/instance.h"
#include "item/value_check.h"
#include "text/complaint.h"

namespace {

// Returns the length of "NAME" in "NAME=VALUE", 0 if the text is only a value. A name is one word
// of letters, digits and underscores that begins with a letter. So "/usr/bin/app --mode=fast" and
// "--mode=fast" (after "--") are values, but a command line such as "A=B" must be written as
// "ProcessName=A=B".
size_t name_length(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) return 0;
  if (!std::isalpha(static_cast<unsigned char>(text[0]))) return 0;
  const bool is_word =
      std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(equals),
                  [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
  return is_word ? equals : 0;
}

Param split(const ItemRow& item, const std::string& text, size_t index) {
  const size_t length = name_length(text);
  if (length == 0) return {name_at(item, index), text};
  return {text.substr(0, length), text.substr(length + 1)};
}

bool is_mistake(const ParamMistake& found) {
  return !found.is_warning;
}

// False if the item would refuse the parameters or could not use them. Reports mistakes and
// warnings.
bool params_fit(const ItemRow& item, const std::vector<Param>& params) {
  std::vector<ParamMistake> found;
  for (const Param& param : params) {
    for (TextMistake& mistake : check_texts(param)) {
      found.push_back({std::nullopt, std::move(mistake.text)});
    }
  }
  for (const auto check : {check_list, check_values}) {
    for (ParamMistake& mistake : check(item, params)) found.push_back(std::move(mistake));
    if (std::any_of(found.begin(), found.end(), is_mistake)) break;
  }
  for (const ParamMistake& one : found) complain((one.is_warning ? "warning: " : "") + one.text);
  return std::none_of(found.begin(), found.end(), is_mistake);
}

}  // namespace

int command_once(const OnceOptions& options) {
  Instance instance;
  instance.item = find_item(options.item);
  if (!instance.item) {
    complain(unknown_item_text(options.item));
    return kExitUsage;
  }
  instance.name = instance.item->name;
  instance.unit = instance.item->unit;
  for (const std::string& text : options.params) {
    instance.params.push_back(split(*instance.item, text, instance.params.size()));
  }
  if (!params_fit(*instance.item, instance.params)) return kExitUsage;
  if (options.every_s) {
    instance.period_s = *options.every_s;
    const std::optional<std::string> often =
        check_period(*instance.item, instance.params, instance.period_s);
    if (often) complain("warning: --every " + *often);
  }
  // The user waits for this answer and can stop the program at any time.
  instance.deadline_s = std::numeric_limits<double>::infinity();

  RunRequest request;
  request.plugin = options.plugin;
  request.schedule.rounds = options.rounds;
  if (!options.rounds && !options.every_s) request.schedule.rounds = 1;
  request.json = options.json;
  request.fail_unless_done = true;
  request.hangup_ends = true;
  request.schedule.ignore_self = true;
  Plan plan;
  plan.instances.push_back(std::move(instance));
  return run_instances(plan, request);
}
