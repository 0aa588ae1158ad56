// The loaded plug-in and its items.
#ifndef MONITOR_PLUGIN_H
#define MONITOR_PLUGIN_H

#include <optional>
#include <string>

#include "item/item_table.h"
#include "mirt_interface.h"

// One item of the loaded library.
class Item {
 public:
  Item(void* symbol, const ItemRow& row) : symbol_(symbol), row_(&row) {}

  // Runs the item on this thread; this can take minutes, or never return.
  double call(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) const;

  const ItemRow& row() const { return *row_; }

 private:
  void* symbol_;
  const ItemRow* row_;
};

// The library. It is never unloaded, because a thread may be inside one of its items at any time.
class Plugin {
 public:
  // Loads `path`. If it is empty, loads the plug-in in the directory of the host library, or else
  // the one that the loader finds. On failure returns nothing, with the reason in `error`.
  static std::optional<Plugin> load(const std::string& path, std::string& error);

  // The item, or nothing if the library does not export it.
  std::optional<Item> item(const ItemRow& row) const;

  // A plain function of the library, by its declared type; null if the library does not export it.
  template <typename Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(symbol(name));
  }

  // The path of the file, for messages.
  const std::string& path() const { return path_; }

 private:
  Plugin(void* handle, std::string path) : handle_(handle), path_(std::move(path)) {}

  void* symbol(const char* name) const;

  void* handle_;
  std::string path_;
};

#endif
