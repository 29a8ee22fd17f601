#include "encoder_presets.h"

#include <cstring>

#include "zeva/movie_info.h"

namespace {

// The row is the value; the last row, the empty string, is the value that names nothing.
constexpr const char* kQualityNames[] = {"ultrafast", "superfast", "veryfast", "faster",
                                         "fast",      "medium",    "slow",     "slower",
                                         "veryslow",  "placebo",   ""};
constexpr const char* kProfileNames[] = {"baseline", "main",    "high", "high10",
                                         "high422",  "high444", ""};
constexpr const char* kTuneNames[] = {
    "film", "animation", "grain", "stillimage", "psnr", "ssim", "fastdecode", "zerolatency", ""};

template <typename Level, size_t kRows>
Level from_str(const char* const (&names)[kRows], const char* s, Level unknown) {
  for (size_t row = 0; row + 1 < kRows; ++row) {
    if (strcmp(names[row], s) == 0) return static_cast<Level>(row);
  }
  return unknown;
}

}  // namespace

extern "C" {

// The defaults are the settings of a low-latency live recording.
Quality_Level preset_from_str(const char* s) {
  return from_str(kQualityNames, s, kQualityVeryfast);
}
Profile_Level profile_from_str(const char* s) {
  return from_str(kProfileNames, s, kProfileBaseline);
}
Tune_Level tune_from_str(const char* s) { return from_str(kTuneNames, s, kTuneZerolatency); }

const char* preset_to_str(Quality_Level q) { return kQualityNames[q]; }
const char* profile_to_str(Profile_Level p) { return kProfileNames[p]; }
const char* tune_to_str(Tune_Level t) { return kTuneNames[t]; }

}  // extern "C"

namespace zeva {

void apply_preset_options(AVCodecContext* ctx, int preset, int profile, int tune) {
  const struct {
    const char* option;
    const char* value;
  } options[] = {
      {"preset", preset_to_str(static_cast<Quality_Level>(preset))},
      {"profile", profile_to_str(static_cast<Profile_Level>(profile))},
      {"tune", tune_to_str(static_cast<Tune_Level>(tune))},
  };
  for (const auto& o : options) {
    // An empty name would be taken for an unknown one, and the encoder would not open.
    if (o.value[0] != '\0') av_opt_set(ctx->priv_data, o.option, o.value, 0);
  }
}

}  // namespace zeva
