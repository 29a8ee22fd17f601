#include "index_file.h"

#include <cerrno>
#include <utility>

namespace zeva {

int IndexFile::open(const std::string& path) {
  const int error = file.open(path, NewFile::Mode::kText);
  // A buffer of the C library would keep an unknown part of the text after an error.
  if (error == 0) setvbuf(file.get(), nullptr, _IONBF, 0);
  // The sign of life by which others tell a recording that is paused from one that crashed.
  if (error == 0) (void)lock_file(file.get());
  return error;
}

PathState IndexFile::state() const {
  return is_open() && is_committed() ? path_state(file.get(), file.path()) : PathState::kSame;
}

void IndexFile::set_head(std::string text) {
  unwritten = std::move(text);
  head_bytes = unwritten.size();
  unwritten.reserve(head_bytes + kIndexLineBytes + kIndexRecordMaxBytes + 1);
  head_set = true;
}

int IndexFile::commit() {
  if (!file.is_open() || !head_set) return EINVAL;
  const int error = file.commit();
  return error != 0 ? error : write();
}

void IndexFile::append(const IndexRecord& record) {
  char text[kIndexRecordMaxBytes];
  const int bytes = format_index_record(record, text);
  unwritten.append(text, static_cast<size_t>(bytes));
  line_bytes += bytes;
}

int IndexFile::write() {
  if (is_line_full()) {
    unwritten += '\n';
    line_bytes = 0;
  }
  if (!file.is_committed()) return commit();
  if (unwritten.empty()) return 0;
  errno = 0;
  if (write_bytes(unwritten.data(), 1, unwritten.size(), file.get()) == unwritten.size()) {
    written_bytes = tell_file(file.get());
    unwritten.clear();
    head_bytes = 0;
    return 0;
  }
  const int error = errno != 0 ? errno : EIO;
  clearerr(file.get());
  seek_file(file.get(), written_bytes);
  return error;
}

int IndexFile::close() {
  const bool useless = is_open() && is_committed() && head_bytes > 0 && !file.replaces();
  const std::string path = file.path();
  const int error = file.close();
  if (useless) remove_file(path);
  return error;
}

}  // namespace zeva
