// What the URL of an output says: where it goes, what container it gets, what its metadata text is.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ffmpeg.h"

namespace zeva {

// A protocol of live streams: the container that it carries and the codecs that its servers take.
struct LiveStream {
  const char* scheme;
  const char* muxer;
  AVCodecID video;
  AVCodecID audio;
};

const LiveStream* live_stream(const char* url);  // by the URL's scheme; null for all others
bool is_live_url(const char* url);
bool is_rtsp_url(const char* url);

// Whether a peer can make the output wait; files must never be interrupted.
bool is_network_url(const char* url);

// The path of a file's URL, which FFmpeg also spells "file:path"; empty when it is no file's.
std::string file_path(const std::string& url);

bool ends_with_nocase(const char* text, const char* suffix);

// The container of a live stream, else by the file name, MP4 for an unknown one. Null only when
// FFmpeg was built without them.
AVOutputFormat* guess_output_format(const char* url);

// "key:value;key:value" as pairs; pieces without a colon are left out, a value may hold colons.
std::vector<std::pair<std::string, std::string>> parse_metadata(const std::string& text);

}  // namespace zeva
