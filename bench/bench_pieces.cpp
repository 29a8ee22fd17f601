// The pieces that every frame or packet passes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "av_error.h"
#include "av_handles.h"
#include "avc.h"
#include "band_converter.h"
#include "index_format.h"
#include "logger.h"
#include "packetqueue.h"
#include "picture_converter.h"
#include "resampler.h"
#include "zv_packet_queue.h"

namespace {

zeva::PacketPtr make_packet(int size_bytes) {
  zeva::PacketPtr packet(av_packet_alloc());
  av_new_packet(packet.get(), size_bytes);
  return packet;
}

constexpr zeva::PacketQueue::Limits kSixtyPackets{60};

void queue_put_get(benchmark::State& state) {
  zeva::PacketQueue queue;
  const zeva::PacketPtr packet = make_packet(4096);
  for (auto _ : state) {
    queue.put_bounded(packet.get(), kSixtyPackets, true);
    AVPacket out;
    queue.get(&out, true);
    av_packet_unref(&out);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(queue_put_get);

void queue_between_threads(benchmark::State& state) {
  zeva::PacketQueue queue;
  const zeva::PacketPtr packet = make_packet(4096);
  std::thread consumer([&queue] {
    AVPacket out;
    while (queue.get(&out, true) > 0) av_packet_unref(&out);
  });
  for (auto _ : state) queue.put_bounded(packet.get(), kSixtyPackets, true);
  queue.abort();
  consumer.join();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(queue_between_threads)->UseRealTime();

// Counters of the pool: blocks made in all, and of these after the first thousand rounds.
class PoolReport {
 public:
  PoolReport(benchmark::State& state, qel::ZVPacketQueue& queue) : state(state), queue(queue) {}
  void after_round() {
    if (++rounds == 1000) warm = queue.pool_counters().allocated;
  }
  ~PoolReport() {
    const int32_t blocks = queue.pool_counters().allocated;
    state.counters["blocks"] = blocks;
    state.counters["blocks_after_warm_up"] = rounds > 1000 ? blocks - warm : 0;
    state.SetItemsProcessed(state.iterations());
  }

 private:
  benchmark::State& state;
  qel::ZVPacketQueue& queue;
  int64_t rounds = 0;
  int32_t warm = 0;
};

// Packet sizes of a stream: a large picture, then small ones.
uint32_t packet_bytes(int64_t n) { return n % 30 == 0 ? 60000 : 8000 + n * 997 % 12000; }

void pool_alloc_release(benchmark::State& state) {
  qel::ZVPacketQueue queue;
  PoolReport report(state, queue);
  int64_t n = 0;
  for (auto _ : state) {
    qel::release_node(queue.alloc_node(packet_bytes(++n)));
    report.after_round();
  }
}
BENCHMARK(pool_alloc_release);

void node_push_pop(benchmark::State& state) {
  qel::ZVPacketQueue queue;
  PoolReport report(state, queue);
  int64_t n = 0;
  for (auto _ : state) {
    (void)queue.push(queue.alloc_node(packet_bytes(++n)), 2000, false, 50);
    qel::ZVMemNode* node = nullptr;
    (void)queue.pop(node, false, 0, true);
    qel::release_node(node);
    report.after_round();
  }
}
BENCHMARK(node_push_pop);

// A host's thread and a worker's.
void node_push_pop_between_threads(benchmark::State& state) {
  qel::ZVPacketQueue queue;
  PoolReport report(state, queue);
  std::thread reader([&queue] {
    qel::ZVMemNode* node = nullptr;
    while (queue.pop(node, true, 0, true) == qel::QueueResult::Ok && node != nullptr) {
      qel::release_node(node);
    }
  });
  int64_t n = 0;
  for (auto _ : state) {
    (void)queue.push(queue.alloc_node(packet_bytes(++n)), 100, true, 0);
    report.after_round();
  }
  (void)queue.push(nullptr, qel::kUnbounded, false, 0);
  reader.join();
}
BENCHMARK(node_push_pop_between_threads)->UseRealTime();

void index_record(benchmark::State& state) {
  char text[zeva::kIndexRecordMaxBytes];
  zeva::IndexRecord record{0, 0, 12345, 512, 0, 512, 0};
  for (auto _ : state) {
    ++record.size;
    benchmark::DoNotOptimize(zeva::format_index_record(record, text));
  }
}
BENCHMARK(index_record);

// A coded picture of one slice.
void split_access_units(benchmark::State& state) {
  std::vector<uint8_t> stream(60000);
  uint32_t random = 1;
  for (uint8_t& byte : stream) {
    byte = static_cast<uint8_t>((random = random * 1664525 + 1013904223) >> 24);
  }
  constexpr uint8_t kStart[] = {0, 0, 0, 1, 0x65, 0x88};
  std::copy(std::begin(kStart), std::end(kStart), stream.begin());
  for (auto _ : state) {
    benchmark::DoNotOptimize(zeva::split_access_units(stream.data(), stream.size()));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
}
BENCHMARK(split_access_units)->Unit(benchmark::kMicrosecond);

void log_above_threshold(benchmark::State& state) {
  for (auto _ : state) ZEVA_LOG(zeva::kLogDebug, "nb=%d, pts=%lld", 4096, 40000LL);
}
BENCHMARK(log_above_threshold);

zeva::FramePtr make_picture(AVPixelFormat format, int width, int height) {
  zeva::FramePtr frame(av_frame_alloc());
  frame->format = format;
  frame->width = width;
  frame->height = height;
  av_frame_get_buffer(frame.get(), 0);
  return frame;
}

// A conversion, by the one call of swscale that would do for it and by PictureConverter.
struct Conversion {
  AVPixelFormat pixels;
  int from_width, from_height;
  int to_width, to_height;
};

zeva::FramePtr make_noise(const Conversion& c) {
  zeva::FramePtr picture = make_picture(c.pixels, c.from_width, c.from_height);
  uint32_t state = 1;
  for (const AVBufferRef* buffer : picture->buf) {
    for (size_t i = 0; buffer != nullptr && i < static_cast<size_t>(buffer->size); ++i) {
      buffer->data[i] = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    }
  }
  return picture;
}

void convert_swscale(benchmark::State& state, const Conversion& c) {
  const zeva::FramePtr in = make_noise(c);
  const zeva::FramePtr out = make_picture(AV_PIX_FMT_YUV420P, c.to_width, c.to_height);
  const zeva::SwsPtr scaler(sws_getContext(in->width, in->height, c.pixels, out->width, out->height,
                                           AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr,
                                           nullptr));
  for (auto _ : state) {
    sws_scale(scaler.get(), in->data, in->linesize, 0, in->height, out->data, out->linesize);
  }
}

void convert_zeva(benchmark::State& state, const Conversion& c, zeva::CpuLevel level) {
  const zeva::FramePtr in = make_noise(c);
  const zeva::FramePtr out = make_picture(AV_PIX_FMT_YUV420P, c.to_width, c.to_height);
  zeva::PictureConverter converter;
  converter.configure(zeva::settle(zeva::format_of(*in)), zeva::settle(zeva::format_of(*out)),
                      level);
  for (auto _ : state) converter.convert(*in, *out);
}

// As a recording of such pictures has it, by as many threads as the processor has.
void convert_bands(benchmark::State& state, const Conversion& c) {
  const zeva::FramePtr in = make_noise(c);
  const zeva::FramePtr out = make_picture(AV_PIX_FMT_YUV420P, c.to_width, c.to_height);
  zeva::BandConverter converter;
  converter.configure(zeva::settle(zeva::format_of(*in)), zeva::settle(zeva::format_of(*out)));
  for (auto _ : state) converter.convert(*in, *out);
  state.counters["bands"] = converter.bands();
}

// Both buffers copied: the speed of memory.
void convert_memcpy(benchmark::State& state, const Conversion& c) {
  const zeva::FramePtr in = make_noise(c);
  const zeva::FramePtr out = make_picture(c.pixels, c.from_width, c.from_height);
  for (auto _ : state) av_frame_copy(out.get(), in.get());
}

void register_conversion(const Conversion& c) {
  const std::string name = std::string("/") + av_get_pix_fmt_name(c.pixels) + "/" +
                           std::to_string(c.from_height) + "/" + std::to_string(c.to_height);
  const auto add = [&name](const std::string& way, auto... arguments) {
    benchmark::RegisterBenchmark((way + name).c_str(), arguments...)->Unit(benchmark::kMicrosecond);
  };
  add("swscale", convert_swscale, c);
  add("zeva_avx2", convert_zeva, c, zeva::CpuLevel::Avx2);
  add("zeva_sse41", convert_zeva, c, zeva::CpuLevel::Sse41);
  add("zeva_plain", convert_zeva, c, zeva::CpuLevel::Plain);
  if (c.from_height != c.to_height) return;
  add("memcpy", convert_memcpy, c);
  if (c.from_height <= 1080) return;
  benchmark::RegisterBenchmark(("bands" + name).c_str(), convert_bands, c)
      ->Unit(benchmark::kMicrosecond)
      ->UseRealTime();
}

const bool kConversionsAreRegistered = [] {
  constexpr int kSizes[][4] = {{1280, 720, 1280, 720},   {1920, 1080, 1920, 1080},
                               {3840, 2160, 3840, 2160}, {1920, 1080, 1280, 720},
                               {1280, 720, 1920, 1080},  {2560, 1440, 1920, 1080},
                               {3840, 2160, 1920, 1080}};
  for (const AVPixelFormat pixels :
       {AV_PIX_FMT_BGRA, AV_PIX_FMT_RGBA, AV_PIX_FMT_BGR24, AV_PIX_FMT_RGB24, AV_PIX_FMT_NV12,
        AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUYV422, AV_PIX_FMT_P010}) {
    for (const auto& s : kSizes) {
      if (pixels == AV_PIX_FMT_YUV420P && s[1] == s[3]) continue;  // nothing to do
      register_conversion({pixels, s[0], s[1], s[2], s[3]});
    }
  }
  return true;
}();

zeva::FramePtr make_sound(AVSampleFormat format, int sample_rate, int nb_samples) {
  zeva::FramePtr frame(av_frame_alloc());
  frame->format = format;
  frame->channel_layout = AV_CH_LAYOUT_STEREO;
  frame->channels = 2;
  frame->sample_rate = sample_rate;
  frame->nb_samples = nb_samples;
  av_frame_get_buffer(frame.get(), 0);
  return frame;
}

// One 10 ms host buffer.
void resample(benchmark::State& state) {
  const auto in_rate = static_cast<int>(state.range(0));
  const zeva::FramePtr in = make_sound(AV_SAMPLE_FMT_S16, in_rate, in_rate / 100);
  const zeva::FramePtr dst = make_sound(AV_SAMPLE_FMT_FLTP, 48000, 1024);
  ZV::NxResample resampler;
  resampler.config(dst.get(), in.get(), {1, 48000});
  in->pts = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(resampler.resample(in.get(), &zeva::kMicroseconds));
    in->pts += 10000;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(resample)->Arg(48000)->Arg(44100)->Unit(benchmark::kMicrosecond);

}  // namespace
