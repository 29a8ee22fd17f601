// The process's surroundings: arguments, keys, signals and standard streams. Beside file_check, the
// only place of the tool that knows the operating system.
//
// One object lives for the whole run; it owns the terminal's key mode and the saved standard
// streams. wake() may be called from any thread, everything else from the main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace zeva_tool {

class Terminal {
 public:
  enum class Event {
    kNone,      // the time is over, or wake() was called, or another key was pressed
    kPauseKey,  // p
    kQuitKey,   // q
  };

  // Puts the null device in the place of standard streams that are closed. Otherwise the next file
  // would get such a number, and whatever is printed would go into it. Before anything is opened.
  static void occupy_standard_streams();

  // The arguments behind the program's name, in UTF-8.
  static std::vector<std::string> arguments(int argc, char** argv);

  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // From now on the first Ctrl-C (or request to terminate) only sets stop_requested() and ends
  // waits and reads; the second one ends the process at once with exit status 130.
  void catch_signals();
  static bool stop_requested();

  // Keys are taken one by one, without Enter, if standard input is a terminal.
  void take_keys();

  // Waits for a key, a signal or wake(), at most `timeout_us`.
  Event wait(int64_t timeout_us);
  static void wake();

  // Lets everything that libraries print to standard error go to the end of the file `path` (the
  // null device if empty), while console() still leads to where standard error led before.
  bool redirect_stderr(const std::string& path);
  FILE* console() const { return console_stream; }
  bool console_is_terminal() const { return console_tty; }
  int console_width() const;

  // The same for standard output: libraries print to `path`, the program's own answers to
  // answers().
  bool redirect_stdout(const std::string& path);
  FILE* answers() const { return answer_stream; }

  // True when there is somebody to ask: keyboard and console are a terminal, and this program is in
  // its foreground.
  bool can_ask() const;
  // Puts a question on the console; false for everything but "y" and "yes", also when signals or
  // the end of the input come instead of an answer. Before take_keys().
  bool ask(const std::string& question);

  // Reads exactly `size` bytes of standard input as they are; fewer at its end or after a signal.
  size_t read_stdin(void* data, size_t size);
  static bool stdin_is_terminal();

 private:
  FILE* console_stream = stderr;
  FILE* answer_stream = stdout;
  bool console_tty = false;
  bool keys = false;
};

}  // namespace zeva_tool
