#include "write_log.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace zeva_test {
namespace {

void put(std::ostream& out, int64_t value) {
  out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

void put(std::ostream& out, const std::string& text) {
  put(out, static_cast<int64_t>(text.size()));
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

int64_t get(std::istream& in) {
  int64_t value = 0;
  if (!in.read(reinterpret_cast<char*>(&value), sizeof value)) {
    throw std::runtime_error("the log is cut off");
  }
  return value;
}

std::string get_text(std::istream& in) {
  std::string text(static_cast<size_t>(get(in)), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  return text;
}

}  // namespace

void perform(const Operation& operation, std::string& content) {
  const auto value = static_cast<size_t>(operation.value);
  if (operation.kind == Operation::kResize) content.resize(value);
  if (operation.kind != Operation::kWrite) return;
  content.resize(std::max(content.size(), value + operation.text.size()));
  content.replace(value, operation.text.size(), operation.text);
}

size_t WriteLog::mark(const std::string& text) const {
  const auto found = std::find_if(operations.begin(), operations.end(), [&](const Operation& o) {
    return o.kind == Operation::kMark && o.text == text;
  });
  return static_cast<size_t>(found - operations.begin());
}

int32_t WriteLog::last_file(const std::string& name) const {
  const auto first = names.find(name);
  int32_t file = first != names.end() ? first->second : Operation::kNoFile;
  for (const Operation& o : operations) {
    if (o.kind == Operation::kName && o.text == name && o.file != Operation::kNoFile) file = o.file;
  }
  return file;
}

std::string WriteLog::last_content(int32_t file) const {
  if (file == Operation::kNoFile) return {};
  std::string content = before[static_cast<size_t>(file)];
  for (const Operation& o : operations) {
    if (o.file == file) perform(o, content);
  }
  return content;
}

void WriteLog::save(const std::filesystem::path& path) const {
  std::ofstream out(path, std::ios::binary);
  put(out, static_cast<int64_t>(before.size()));
  for (const std::string& content : before) put(out, content);
  put(out, static_cast<int64_t>(names.size()));
  for (const auto& [name, file] : names) put(out, name), put(out, file);
  put(out, static_cast<int64_t>(operations.size()));
  for (const Operation& o : operations) {
    put(out, o.kind), put(out, o.file), put(out, o.value), put(out, o.text);
  }
}

WriteLog WriteLog::load(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  WriteLog log;
  for (int64_t count = get(in); count > 0; --count) log.before.push_back(get_text(in));
  for (int64_t count = get(in); count > 0; --count) {
    const std::string name = get_text(in);
    log.names[name] = static_cast<int32_t>(get(in));
  }
  for (int64_t count = get(in); count > 0; --count) {
    Operation o;
    o.kind = static_cast<Operation::Kind>(get(in));
    o.file = static_cast<int32_t>(get(in));
    o.value = get(in);
    o.text = get_text(in);
    log.operations.push_back(std::move(o));
  }
  return log;
}

}  // namespace zeva_test
