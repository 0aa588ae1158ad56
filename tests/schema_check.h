// Checks answers of the monitor against docs/api.schema.json.
#ifndef SCHEMA_CHECK_H
#define SCHEMA_CHECK_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "child.h"

// Answers, each beside the name of its definition in the schema.
class Answers {
 public:
  void add(const std::string& definition, const std::string& body) {
    lines_ += definition + " " + body + (body.back() == '\n' ? "" : "\n");
    ++count_;
  }
  void expect_valid(const std::filesystem::path& folder) const {
    write_file((folder / "answers").string(), lines_);
    const std::string command = "cd " + folder.string() +
                                " && python3 " MIRT_SOURCE_DIR
                                "/tests/validate_json.py " MIRT_SOURCE_DIR
                                "/docs/api.schema.json <answers >checked 2>&1";
    EXPECT_EQ(system(command.c_str()), 0) << read_file(folder / "checked");
    EXPECT_EQ(read_file(folder / "checked"), std::to_string(count_) + "\n");
  }

 private:
  std::string lines_;
  size_t count_ = 0;
};

#endif
