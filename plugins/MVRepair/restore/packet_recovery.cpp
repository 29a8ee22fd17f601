#include "packet_recovery.h"

#include <algorithm>
#include <cstring>

namespace zeva {
namespace {

// FFmpeg's muxer writes four-byte lengths when it converts byte streams.
constexpr int kLengthBytes = 4;

}  // namespace

void PacketRecovery::close() {
  movie.close();
  bytes.reset();
  capacity = 0;
}

void PacketRecovery::begin(const IndexStreams& described) {
  streams = {};
  zeros_are_lost = true;
  bytes_in_holes = 0;
  for (size_t i = 0; i < described.list.size(); ++i) {
    Stream& stream = streams[i];
    stream.pictures = described.list[i] == AVMEDIA_TYPE_VIDEO;
    const std::string& codec = stream.pictures ? described.video.codec : described.audio.codec;
    stream.zeros = zero_rule(codec);
    stream.codec = codec;
    stream.channels = described.audio.channels;
    // A recording that knew no parameter sets had its packets written as they were.
    stream.has_lengths = stream.pictures && codec == "h264" && !described.video.ev.empty();
    zeros_are_lost = zeros_are_lost && stream.zeros == ZeroRule::kNotABlock;
  }
}

PacketRecovery::Fate PacketRecovery::take(const IndexedPacket& packet) {
  const bool inside = movie.holds(packet.position, packet.size);
  if (inside && !reserve(packet.size)) return Fate::kNoMemory;
  result = movie.read(packet.position, packet.size, bytes.get());
  if (!inside || result.count < packet.size) {
    return movie.at_end() ? Fate::kBehindEnd : Fate::kUnreadable;
  }
  memset(bytes.get() + packet.size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
  notice_hole(packet);
  if (packet.stream_index < 0 || packet.stream_index >= kIndexMaxStreams) return Fate::kRecovered;
  Stream& stream = streams[static_cast<size_t>(packet.stream_index)];
  if (is_lost(stream, packet)) {
    stream.awaits_key = stream.pictures;
    return Fate::kLost;
  }
  stream.awaits_key = stream.awaits_key && !packet.key;
  return stream.awaits_key ? Fate::kDependent : Fate::kRecovered;
}

void PacketRecovery::pass_over(const IndexedPacket& packet) {
  movie.pass_over(packet.position, packet.size);
  notice_hole(packet);
}

// The packets that have no record may have been pictures.
void PacketRecovery::notice_hole(const IndexedPacket& packet) {
  if (packet.skipped_bytes <= 0 || !movie.holds(packet.position, packet.size)) return;
  bytes_in_holes += packet.skipped_bytes;
  for (Stream& stream : streams) stream.awaits_key = stream.pictures;
}

bool PacketRecovery::is_lost(const Stream& stream, const IndexedPacket& packet) {
  if (packet.size == 0 || stream.zeros == ZeroRule::kNone) return false;
  if (is_all_zero(bytes.get(), packet.size)) return true;
  if (!is_plausible(stream.codec, stream.channels, bytes.get(), packet.size)) return true;
  if (stream.zeros == ZeroRule::kNotABlock && touches_lost_block(stream, packet)) return true;
  return stream.has_lengths && !is_whole_avc(bytes.get(), packet.size, kLengthBytes);
}

bool PacketRecovery::touches_lost_block(const Stream& stream, const IndexedPacket& packet) {
  const int64_t end = packet.position + packet.size;
  const int64_t first = packet.position - packet.position % kLostBlockBytes;
  for (int64_t block = first; block < end; block += kLostBlockBytes) {
    const bool inside = block >= packet.position && block + kLostBlockBytes <= end;
    const bool lost = inside ? is_all_zero(bytes.get() + (block - packet.position), kLostBlockBytes)
                             : is_lost_edge(stream, packet, block);
    if (lost) return true;
  }
  return false;
}

// A block shared with neighbouring packets was lost only if all of it is zero. No NAL unit ends in
// more zeros than an encoder pads with, so there its own part is enough.
bool PacketRecovery::is_lost_edge(const Stream& stream, const IndexedPacket& packet,
                                  int64_t block) {
  constexpr int64_t kPaddingBytes = 16;
  const int64_t begin = std::max(block, packet.position);
  const int64_t end = std::min(block + kLostBlockBytes, packet.position + packet.size);
  if (!is_all_zero(bytes.get() + (begin - packet.position), end - begin)) return false;
  if (stream.has_lengths && end - begin > kPaddingBytes) return true;
  return zeros_are_lost && movie.is_zero_block(block);
}

bool PacketRecovery::reserve(int32_t size) {
  if (bytes != nullptr && size <= capacity) return true;
  void* grown = av_realloc(bytes.get(), static_cast<size_t>(size) + AV_INPUT_BUFFER_PADDING_SIZE);
  if (grown == nullptr) return false;
  (void)bytes.release();  // av_realloc has taken it
  bytes.reset(static_cast<uint8_t*>(grown));
  capacity = size;
  return true;
}

}  // namespace zeva
