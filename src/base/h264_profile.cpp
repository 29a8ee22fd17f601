// An encoder marks a stream with the smallest profile that its pictures need, whatever profile it
// was asked for: 4:2:0 pictures of 8 bits never make more than a "high" stream. The profiles above
// it (ISO/IEC 14496-10, A.2) are made of pictures that need them.
#include "h264_profile.h"

#include <memory>
#include <string>

namespace zeva {
namespace {

// How far the chroma planes are subsampled, and the bits of a sample; 0 for any number of bits.
struct Pictures {
  int log2_chroma_w, log2_chroma_h, depth;
};

const Pictures* pictures_of(const std::string& profile) {
  static constexpr struct {
    const char* profile;
    Pictures pictures;
  } kProfiles[] = {{"high10", {1, 1, 10}}, {"high422", {1, 0, 0}}, {"high444", {0, 0, 0}}};
  for (const auto& row : kProfiles) {
    if (profile == row.profile) return &row.pictures;
  }
  return nullptr;
}

bool are_of(AVPixelFormat format, const Pictures& wanted) {
  const AVPixFmtDescriptor* found = av_pix_fmt_desc_get(format);
  return found != nullptr && found->nb_components >= 3 &&
         (found->flags & AV_PIX_FMT_FLAG_RGB) == 0 &&
         found->log2_chroma_w == wanted.log2_chroma_w &&
         found->log2_chroma_h == wanted.log2_chroma_h &&
         (wanted.depth == 0 || found->comp[0].depth == wanted.depth);
}

std::string profile_option(const AVCodecContext& enc) {
  uint8_t* text = nullptr;
  if (av_opt_get(enc.priv_data, "profile", 0, &text) < 0 || text == nullptr) return {};
  std::string profile(reinterpret_cast<const char*>(text));
  av_free(text);
  return profile;
}

}  // namespace

bool takes_profile(AVCodecContext& enc, Profile_Level profile) {
  const bool above_high = profile > kProfileHigh && profile < kProfileNone;
  if (enc.codec_id != AV_CODEC_ID_H264 || !above_high) return true;
  return av_opt_set(enc.priv_data, "profile", profile_to_str(profile), 0) >= 0;
}

AVPixelFormat format_for_profile(const AVCodecContext& enc, AVPixelFormat given) {
  if (enc.codec_id != AV_CODEC_ID_H264) return given;
  const Pictures* wanted = pictures_of(profile_option(enc));
  if (wanted == nullptr || are_of(given, *wanted)) return given;
  Pictures exact = *wanted;
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(given);
  if (exact.depth == 0 && description != nullptr) exact.depth = description->comp[0].depth;
  for (const AVPixelFormat* p = enc.codec->pix_fmts; p != nullptr && *p != AV_PIX_FMT_NONE; ++p) {
    if (are_of(*p, exact)) return *p;
  }
  return AV_PIX_FMT_NONE;
}

}  // namespace zeva
