#include "packet_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

extern "C" {
#include <libavformat/avformat.h>
}

#include "elementary.h"
#include "recording.h"

namespace zeva_test {

SourceMovie make_source(int seconds, bool start_codes) {
  Recording recording(settings(work_file("source.mp4")));
  recording.feed(0, seconds * kFps);
  recording.stop();
  AVFormatContext* ic = nullptr;
  AVBSFContext* bsf = nullptr;
  avformat_open_input(&ic, utf8(work_file("source.mp4")).c_str(), nullptr, nullptr);
  const AVCodecParameters& par = *ic->streams[0]->codecpar;
  av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &bsf);
  avcodec_parameters_copy(bsf->par_in, &par);
  av_bsf_init(bsf);
  SourceMovie movie{{}, {par.extradata, par.extradata + par.extradata_size}};
  for (AVPacket packet; av_read_frame(ic, &packet) >= 0; av_packet_unref(&packet)) {
    const bool video = packet.stream_index == 0;
    const AVRational time_base = ic->streams[packet.stream_index]->time_base;
    if (video && start_codes) av_bsf_send_packet(bsf, &packet), av_bsf_receive_packet(bsf, &packet);
    std::string bytes = video ? "" : adts_header(packet.size);
    bytes.append(packet.data, packet.data + packet.size);
    movie.packets.push_back({video, av_rescale_q(packet.pts, time_base, {1, 1000000}), bytes});
  }
  av_bsf_free(&bsf);
  avformat_close_input(&ic);
  return movie;
}

MovieInfo2 packet_settings(const std::string& url) {
  MovieInfo2 info{};
  set_text(info.url, url);
  info.vcodec = kPacketVideoH264;
  info.acodec = kPacketAudioAac;
  return info;
}

bool PacketRecording::write(HostPacket packet) {
  const auto write_packet = packet.video ? ZEVA2_write_video_packet : ZEVA2_write_audio_packet;
  return write_packet(handle, packet.bytes.data(), static_cast<int>(packet.bytes.size()),
                      packet.usec);
}

bool PacketRecording::wait_for(int code) {
  std::unique_lock<std::mutex> lock(mutex);
  return told.wait_for(lock, std::chrono::seconds(15),
                       [&] { return std::find(codes.begin(), codes.end(), code) != codes.end(); });
}

std::vector<int> PacketRecording::stop() {
  ZEVA2_stop(&handle);
  const std::lock_guard<std::mutex> lock(mutex);
  stopped = true;
  return codes;
}

void PacketRecording::on_status(int code, const char* message, void* user) {
  auto& self = *static_cast<PacketRecording*>(user);
  const std::lock_guard<std::mutex> lock(self.mutex);
  EXPECT_FALSE(self.stopped) << "told after the stop: " << message;
  self.codes.push_back(code);
  self.told.notify_all();
}

}  // namespace zeva_test
