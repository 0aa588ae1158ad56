#include "config/config_include.h"

#include <glob.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "text/wording.h"

namespace {

constexpr char kForm[] = "an array of file names and patterns";

// Of this thread's glob(), whose callback gets no user data. A pointer, because a thread without
// memory to note the destructor of its variable ends the program.
thread_local std::string* unreadable_folder = nullptr;

// Called from C, so it must not throw.
int note_unreadable(const char* folder, int error) noexcept try {
  if (error == ENOENT || error == ENOTDIR) return 0;
  *unreadable_folder = std::string(folder) + ": " + std::strerror(error);
  return 1;
} catch (const std::exception&) {
  *unreadable_folder = "out of memory";  // short: needs no allocation
  return 1;
}

// The files that match the pattern. If a folder cannot be read, `error` has the reason.
std::vector<std::string> matching_files(const std::string& pattern, std::string& error) {
  std::string unreadable;
  unreadable_folder = &unreadable;
  glob_t found{};
  const int result = glob(pattern.c_str(), 0, note_unreadable, &found);
  std::vector<std::string> files(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  globfree(&found);
  if (result == GLOB_NOSPACE) error = "out of memory";
  if (result == GLOB_ABORTED) error = unreadable;
  return files;
}

bool is_pattern(const std::string& name) {
  return name.find_first_of("*?[") != std::string::npos;
}

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// Escapes the folder's name, so that its characters are not part of the pattern.
std::string escaped(const std::string& folder) {
  std::string text;
  for (const char letter : folder) {
    if (std::strchr("*?[\\", letter) != nullptr) text += '\\';
    text += letter;
  }
  return text;
}

}  // namespace

std::vector<Included> read_includes(TomlFields& fields, const std::string& path) {
  std::vector<Included> files;
  const unsigned line = fields.line("include");
  for (const std::string& name : fields.texts("include", kForm)) {
    const std::string folder = name.rfind('/', 0) == 0 ? "" : folder_of(path);
    if (name.empty()) {
      fields.mistake(line, std::string("include has an empty name, expected ") + kForm);
    } else if (!is_pattern(name)) {
      files.push_back({folder + name, line});
    } else {
      std::string error;
      for (std::string& file : matching_files(escaped(folder) + name, error)) {
        files.push_back({std::move(file), line});
      }
      if (!error.empty()) {
        fields.mistake(line, "include " + in_quotes(name) + " cannot be searched: " + error +
                                 ", expected readable folders");
      }
    }
  }
  return files;
}
