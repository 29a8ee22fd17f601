#include "annexb_filter.h"

#include <cstring>

#include "av_error.h"
#include "avc.h"
#include "logger.h"
#include "saturating.h"

namespace h264 {
namespace {

using zeva::kLogError;
using zeva::kLogInfo;
using zeva::NalUnit;

constexpr size_t kPaddingBytes = 64;
// A negative length is none.
NalUnit as_unit(const uint8_t* data, int32_t length) {
  return {data, length > 0 ? static_cast<size_t>(length) : 0};
}

std::vector<uint8_t> make_configuration_record(const ParameterSets& sets) {
  const NalUnit sps = as_unit(sets.sps, sets.sps_len);
  const NalUnit pps = as_unit(sets.pps, sets.pps_len);
  if (!zeva::is_avc_sps(sps)) return {};
  if (zeva::is_avc_pps(pps)) return zeva::avc_configuration_record(sps, pps);
  ZEVA_LOG(kLogError, "SPS without PPS: it must come with the packets");
  return zeva::avc_configuration_record(sps, {});
}

std::vector<uint8_t> choose_extradata(const ParameterSets& sets) {
  if (sets.extradata != nullptr && sets.extradata_len > 0 &&
      sets.extradata_len <= kMaxParameterSetBytes) {
    return {sets.extradata, sets.extradata + sets.extradata_len};
  }
  return make_configuration_record(sets);
}

}  // namespace

std::unique_ptr<AnnexBFilter> AnnexBFilter::create(const ParameterSets& sets) {
  const std::vector<uint8_t> extradata = choose_extradata(sets);
  if (extradata.empty()) {
    ZEVA_LOG(kLogError, "no usable H.264 parameter set");
    return nullptr;
  }
  std::unique_ptr<AnnexBFilter> made(new AnnexBFilter);
  return made->open(extradata) ? std::move(made) : nullptr;
}

AnnexBFilter::~AnnexBFilter() { ZEVA_LOG(kLogInfo, "~ bfilter()"); }

bool AnnexBFilter::open(const std::vector<uint8_t>& extradata) {
  const AVBitStreamFilter* description = av_bsf_get_by_name("h264_mp4toannexb");
  AVBSFContext* made = nullptr;
  if (description == nullptr || av_bsf_alloc(description, &made) < 0) return false;
  bsf.reset(made);
  packet.reset(av_packet_alloc());
  AVCodecParameters* par = bsf->par_in;
  par->codec_type = AVMEDIA_TYPE_VIDEO;
  par->codec_id = AV_CODEC_ID_H264;
  par->extradata = static_cast<uint8_t*>(av_mallocz(extradata.size() + kPaddingBytes));
  if (!packet || par->extradata == nullptr) return false;
  memcpy(par->extradata, extradata.data(), extradata.size());
  par->extradata_size = static_cast<int>(extradata.size());
  const int result = av_bsf_init(bsf.get());
  if (result < 0) {
    ZEVA_LOG(kLogError, "H.264 parameter sets refused: %s", zeva::av_error_text(result));
  }
  return result >= 0;
}

bool AnnexBFilter::filter(const void* data, int nbytes, int64_t usec, const Sink& sink) {
  // A copy, since the filter reads a little beyond the end, where the host's bytes have no padding.
  int result = av_new_packet(packet.get(), nbytes);
  if (result >= 0) {
    memcpy(packet->data, data, static_cast<size_t>(nbytes));
    packet->pts = usec;
    result = av_bsf_send_packet(bsf.get(), packet.get());
  }
  while (result >= 0) {
    av_packet_unref(packet.get());
    result = av_bsf_receive_packet(bsf.get(), packet.get());
    if (result < 0) break;
    if (packet->size == 0) continue;  // of empty NAL units; to the input it would mean the end
    sink(packet->data, packet->size, usec);
    usec = zeva::saturating_add(usec, 1);
  }
  av_packet_unref(packet.get());
  if (result == AVERROR(EAGAIN)) return true;
  ZEVA_LOG(kLogError, "H.264 packet refused (nbytes=%d, usec=%lld): %s", nbytes,
           static_cast<long long>(usec), zeva::av_error_text(result));
  return false;
}

}  // namespace h264
