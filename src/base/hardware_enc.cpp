#include "hardware_enc.h"

#include <cstddef>
#include <mutex>
#include <tuple>
#include <unordered_map>

#include "av_error.h"
#include "av_handles.h"
#include "logger.h"

namespace zeva {
namespace {

using Key = std::tuple<int, int, int, int>;  // id, width, height, pixel format

struct KeyHash {
  size_t operator()(const Key& key) const {
    const auto [id, width, height, pix_fmt] = key;
    return static_cast<size_t>(id) * 100 +
           static_cast<size_t>(width) * static_cast<size_t>(height) + static_cast<size_t>(pix_fmt);
  }
};

struct ProbeCache {
  std::mutex mutex;
  std::unordered_map<Key, bool, KeyHash> answers;  // guarded by mutex
};

AVPixelFormat supported_format(const AVCodec& codec, int wanted) {
  if (codec.pix_fmts == nullptr) return static_cast<AVPixelFormat>(wanted);
  for (const AVPixelFormat* p = codec.pix_fmts; *p != AV_PIX_FMT_NONE; ++p) {
    if (*p == wanted) return *p;
  }
  return codec.pix_fmts[0];
}

bool opens(const HwEncoder& entry, int width, int height, int pix_fmt) {
  const AVCodec* codec = avcodec_find_encoder_by_name(entry.name);
  if (codec == nullptr) {
    ZEVA_LOG(kLogError, "--- 没有找到 '%s' 编码器", entry.name);
    return false;
  }
  const CodecContextPtr ctx(avcodec_alloc_context3(codec));
  if (!ctx) {
    ZEVA_LOG(kLogError, "--- 准备编码器'%s' 出错", entry.name);
    return false;
  }
  ctx->width = width;
  ctx->height = height;
  ctx->codec_type = codec->type;
  ctx->time_base = {1, 25};
  ctx->framerate = {25, 1};
  ctx->sample_aspect_ratio = {1, 1};
  ctx->pix_fmt = supported_format(*codec, pix_fmt);
  ctx->bit_rate = 2000000;
  const int result = avcodec_open2(ctx.get(), codec, nullptr);
  if (result < 0) {
    ZEVA_LOG(kLogError, "--- 打开编码器 '%s' 出错: %s", entry.name, av_error_text(result));
    return false;
  }
  return true;
}

}  // namespace

bool probe_hw_encoder(const HwEncoder* entry, int width, int height, int pix_fmt) {
  if (entry == nullptr || width < 4 || height < 4) return false;
  static ProbeCache cache;
  const std::lock_guard<std::mutex> lock(cache.mutex);
  const Key key{entry->id, width, height, pix_fmt};
  if (const auto known = cache.answers.find(key); known != cache.answers.end()) {
    return known->second;
  }
  const bool enabled = opens(*entry, width, height, pix_fmt);
  ZEVA_LOG(kLogError, "=== 硬件编码器 '%s' enable = %d", entry->name, enabled ? 1 : 0);
  cache.answers[key] = enabled;
  return enabled;
}

}  // namespace zeva
