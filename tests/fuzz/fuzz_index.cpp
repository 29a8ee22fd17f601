// Any bytes as an index, read to its end.
#include <cstdlib>
#include <cstring>

#include "moov_parser.h"
#include "temp_dir.h"
#include "zeva/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TempDir folder;
  static const std::string path = folder.path("a.index");
  ZEVA_Log_Level(-1);
  write_file(path, std::string(reinterpret_cast<const char*>(data), size));

  zeva::MoovParser parser;
  if (!parser.parse(path.c_str())) return 0;
  size_t records = 0;
  double progress = 0;
  while (const char* line = parser.next_record_line()) {
    zeva::IndexedPacket packet;
    for (size_t before = strlen(line); parser.next_packet(packet); ++records) {
      if (parser.rest_of_line().size() >= before) abort();  // it would never end
      before = parser.rest_of_line().size();
    }
    if (parser.progress() < progress || parser.progress() > 1) abort();
    progress = parser.progress();
  }
  if (records > size) abort();
  return 0;
}
