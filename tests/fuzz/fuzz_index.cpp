// Any bytes as an index: its head through the parser, its records through the reader and decoder.
#include <cstdlib>
#include <string_view>

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
  zeva::RecordDecoder decoder(parser.streams().audio);
  size_t records = 0;
  double progress = 0;
  while (const char* line = parser.next_record_line()) {
    std::string_view rest = line;
    zeva::IndexRecord record;
    for (size_t before = rest.size(); read_index_record(rest, parser.version(), record);
         before = rest.size(), ++records) {
      if (rest.size() >= before) abort();  // it would never end
      (void)decoder.decode(record);
    }
    if (parser.progress() < progress || parser.progress() > 1) abort();
    progress = parser.progress();
  }
  if (records > size) abort();
  return 0;
}
