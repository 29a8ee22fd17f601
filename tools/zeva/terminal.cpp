#include "terminal.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <system_error>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>
#else
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#endif

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int kSecondInterruptStatus = 130;

std::atomic<int> signal_count{0};
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");

bool is_yes(std::string answer) {
  answer.erase(answer.find_last_not_of(" \t\r") + 1);
  for (char& c : answer) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return answer == "y" || answer == "yes";
}

}  // namespace

bool Terminal::stop_requested() { return signal_count > 0; }

#ifdef _WIN32

namespace {

HANDLE wake_event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
HANDLE main_thread = nullptr;

std::string to_utf8(const wchar_t* wide) {
  int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  std::string text(size > 0 ? size - 1 : 0, '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), size, nullptr, nullptr);
  return text;
}

// Runs on a thread that the system makes for it.
BOOL WINAPI on_console_event(DWORD event) {
  if (++signal_count > 1) ExitProcess(kSecondInterruptStatus);
  SetEvent(wake_event);
  CancelSynchronousIo(main_thread);
  // The system ends the process when this returns from a closing console: the main thread needs the
  // time to finish the movie.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
    WaitForSingleObject(main_thread, INFINITE);
  return TRUE;
}

Terminal::Event read_key(HANDLE input) {
  INPUT_RECORD record;
  DWORD count = 0;
  while (PeekConsoleInputW(input, &record, 1, &count) && count == 1) {
    ReadConsoleInputW(input, &record, 1, &count);
    if (record.EventType != KEY_EVENT || !record.Event.KeyEvent.bKeyDown) continue;
    if (record.Event.KeyEvent.uChar.UnicodeChar == L'p') return Terminal::Event::kPauseKey;
    if (record.Event.KeyEvent.uChar.UnicodeChar == L'q') return Terminal::Event::kQuitKey;
  }
  return Terminal::Event::kNone;
}

// The console redraws for every byte of a stream without a buffer.
void print_at_once(FILE* stream, const std::string& text) {
  fflush(stream);
  _write(_fileno(stream), text.data(), static_cast<unsigned>(text.size()));
}

// A stream that leads to where `stream` led, which from now on leads to the end of the file `path`;
// null when that fails.
FILE* redirect(FILE* stream, const std::string& path) {
  int saved = _dup(_fileno(stream));
  int target = _wopen(path.empty() ? L"NUL" : fs::u8path(path).c_str(),
                      _O_WRONLY | _O_CREAT | _O_APPEND | _O_BINARY | _O_NOINHERIT, 0666);
  if (target < 0) return nullptr;
  fflush(stream);
  FILE* old = saved < 0 ? nullptr : _fdopen(saved, "w");
  bool done = old && _dup2(target, _fileno(stream)) == 0;
  _close(target);
  return done ? old : nullptr;
}

}  // namespace

void Terminal::occupy_standard_streams() {
  // Programs without a console have these numbers taken by nothing, and none is given out anew.
  int number = _open("NUL", _O_RDWR);
  while (number >= 0 && number <= 2) number = _open("NUL", _O_RDWR);
  if (number >= 0) _close(number);
}

std::vector<std::string> Terminal::arguments(int, char**) {
  std::vector<std::string> result;
  int count = 0;
  LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; wide && i < count; ++i) result.push_back(to_utf8(wide[i]));
  LocalFree(wide);
  return result;
}

Terminal::Terminal() {
  console_tty = _isatty(2) != 0;
  SetConsoleOutputCP(CP_UTF8);
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &main_thread, 0,
                  FALSE, DUPLICATE_SAME_ACCESS);
}

Terminal::~Terminal() {
  fflush(console_stream);
  fflush(answer_stream);
}

void Terminal::catch_signals() { SetConsoleCtrlHandler(on_console_event, TRUE); }

bool Terminal::stdin_is_terminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

bool Terminal::can_ask() const { return console_tty && stdin_is_terminal(); }

void Terminal::take_keys() { keys = stdin_is_terminal(); }

Terminal::Event Terminal::wait(int64_t timeout_us) {
  HANDLE handles[] = {wake_event, GetStdHandle(STD_INPUT_HANDLE)};
  DWORD timeout_ms = static_cast<DWORD>(std::max<int64_t>(0, (timeout_us + 999) / 1000));
  DWORD result = WaitForMultipleObjects(keys ? 2 : 1, handles, FALSE, timeout_ms);
  return result == WAIT_OBJECT_0 + 1 ? read_key(handles[1]) : Event::kNone;
}

void Terminal::wake() { SetEvent(wake_event); }

int Terminal::console_width() const {
  CONSOLE_SCREEN_BUFFER_INFO info;
  HANDLE handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(console_stream)));
  return GetConsoleScreenBufferInfo(handle, &info) ? info.srWindow.Right - info.srWindow.Left + 1
                                                   : 80;
}

size_t Terminal::read_stdin(void* data, size_t size) {
  HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  size_t done = 0;
  while (done < size && !stop_requested()) {
    DWORD got = 0;
    DWORD wanted = static_cast<DWORD>(std::min<size_t>(size - done, 1 << 20));
    if (!ReadFile(input, static_cast<char*>(data) + done, wanted, &got, nullptr) || got == 0) break;
    done += got;
  }
  return done;
}

#else

namespace {

int wake_pipe[2] = {-1, -1};
termios saved_mode;
std::atomic<bool> mode_changed{false};

void restore_mode() {
  if (mode_changed.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &saved_mode);
}

// Calls only what POSIX allows in a signal handler.
void on_signal(int) {
  int saved_errno = errno;
  if (++signal_count > 1) {
    restore_mode();
    _exit(kSecondInterruptStatus);
  }
  Terminal::wake();
  errno = saved_errno;
}

// A job in the background would be stopped for touching the terminal.
bool owns_keyboard() {
  return Terminal::stdin_is_terminal() && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

void drain_wake_pipe() {
  char bytes[64];
  while (read(wake_pipe[0], bytes, sizeof bytes) > 0) {
  }
}

// True when `input` has data; false when the time is over or something else ended the wait.
bool wait_for_input(int input, int64_t timeout_us) {
  pollfd fds[] = {{wake_pipe[0], POLLIN, 0}, {input, POLLIN, 0}};
  timespec timeout{static_cast<time_t>(timeout_us / 1000000),
                   static_cast<long>(timeout_us % 1000000 * 1000)};
  if (ppoll(fds, input >= 0 ? 2 : 1, timeout_us < 0 ? nullptr : &timeout, nullptr) <= 0) {
    return false;
  }
  if (fds[0].revents) drain_wake_pipe();
  return input >= 0 && fds[1].revents != 0;
}

void print_at_once(FILE* stream, const std::string& text) {
  fputs(text.c_str(), stream);
  fflush(stream);
}

// A stream that leads to where `stream` led, which from now on leads to the end of the file `path`;
// null when that fails.
FILE* redirect(FILE* stream, const std::string& path) {
  int target = open(path.empty() ? "/dev/null" : path.c_str(),
                    O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (target < 0) return nullptr;
  int saved = fcntl(fileno(stream), F_DUPFD_CLOEXEC, 3);
  fflush(stream);
  FILE* old = saved < 0 ? nullptr : fdopen(saved, "w");
  bool done = old && dup2(target, fileno(stream)) >= 0;
  close(target);
  return done ? old : nullptr;
}

}  // namespace

void Terminal::occupy_standard_streams() {
  int number = open("/dev/null", O_RDWR);
  while (number >= 0 && number <= STDERR_FILENO) number = open("/dev/null", O_RDWR);
  if (number >= 0) close(number);
}

std::vector<std::string> Terminal::arguments(int argc, char** argv) {
  return {argv + std::min(argc, 1), argv + argc};
}

Terminal::Terminal() {
  console_tty = isatty(STDERR_FILENO) != 0;
  if (pipe2(wake_pipe, O_NONBLOCK | O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "a pipe cannot be made");
  }
}

Terminal::~Terminal() {
  restore_mode();
  fflush(console_stream);
  fflush(answer_stream);
}

void Terminal::catch_signals() {
  struct sigaction action = {};
  action.sa_handler = on_signal;
  sigemptyset(&action.sa_mask);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

bool Terminal::stdin_is_terminal() { return isatty(STDIN_FILENO) != 0; }

bool Terminal::can_ask() const { return console_tty && owns_keyboard(); }

void Terminal::take_keys() {
  if (!owns_keyboard()) return;
  if (tcgetattr(STDIN_FILENO, &saved_mode) != 0) return;
  termios mode = saved_mode;
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  mode_changed = true;
  keys = tcsetattr(STDIN_FILENO, TCSANOW, &mode) == 0;
}

Terminal::Event Terminal::wait(int64_t timeout_us) {
  if (!wait_for_input(keys ? STDIN_FILENO : -1, std::max<int64_t>(0, timeout_us))) {
    return Event::kNone;
  }
  char key = 0;
  if (read(STDIN_FILENO, &key, 1) != 1) {
    keys = false;  // the terminal is gone
    return Event::kNone;
  }
  return key == 'p' ? Event::kPauseKey : key == 'q' ? Event::kQuitKey : Event::kNone;
}

void Terminal::wake() {
  // A full pipe wakes just as well.
  [[maybe_unused]] ssize_t written = write(wake_pipe[1], "", 1);
}

int Terminal::console_width() const {
  winsize size = {};
  bool known = ioctl(fileno(console_stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

size_t Terminal::read_stdin(void* data, size_t size) {
  size_t done = 0;
  while (done < size && !stop_requested()) {
    if (!wait_for_input(STDIN_FILENO, -1)) continue;
    ssize_t got = read(STDIN_FILENO, static_cast<char*>(data) + done, size - done);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  return done;
}

#endif

bool Terminal::ask(const std::string& question) {
  print_at_once(console_stream, question + " ");
  std::string answer;
  char c = 0;
  while (read_stdin(&c, 1) == 1 && c != '\n') answer += c;
  if (c != '\n') fputs("\n", console_stream);  // no answer moved the cursor on
  return c == '\n' && !stop_requested() && is_yes(answer);
}

bool Terminal::redirect_stderr(const std::string& path) {
  FILE* old = redirect(stderr, path);
  if (old) console_stream = old;
  return old != nullptr;
}

bool Terminal::redirect_stdout(const std::string& path) {
  FILE* old = redirect(stdout, path);
  if (old) answer_stream = old;
  return old != nullptr;
}

}  // namespace zeva_tool
