// FFmpeg's binding of libx264 hands on what it has no name for through "x264-params", and only logs
// a warning when libx264 does not know it either. "x264opts" refuses such a key, but cannot escape
// a colon. So the parameters are tried with "x264opts" on a small encoder that is thrown away, and
// given to the real one through "x264-params".
#include "encoder_options.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "av_error.h"
#include "av_handles.h"

namespace zeva {
namespace {

constexpr char kField[] = "encoder_options";
constexpr char kX264Params[] = "x264-params";

// Settled by the recording itself: the encoder must agree with its frames and its stream. Matrix
// and range have FFmpeg's own names, by which the frames are converted.
constexpr const char* kSettledKeys[] = {"time_base", "pixel_format", "video_size",
                                        "annexb",    "colormatrix",  "fullrange"};

class Dictionary {
 public:
  Dictionary() = default;
  ~Dictionary() { av_dict_free(&entries); }
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;

  void set(const char* key, const char* value) { av_dict_set(&entries, key, value, 0); }
  const AVDictionaryEntry* next(const AVDictionaryEntry* entry) const {
    return av_dict_get(entries, "", entry, AV_DICT_IGNORE_SUFFIX);
  }

  AVDictionary* entries = nullptr;
};

std::string said_of(const AVDictionaryEntry& entry) {
  return std::string("'") + entry.key + "=" + entry.value + "'";
}

bool is_settled(const char* key) {
  return std::any_of(std::begin(kSettledKeys), std::end(kSettledKeys),
                     [key](const char* settled) { return strcmp(settled, key) == 0; });
}

std::string settled_fault(const AVDictionaryEntry& entry) {
  return std::string(kField) + ": the recording itself settles " + said_of(entry);
}

// ---- parameters of libx264 alone

bool is_x264(const AVCodecContext& enc) { return strcmp(enc.codec->name, "libx264") == 0; }

std::string x264_text(const AVDictionaryEntry& entry) {
  std::string text = std::string(entry.key) + "=" + entry.value;
  std::replace(text.begin(), text.end(), ':', ',');  // libx264 takes either between two numbers
  return text;
}

bool x264_takes(const AVCodecContext& enc, const std::string& parameters) {
  const CodecContextPtr trial(avcodec_alloc_context3(enc.codec));
  if (!trial) return false;
  trial->width = trial->height = 64;
  trial->time_base = {1, 25};
  trial->pix_fmt = enc.pix_fmt;
  trial->thread_count = 1;
  av_opt_set(trial->priv_data, "x264opts", parameters.c_str(), 0);
  return avcodec_open2(trial.get(), nullptr, nullptr) >= 0;
}

std::string set_x264_params(AVCodecContext& enc, const Dictionary& added) {
  Dictionary all;
  av_opt_get_dict_val(enc.priv_data, kX264Params, 0, &all.entries);
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = added.next(entry)) != nullptr) all.set(entry->key, entry->value);
  while ((entry = all.next(entry)) != nullptr) {
    if (is_settled(entry->key)) return settled_fault(*entry);
    if (!x264_takes(enc, x264_text(*entry))) {
      return std::string(kField) + ": libx264 does not take " + said_of(*entry);
    }
  }
  av_opt_set_dict_val(enc.priv_data, kX264Params, all.entries, 0);
  return {};
}

// ---- all encoders

// Sets one option; one that only libx264 may know is put into `x264_params`.
std::string set_option(AVCodecContext& enc, const AVDictionaryEntry& entry,
                       Dictionary& x264_params) {
  if (is_settled(entry.key)) return settled_fault(entry);
  const int result = av_opt_set(&enc, entry.key, entry.value, AV_OPT_SEARCH_CHILDREN);
  if (result >= 0) return {};
  if (result != AVERROR_OPTION_NOT_FOUND) {
    return std::string(kField) + ": " + said_of(entry) + ": " + av_error_text(result);
  }
  if (!is_x264(enc)) {
    return std::string(kField) + ": " + enc.codec->name + " does not know " + said_of(entry);
  }
  x264_params.set(entry.key, entry.value);
  return {};
}

}  // namespace

std::string apply_encoder_options(AVCodecContext& enc, const std::string& text) {
  if (text.empty()) return {};
  Dictionary options;
  if (av_dict_parse_string(&options.entries, text.c_str(), "=", ":", 0) < 0) {
    return std::string(kField) + " '" + text + "' is not of the form key=value:key=value";
  }
  Dictionary x264_params;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = options.next(entry)) != nullptr) {
    std::string fault = set_option(enc, *entry, x264_params);
    if (!fault.empty()) return fault;
  }
  return is_x264(enc) ? set_x264_params(enc, x264_params) : "";
}

}  // namespace zeva
