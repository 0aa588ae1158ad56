#include "item/plugin.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>

#include "mirt_host.h"

namespace {

// With the version of its interface: the name without one is there for compilers only.
constexpr char kLibrary[] = "libmirt_linux_plugin.so." MIRT_INTERFACE_VERSION;

// The plug-in is in the same directory as the host library, which this program links. Otherwise
// only the file name, which dlopen() searches for.
std::string default_library() {
  Dl_info host{};
  if (dladdr(reinterpret_cast<void*>(mirt_host_set_request_handler), &host) == 0) return kLibrary;
  const auto path = std::filesystem::path(host.dli_fname).parent_path() / kLibrary;
  return access(path.c_str(), R_OK) == 0 ? path.lexically_normal().string() : kLibrary;
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
  // The loader searches its own path for a name without a slash, not the current directory.
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
