#include "mv_repair.h"

#include <exception>
#include <new>
#include <utility>

#include "av_error.h"
#include "files.h"
#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

constexpr int kLinesPerReport = 10;
// The tail of a crashed recording is expected to be damaged: from here on a repair counts as whole.
constexpr double kTail = 0.9;

struct WhileRunning {
  std::atomic<bool>& flag;
  explicit WhileRunning(std::atomic<bool>& flag) : flag(flag) { flag = true; }
  ~WhileRunning() { flag = false; }
};

}  // namespace

MvRepair::MvRepair(ZEVA_repair_callback progress, void* user)
    : progress_callback(progress), user(user) {}

MvRepair::~MvRepair() { (void)stop(); }

bool MvRepair::start(Paths paths) {
  if (refuse_stopped()) return false;
  running = true;  // a host may ask before the thread has begun
  try {
    worker = std::thread([this, kept = std::move(paths)] {
      worker_id = std::this_thread::get_id();
      run(kept);
      worker_id = std::thread::id();  // the system may give it to another thread
    });
  } catch (const std::exception& e) {
    running = false;
    ZEVA_LOG(kLogError, "repair: no thread: %s", e.what());
    report(0, kOutputCode, e.what());
    return false;
  }
  return true;
}

bool MvRepair::run(const Paths& paths) {
  const WhileRunning guard(running);
  try {
    const bool done = repair(paths);
    parser.reset();  // 8
    recovery.close();
    return done;
  } catch (const std::bad_alloc&) {
    ZEVA_LOG(kLogError, "repair failed: no memory");
    report(parser.progress(), kOutputCode, av_error_text(AVERROR(ENOMEM)));
  } catch (const std::exception& e) {
    ZEVA_LOG(kLogError, "repair failed: %s", e.what());
  } catch (...) {
    ZEVA_LOG(kLogError, "repair failed");
  }
  return false;
}

bool MvRepair::stop() {
  stopped = true;
  // Asked before `worker`, which start() may not have set when the first callback comes.
  if (worker_id == std::this_thread::get_id()) {
    ZEVA_LOG(kLogError, "repair: stop() inside the callback cannot wait for the repair");
    return false;
  }
  if (!worker.joinable()) return true;
  ZEVA_LOG(kLogDebug, "repair: stop() ...");
  worker.join();
  ZEVA_LOG(kLogDebug, "repair: stop() success.");
  return true;
}

bool MvRepair::refuse_stopped() {
  if (!stopped) return false;
  report(0, kStoppedCode, "repair: already stopped.  can't recall this function...");
  return true;
}

bool MvRepair::repair(const Paths& paths) {
  if (!recovery.open(paths.broken)) {
    ZEVA_LOG(kLogError, "无法打开mdata文件: %s", paths.broken.c_str());
    report(0, kBrokenFileCode, "cannot open broken_file...");
    return false;
  }
  if (!parser.parse(paths.moov.c_str())) {
    report(0, kIndexFileCode, "parse moov file failed ...");
    return false;
  }
  if (is_an_input(paths)) {
    ZEVA_LOG(kLogError, "the output is the broken file or its index: %s", paths.output.c_str());
    report(0, kOutputCode, "the output is the broken file or its index");
    return false;
  }
  const int result = rebuild(paths.output);
  if (result >= 0 || result == AVERROR_EOF) return true;
  const std::string text = av_error_text(result);
  ZEVA_LOG(kLogError, "Error occurred(%d): %s", result, text.c_str());
  report(parser.progress(), kOutputCode, text.c_str());
  return false;
}

bool MvRepair::is_an_input(const Paths& paths) const {
  const std::string output = file_path(paths.output);
  return is_same_file(output, paths.broken) || is_same_file(output, paths.moov);
}

// Nothing of the output is opened before its description is complete.
int MvRepair::rebuild(const std::string& output_path) {
  RepairOutput output(output_path, stopped);
  int result = output.create();
  if (result >= 0) result = output.add_streams(parser.streams());
  if (result >= 0) result = output.open();
  if (result >= 0) result = output.write_header();
  if (result >= 0) {
    copy_records(output);
    result = output.write_trailer();
  }
  const int closed = output.close();
  return result >= 0 ? closed : result;
}

void MvRepair::copy_records(RepairOutput& output) {
  int taken = 0, processed = 0, first_ignored = 0, ignored = 0;
  recovery.begin(parser.recorded_streams());
  for (const char* line; (line = parser.next_record_line()) != nullptr; ++taken) {
    if (stopped) {
      ZEVA_LOG(kLogInfo, "repair aborted .");
      break;
    }
    if (output.broken()) break;  // no line can be written any more
    if (recovery.at_end()) {
      if (ignored++ > 0) continue;
      first_ignored = taken;
      ZEVA_LOG(kLogError, ">> 损坏视频已经读取到末尾了,第一个忽略行 ========> %s", line);
      continue;
    }
    process_line(output);
    if (++processed % kLinesPerReport == 0) report_progress();
  }
  if (parser.progress() >= kTail) parser.force_progress(1.0);
  report_progress();
  ZEVA_LOG(kLogInfo, ">> 执行完成 %.6lf, （忽略索引: [%d ~ %d) 共%d行）", parser.progress(),
           first_ignored, first_ignored + ignored, ignored);
  log_losses();
}

void MvRepair::process_line(RepairOutput& output) {
  if (!index_version_known(parser.version())) {
    err_print(stderr, "[ERROR] version=%d, parse failed\n", parser.version());
    return;
  }
  bool dropped = false;
  std::string_view here = parser.rest_of_line();
  for (IndexedPacket packet; parser.next_packet(packet); here = parser.rest_of_line()) {
    if (packet.placed) log_place(packet);
    if (dropped) {
      // The rest of a dropped line still tells where the next line's bytes and times begin.
      recovery.pass_over(packet);
    } else if (packet.stream_index < 0 || packet.stream_index >= kIndexMaxStreams) {
      ZEVA_LOG(kLogError, "===> stream.idx=%d 不合法，moov已处理 %d 行(%.6lf)：%s",
               packet.stream_index, static_cast<int>(parser.line_number()), parser.progress(),
               here.data());
      recovery.pass_over(packet);
      dropped = true;
    } else {
      dropped = !copy_packet(output, packet);
    }
  }
}

// False when the rest of the line is to be dropped.
bool MvRepair::copy_packet(RepairOutput& output, const IndexedPacket& packet) {
  using Fate = PacketRecovery::Fate;
  switch (recovery.take(packet)) {
    case Fate::kRecovered:
      return write_packet(output, packet);
    case Fate::kNoMemory:
      ZEVA_LOG(kLogError, "no memory for a packet of %d bytes", packet.size);
      return false;
    case Fate::kBehindEnd:
    case Fate::kUnreadable:
      log_read_failure(packet);
      return false;
    case Fate::kLost:
      ++lost_packets;
      ZEVA_LOG(kLogDebug, "stream %d, pts %lld: zeros in place of its bytes at %lld, left out",
               packet.stream_index, static_cast<long long>(packet.pts),
               static_cast<long long>(packet.position));
      return true;
    case Fate::kDependent:
      ++dependent_packets;
      return true;
  }
  return true;
}

bool MvRepair::write_packet(RepairOutput& output, const IndexedPacket& packet) {
  const int result = output.write(packet, recovery.data());
  if (result >= 0) return true;
  ZEVA_LOG(kLogError, "@@ moov已处理 %d 行(%.6lf); write frame err: %s, next=%s",
           static_cast<int>(parser.line_number()), parser.progress(), av_error_text(result),
           parser.rest_of_line().data());
  if (parser.progress() < kTail) {
    err_print(stderr, "error:ret=%d,msg=%s\n", result, av_error_text(result));
  }
  return false;
}

void MvRepair::log_read_failure(const IndexedPacket& packet) const {
  const BrokenFile::ReadResult& read = recovery.read_result();
  ZEVA_LOG(kLogError,
           "读取packet数据 %d < %d(需求)，该行索引处理结束 (eof=%d, fpos=%lld) err_code=%d",
           read.count, packet.size, recovery.at_end() ? 1 : 0,
           static_cast<long long>(read.position), read.error);
}

void MvRepair::log_place(const IndexedPacket& packet) const {
  ZEVA_LOG(kLogDebug, "packet数据 seek fpos=%lld", static_cast<long long>(packet.position));
  if (packet.skipped_bytes <= 0) return;
  ZEVA_LOG(kLogWarning, "line %d: %lld bytes before %lld have no record",
           static_cast<int>(parser.line_number()), static_cast<long long>(packet.skipped_bytes),
           static_cast<long long>(packet.position));
}

void MvRepair::log_losses() const {
  if (lost_packets > 0 || dependent_packets > 0) {
    ZEVA_LOG(kLogError,
             "left out: %lld packets with zeros in place of their bytes, %lld pictures that build "
             "on missing ones",
             static_cast<long long>(lost_packets), static_cast<long long>(dependent_packets));
  }
  if (recovery.unrecorded_bytes() > 0) {
    ZEVA_LOG(kLogError, "the index has no record of %lld bytes of the movie",
             static_cast<long long>(recovery.unrecorded_bytes()));
  }
}

void MvRepair::report_progress() { report(parser.progress(), 0, ""); }

void MvRepair::report(double progress, int code, const char* message) {
  err_print(stderr, "progress:%.6lf\n", progress);
  if (progress_callback != nullptr) progress_callback(progress, code, message, user);
}

}  // namespace zeva
