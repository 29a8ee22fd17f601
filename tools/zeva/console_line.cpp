#include "console_line.h"

#include <cstdio>

#include "text_format.h"

namespace zeva_tool {
namespace {

void cut_to_columns(std::string& text, size_t columns) {
  size_t count = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (!is_utf8_continuation(text[i]) && count++ == columns) {
      text.resize(i);
      return;
    }
  }
}

}  // namespace

void ConsoleLine::draw(std::string text) {
  if (!terminal.console_is_terminal()) {
    fprintf(terminal.console(), "%s\n", text.c_str());
  } else {
    // One column stays free: a full line would move the cursor on to the next one.
    cut_to_columns(text, static_cast<size_t>(terminal.console_width() - 1));
    size_t columns = column_count(text);
    std::string rest(drawn_columns > columns ? drawn_columns - columns : 0, ' ');
    fprintf(terminal.console(), "\r%s%s", text.c_str(), rest.c_str());
    drawn_columns = columns;
  }
  fflush(terminal.console());
}

void ConsoleLine::clear() {
  if (drawn_columns == 0) return;
  fprintf(terminal.console(), "\r%s\r", std::string(drawn_columns, ' ').c_str());
  fflush(terminal.console());
  drawn_columns = 0;
}

void ConsoleLine::message(const std::string& text) {
  clear();
  fprintf(terminal.console(), "zeva: %s\n", text.c_str());
  fflush(terminal.console());
}

}  // namespace zeva_tool
