#include "known_movie.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavformat/avformat.h>
}

namespace zeva_test {
namespace {

struct InputDeleter {
  void operator()(AVFormatContext* ic) const { avformat_close_input(&ic); }
};

std::string describe(const AVStream& stream) {
  const AVCodecParameters& par = *stream.codecpar;
  std::ostringstream text;
  text << avcodec_get_name(par.codec_id) << ' ' << par.width << 'x' << par.height << ' '
       << par.sample_rate << ' ' << par.channels << ' ' << stream.time_base.num << '/'
       << stream.time_base.den << ' '
       << std::string(reinterpret_cast<char*>(par.extradata),
                      static_cast<size_t>(par.extradata_size));
  return text.str();
}

bool same(const MoviePacket& a, const MoviePacket& b, int64_t shift) {
  return a.pts == b.pts + shift && a.dts == b.dts + shift && a.key == b.key && a.bytes == b.bytes;
}

// An MP4 whose track begins late tells when only to the millisecond. One whose sound is nothing but
// priming, or whose pictures are one that is decoded before 0, does not tell at all.
int64_t allowed_shift(const MovieTrack& track, const MovieTrack& known) {
  const MoviePacket& first = track.packets.front();
  const bool lone = track.packets.size() == 1 && known.packets.front().dts < 0;
  if (lone || (track.packets.size() <= known.packets.size() &&
               known.packets[track.packets.size() - 1].pts < 0)) {
    return first.pts - known.packets.front().pts;
  }
  const size_t space = known.description.rfind('/');
  const int64_t millisecond = std::atoll(known.description.c_str() + space + 1) / 1000 + 1;
  for (size_t i = 1; i < known.packets.size(); ++i) {
    const int64_t shift = first.pts - known.packets[i].pts;
    if (std::abs(shift) <= millisecond && same(first, known.packets[i], shift)) return shift;
  }
  return 0;
}

// How many bytes of `right` are zero instead; 0 when that is not the only difference.
size_t holes(const std::string& bytes, const std::string& right) {
  if (bytes.size() != right.size()) return 0;
  size_t count = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == right[i]) continue;
    if (bytes[i] != 0) return 0;
    ++count;
  }
  return count;
}

std::string match_track(const MovieTrack& track, const MovieTrack& known, std::vector<bool>& found,
                        size_t& hole_bytes) {
  found.assign(known.packets.size(), false);
  if (track.packets.empty()) return "";
  if (track.description != known.description) return "the track's description differs";
  const bool whole = !known.packets.empty() && same(track.packets[0], known.packets[0], 0);
  const int64_t shift = whole || known.packets.empty() ? 0 : allowed_shift(track, known);
  size_t next = 0;
  for (size_t i = 0; i < track.packets.size(); ++i) {
    const MoviePacket& packet = track.packets[i];
    const std::string name = "packet " + std::to_string(i) + " at " + std::to_string(packet.pts);
    while (next < known.packets.size() && known.packets[next].pts + shift < packet.pts) ++next;
    if (next == known.packets.size() || known.packets[next].pts + shift != packet.pts) {
      return name + " is at no packet's time";
    }
    const MoviePacket& right = known.packets[next];
    if (packet.bytes != right.bytes) {
      hole_bytes = holes(packet.bytes, right.bytes);
      return name + " has " + (hole_bytes > 0 ? std::to_string(hole_bytes) + " zeros" : "others") +
             " in place of its " + std::to_string(right.bytes.size()) + " bytes";
    }
    if (!same(packet, right, shift)) return name + " has a wrong decoding time or key flag";
    found[next++] = true;
  }
  return "";
}

}  // namespace

Movie read_movie(const std::filesystem::path& path) {
  Movie movie;
  AVFormatContext* opened = avformat_alloc_context();
  opened->flags |= AVFMT_FLAG_NOPARSE;  // packets as the container has them, not cut anew
  if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) return movie;
  const std::unique_ptr<AVFormatContext, InputDeleter> input(opened);
  const auto track_of = [&](unsigned i) -> MovieTrack& {
    return movie.tracks[input->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? 0 : 1];
  };
  for (unsigned i = 0; i < input->nb_streams; ++i) {
    track_of(i).description = describe(*input->streams[i]);
  }
  for (AVPacket packet; av_read_frame(input.get(), &packet) >= 0; av_packet_unref(&packet)) {
    track_of(static_cast<unsigned>(packet.stream_index))
        .packets.push_back(
            {packet.pts,
             packet.dts,
             (packet.flags & AV_PKT_FLAG_KEY) != 0,
             {reinterpret_cast<char*>(packet.data), static_cast<size_t>(packet.size)}});
  }
  return movie;
}

bool operator==(const Movie& a, const Movie& b) {
  for (const size_t t : {0, 1}) {
    if (a.tracks[t].description != b.tracks[t].description) return false;
    if (!std::equal(a.tracks[t].packets.begin(), a.tracks[t].packets.end(),
                    b.tracks[t].packets.begin(), b.tracks[t].packets.end(),
                    [](const MoviePacket& p, const MoviePacket& q) { return same(p, q, 0); })) {
      return false;
    }
  }
  return true;
}

Match match(const Movie& movie, const Movie& known) {
  Match result;
  for (const size_t t : {0, 1}) {
    size_t zeros = 0;
    const std::string fault = match_track(movie.tracks[t], known.tracks[t], result.found[t], zeros);
    if (fault.empty() || (!result.fault.empty() && zeros > 0)) continue;
    result.fault = std::string(t == 0 ? "pictures: " : "sound: ") + fault;
    result.hole_bytes = zeros;
  }
  return result;
}

KnownMovie::KnownMovie(const std::filesystem::path& movie_file, const std::string& index)
    : known(read_movie(movie_file)), index_text(index) {
  std::ifstream file(movie_file, std::ios::binary);
  movie_bytes.assign(std::istreambuf_iterator<char>(file), {});
  read_records();
  if (all.empty() || all.size() >= known.packets()) {
    throw std::runtime_error("the index has " + std::to_string(all.size()) + " records of " +
                             std::to_string(known.packets()) + " packets");
  }
}

// Of the index only what places the bytes: the stream, the first position and the sizes.
void KnownMovie::read_records() {
  std::vector<size_t> tracks;  // by stream number
  size_t count[2] = {0, 0};
  size_t position = 0;
  for (size_t line = 0, end; line < index_text.size(); line = end + 1) {
    end = std::min(index_text.find('\n', line), index_text.size());
    if (index_text[line] == '#') continue;
    if (index_text[line] == '{') {
      const bool sound = index_text.substr(line, end - line).find("\"audio\"") != std::string::npos;
      tracks.push_back(sound ? 1 : 0);
      continue;
    }
    for (size_t stop; (stop = index_text.find(';', line)) < end; line = stop + 1) {
      int64_t fields[3] = {};
      std::istringstream text(index_text.substr(line, stop - line));
      for (int64_t& field : fields) {
        std::string word;
        std::getline(text, word, ',');
        field = std::atoll(word.c_str());
      }
      const size_t track = tracks.at(static_cast<size_t>(fields[0]));
      if (all.empty()) position = static_cast<size_t>(fields[1]);
      const Record record{track, count[track]++, position, static_cast<size_t>(fields[2]),
                          stop + 1};
      const auto& packets = known.tracks[track].packets;
      if (record.number >= packets.size() ||
          movie_bytes.compare(position, record.size, packets[record.number].bytes) != 0) {
        throw std::runtime_error("record " + std::to_string(all.size()) +
                                 " of the index does not fit the finished movie");
      }
      position += record.size;
      all.push_back(record);
    }
  }
}

void KnownMovie::add_records_in(const std::string& index, const std::string* movie,
                                std::vector<bool>& found) const {
  const auto shorter = static_cast<ptrdiff_t>(std::min(index.size(), index_text.size()));
  const auto differs =
      std::mismatch(index.begin(), index.begin() + shorter, index_text.begin()).first;
  // A record's place follows from all those before it.
  const auto equal = static_cast<size_t>(differs - index.begin());
  for (size_t i = 0; i < all.size() && all[i].end <= equal; ++i) {
    const Record& r = all[i];
    if (movie == nullptr ||
        (r.position + r.size <= movie->size() &&
         movie->compare(r.position, r.size, movie_bytes, r.position, r.size) == 0)) {
      found[i] = true;
    }
  }
}

}  // namespace zeva_test
