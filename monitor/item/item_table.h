// The monitor's table of all inspection items: parameters, results, duration.
#ifndef MONITOR_ITEM_TABLE_H
#define MONITOR_ITEM_TABLE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

enum class Returns { kFloat, kInt };

// How long the item sleeps inside a call to measure.
enum class Interval { kNone, kHalfSecond, kPeriodParameter };

enum class Context { kNeeded, kUnused };

enum class Reports { kValue, kValueAndPid, kValueAndThread, kValueAndFlowId };

// What an item reads, so that the monitor can check whether it was readable.
enum class Subject {
  kMachine,
  kProcess,
  kExistence,
  kHungThreads,
  kHeartbeat,
  kFileSystem,
  kAction  // measures nothing: 0 means done
};

// How the item finds processes by its first parameter.
enum class Match { kNone, kExact, kPrefix, kWildcard };

struct Source {
  Subject subject;
  Match match;
  const char* file;  // of the machine, or below /proc/<pid>; empty if there is no single file
};

struct ParamRow {
  enum class Name { kFree, kFixed };
  enum class Presence { kRequired, kOptional };
  // What the item expects as a value.
  enum class Value {
    kAny,
    kExact,    // a command line
    kPrefix,   // its beginning
    kPattern,  // for command lines
    kShortName,
    kModule,
    kDirectory,
    kSeconds,
    kCommand,
    kKeyWords,
    kThread,
  };

  const char* name;  // the usual name, if any name is allowed
  Name naming;
  Presence presence;
  Value value;
  const char* meaning;
};

// The parameters of an item, as rows of constant data.
struct ParamList {
  enum class Lookup { kByPosition, kByName };
  enum class Further { kRefused, kAccepted };  // parameters beyond the listed ones

  const ParamRow* rows;
  size_t count;
  Lookup lookup;
  Further further;

  const ParamRow* begin() const { return rows; }
  const ParamRow* end() const { return rows + count; }
};

struct ItemRow {
  const char* name;  // the exported symbol
  Returns returns;
  const char* unit;  // default label of the value; empty if the value is a flag or a status
  const ParamList* params;
  Reports reports;
  Context context;
  Interval interval;
  Source source;
  const char* meaning;
};

// All items, in the order of "mirt-monitor items".
const std::vector<ItemRow>& all_items();

// The row with that name, or null. Names are case-sensitive.
const ItemRow* find_item(std::string_view name);

// The message for a name that no row has.
std::string unknown_item_text(const std::string& name);

#endif
