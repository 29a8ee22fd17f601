// Any bytes as a broken movie and its index, repaired. Two bytes tell the index's length, the index
// follows, then the movie. Neither input may change, whatever they hold.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ffmpeg.h"
#include "mv_repair.h"
#include "temp_dir.h"
#include "zeva/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TempDir folder;
  static const zeva::MvRepair::Paths paths{folder.path("a.mp4"), folder.path("a.index"),
                                           folder.path("out.mp4")};
  static FILE* quiet = freopen("/dev/null", "w", stderr);
  (void)quiet;
  ZEVA_Log_Level(-1);
  av_log_set_level(AV_LOG_QUIET);
  if (size < 2) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  const size_t index_bytes = std::min(bytes.size(), data[0] + data[1] * size_t{256});
  const std::string index = bytes.substr(0, index_bytes);
  const std::string movie = bytes.substr(index_bytes);
  write_file(paths.moov, index);
  write_file(paths.broken, movie);
  zeva::MvRepair(nullptr, nullptr).run(paths);
  if (read_file(paths.moov) != index || read_file(paths.broken) != movie) abort();
  return 0;
}
