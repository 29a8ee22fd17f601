// The outcome of a step: fine, or the sentence that tells the user what is wrong.
#pragma once

#include <string>
#include <utility>

namespace zeva_tool {

class [[nodiscard]] Status {
 public:
  Status() = default;
  explicit Status(std::string sentence) : text(std::move(sentence)) {}
  bool ok() const { return text.empty(); }
  const std::string& sentence() const { return text; }

 private:
  std::string text;
};

}  // namespace zeva_tool
