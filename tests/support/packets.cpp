#include "packets.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace zeva_test {
namespace {

void add_start_codes(AVBSFContext* bsf, AVPacket* packet) {
  if (av_bsf_send_packet(bsf, packet) < 0 || av_bsf_receive_packet(bsf, packet) < 0) {
    throw std::runtime_error("no byte stream format");
  }
}

// 48 kHz (index 3), stereo, LC (ISO/IEC 13818-7).
std::string adts_header(int length) {
  std::string header = "\xFF\xF1\x4C\x80 \x1F\xFC";
  header[3] = static_cast<char>(2 << 6 | length >> 11);
  header[4] = static_cast<char>(length >> 3);
  header[5] = static_cast<char>((length & 7) << 5 | 0x1F);
  return header;
}

}  // namespace

SourceMovie make_source(const std::filesystem::path& file, int seconds, bool start_codes) {
  Recording recording(settings(file));
  recording.feed(0, seconds * kFps);
  recording.stop();
  AVFormatContext* ic = nullptr;
  AVBSFContext* bsf = nullptr;
  if (avformat_open_input(&ic, utf8(file).c_str(), nullptr, nullptr) < 0) return {};
  const AVCodecParameters& par = *ic->streams[0]->codecpar;
  av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &bsf);
  avcodec_parameters_copy(bsf->par_in, &par);
  av_bsf_init(bsf);
  SourceMovie movie{{}, {par.extradata, par.extradata + par.extradata_size}};
  for (AVPacket packet; av_read_frame(ic, &packet) >= 0; av_packet_unref(&packet)) {
    const AVStream& stream = *ic->streams[packet.stream_index];
    const bool video = stream.index == 0;
    if (video && start_codes) add_start_codes(bsf, &packet);
    std::string bytes = video ? "" : adts_header(packet.size + 7);
    bytes.append(packet.data, packet.data + packet.size);
    movie.packets.push_back(
        {video, av_rescale_q(packet.pts, stream.time_base, {1, 1000000}), bytes});
  }
  av_bsf_free(&bsf);
  avformat_close_input(&ic);
  return movie;
}

bool PacketRecording::write(HostPacket packet) {
  const auto write_packet = packet.video ? ZEVA2_write_video_packet : ZEVA2_write_audio_packet;
  return write_packet(handle, packet.bytes.data(), static_cast<int>(packet.bytes.size()),
                      packet.usec);
}

std::vector<int> PacketRecording::stop() {
  ZEVA2_stop(&handle);
  EXPECT_EQ(handle, nullptr);
  const std::lock_guard<std::mutex> lock(mutex);
  stopped = true;
  return codes;
}

void PacketRecording::on_status(int code, const char* message, void* user) {
  auto& self = *static_cast<PacketRecording*>(user);
  const std::lock_guard<std::mutex> lock(self.mutex);
  EXPECT_FALSE(self.stopped) << "told after the stop: " << message;
  self.codes.push_back(code);
}

}  // namespace zeva_test
