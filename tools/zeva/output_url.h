// What an output's URL says about the output.
#pragma once

#include <string>

#include "av.h"

namespace zeva_tool {

bool has_ending(const std::string& url, const char* ending);  // without regard to case
bool has_scheme(const std::string& url, const char* scheme);  // "rtsp"

// A protocol of live streams, as the library knows it: null for the URL of anything else.
struct LiveStream {
  const char* scheme;
  const char* muxer;
  AVCodecID audio;  // the pictures are H.264 in all
};
const LiveStream* live_stream(const std::string& url);

// Whether the URL is a path of this machine ("file:" before it is allowed), and which.
bool is_local_file(const std::string& url);
std::string local_path(const std::string& url);

// True when the library keeps a crash-safe index for an output of this name, if it is the first
// such one: it does for the formats of the MP4 family, also for .mov, .m4v, .m4a and .3gp, and for
// a file whose ending says nothing.
bool takes_index(const std::string& url);

// True when the ending says nothing, so that a main output becomes an MP4.
bool has_unknown_ending(const std::string& url);

// The container that the library will choose for a main output; never null for a local file. For a
// further output, null means that the library would choose none.
AVOutputFormat* main_container(const std::string& url);
AVOutputFormat* further_container(const std::string& url);

}  // namespace zeva_tool
