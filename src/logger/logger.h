// The process-wide log, and the plain line to a stream beside it.
#pragma once

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>

// Lets the compiler check the arguments: as in the C standard, also where the system's own printf
// differs.
#if defined(__clang__)
#define ZEVA_PRINTF_LIKE(format_index, first) __attribute__((format(printf, format_index, first)))
#elif defined(__GNUC__)
#define ZEVA_PRINTF_LIKE(format_index, first) \
  __attribute__((format(gnu_printf, format_index, first)))
#else
#define ZEVA_PRINTF_LIKE(format_index, first)
#endif

namespace qel {

// Formats and filters diagnostic lines. Owns no stream. All methods may be called from any thread;
// the hosts' controls are meant to be called before recording starts, but are safe at any time.
class Logger {
 public:
  using Callback =
      std::function<void(const char* tag, int level, const char* file, int line, const char* msg)>;

  Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;
  // Leaves the stream that was the sink open.
  virtual ~Logger();

  // The process-wide logger, made on first use and never destroyed. A non-null `replacement`
  // becomes it; the previous one is left as it is.
  static Logger* instance(Logger* replacement);

  // One message. `level` is clamped to 0..6; above the threshold nothing is formatted. The result
  // is of no use to callers.
  static int log(Logger* lg, const char* tag, int level, const char* file, int line,
                 const char* fmt, ...) ZEVA_PRINTF_LIKE(6, 7);

  // Whether a message of this level goes anywhere.
  bool wants(int message_level) const {
    return has_callback.load(std::memory_order_acquire) ||
           message_level <= level.load(std::memory_order_relaxed);
  }

  // An empty `cb` returns to the sink. The previous callback is destroyed, once no thread uses it.
  void set_callback(Callback cb);

  std::atomic<FILE*> sink{stderr};
  std::atomic<int> level{2};

 private:
  std::atomic<bool> has_callback{false};
  std::shared_ptr<const Callback> callback;  // through std::atomic_load/atomic_exchange only
};

}  // namespace qel

namespace zeva {

// vfprintf to `stream`, unfiltered and without a header; flushes standard error.
void err_print(FILE* stream, const char* fmt, ...) ZEVA_PRINTF_LIKE(2, 3);

enum LogLevel { kLogFatal = 1, kLogError = 2, kLogWarning = 3, kLogInfo = 4, kLogDebug = 5 };

}  // namespace zeva

// The arguments are evaluated only for a message that is wanted: they may take locks.
#define ZEVA_LOG(log_level, ...)                                                       \
  do {                                                                                 \
    qel::Logger* const zeva_logger = qel::Logger::instance(nullptr);                   \
    if (zeva_logger->wants(log_level)) {                                               \
      qel::Logger::log(zeva_logger, "bg", log_level, __FILE__, __LINE__, __VA_ARGS__); \
    }                                                                                  \
  } while (false)
