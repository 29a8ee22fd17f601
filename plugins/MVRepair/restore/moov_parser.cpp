#include "moov_parser.h"

#include <algorithm>

#include "extradata.h"
#include "files.h"
#include "logger.h"

namespace zeva {
namespace {

// The parameter sets of 1920x1080 pictures in H.264 Constrained Baseline 4.0, as a byte stream:
// what a recording gets whose own were lost.
constexpr char kDefaultParameterSets[] = "AAAAAWdCwCjaAeAIn5YQAAADABAAAAMCiPGDKgAAAAFozg/I";

// What is made up below fits one codec. Another one's extradata, or its lack, is left as it is:
// made-up bytes would keep the muxer from taking what it needs out of the packets (AC-3).
bool is_codec(const std::string& codec, const char* name) { return codec.empty() || codec == name; }

}  // namespace

bool MoovParser::parse(const char* index_path) {
  const std::string given = index_path != nullptr ? index_path : "";
  if (!reader.open(given)) {
    ZEVA_LOG(kLogError, "无法打开moov文件: %s", given.c_str());
    return false;
  }
  described = reader.streams();
  if (described.list.empty()) {
    ZEVA_LOG(kLogError, "未找到有效的音视频流: %s", given.c_str());
    return false;
  }
  if (!prepare_video_extradata()) {
    ZEVA_LOG(kLogError, "未找到v_extradata");
    return false;
  }
  if (!prepare_audio_extradata()) {
    ZEVA_LOG(kLogError, "未找到a_extradata");
    return false;
  }
  size_bytes = file_size(given);
  consumed_bytes = 0;
  return true;
}

bool MoovParser::prepare_video_extradata() {
  VideoDescription& video = described.video;
  if (std::count(described.list.begin(), described.list.end(), AVMEDIA_TYPE_VIDEO) == 0) {
    ZEVA_LOG(kLogError, "---> 没有检测到视频流");
    return true;
  }
  if (!is_codec(video.codec, "h264")) return true;
  if (video.ev.empty()) {
    ZEVA_LOG(kLogError, "--> no global PPS/SPS, generate ...");
    video.ev = kDefaultParameterSets;
  }
  Bytes byte_stream;
  const Bytes record =
      base64_decode(video.ev, byte_stream) ? avc_configuration(byte_stream) : Bytes{};
  if (record.empty()) {
    ZEVA_LOG(kLogError, "no sps/pps");
    return false;
  }
  ZEVA_LOG(kLogDebug, "===> v_ext_result: %s\n", hex_list(record).c_str());
  video.ev = base64_encode(record);
  return true;
}

bool MoovParser::prepare_audio_extradata() {
  AudioDescription& audio = described.audio;
  if (std::count(described.list.begin(), described.list.end(), AVMEDIA_TYPE_AUDIO) == 0) {
    ZEVA_LOG(kLogError, "---> 没有检测到音频流");
    return true;
  }
  if (!audio.ev.empty() || !is_codec(audio.codec, "aac")) return true;
  ZEVA_LOG(kLogError, "--> no global ADTS, generate ...");
  const Bytes config = aac_configuration(audio.sample_rate, audio.channels);
  ZEVA_LOG(kLogDebug, "===> a_ext_result: %s\n", hex_list(config).c_str());
  audio.ev = base64_encode(config);
  return true;
}

const char* MoovParser::next_record_line() {
  const bool more = reader.next_line();
  consumed_bytes = more ? reader.line_position() : size_bytes;
  return more ? reader.line().data() : nullptr;
}

double MoovParser::progress() const {
  if (forced_progress >= 0) return forced_progress;
  if (size_bytes < 1) return 0;
  const double share = static_cast<double>(consumed_bytes) / static_cast<double>(size_bytes);
  return std::clamp(share, 0.0, 1.0);  // the file may have grown since
}

}  // namespace zeva
