#include "item/plugin.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace {

constexpr char kLibrary[] = "libmirt_linux_plugin.so";

// "/opt/mirt/bin/mirt-monitor" -> "/opt/mirt/lib/libmirt_linux_plugin.so" if such a file is there;
// else the bare name, which dlopen() looks for along its own path. The build tree and an install
// prefix have the same shape.
std::string default_library() {
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self);
  if (length <= 0 || length == static_cast<ssize_t>(sizeof self)) return kLibrary;
  std::string path(self, static_cast<size_t>(length));
  path.erase(path.rfind('/'));                                             // the program
  path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));  // its folder
  path += std::string("/lib/") + kLibrary;
  return access(path.c_str(), R_OK) == 0 ? path : kLibrary;
}

}  // namespace

double Item::call(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) const {
  using FloatItem = float (*)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*);
  using IntItem = int (*)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*);
  if (row_->returns == Returns::kInt) {
    return reinterpret_cast<IntItem>(symbol_)(argc, argv, context, result);
  }
  return static_cast<double>(reinterpret_cast<FloatItem>(symbol_)(argc, argv, context, result));
}

std::optional<Plugin> Plugin::load(const std::string& path, std::string& error) {
  std::string file = path.empty() ? default_library() : path;
  // A name without a slash would be searched for along the loader's path, not here.
  if (!path.empty() && path.find('/') == std::string::npos) file = "./" + path;
  void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    error = std::string("cannot load the plug-in: ") + dlerror();
    return std::nullopt;
  }
  return Plugin(handle, std::move(file));
}

std::optional<Item> Plugin::item(const ItemRow& row) const {
  void* const found = symbol(row.name);
  if (!found) return std::nullopt;
  return Item(found, row);
}

void* Plugin::symbol(const char* name) const {
  return dlsym(handle_, name);
}
