// Pictures of any size, the large ones by more than one thread.
#pragma once

#include <memory>
#include <vector>

#include "av_handles.h"
#include "picture_converter.h"
#include "thread_team.h"

namespace zeva {

// A PictureConverter that divides pictures of more than 1080 lines into bands of rows, one for each
// thread, where every step of the conversion goes row by row. The result is the same. Owns its
// threads, which live as long as it does. Used by one thread at a time.
class BandConverter {
 public:
  static constexpr int kMostBands = 4;

  // `threads` is that of the processor unless told.
  bool configure(const PictureFormat& from, const PictureFormat& to, int threads = usual_threads());
  void convert(const AVFrame& in, AVFrame& out);

  const PictureFormat& source() const { return from; }
  int bands() const { return static_cast<int>(parts.size()); }

 private:
  struct Band {
    int first_row = 0;
    PictureConverter converter;
    FramePtr in;
    FramePtr out;
  };

  static int usual_threads();
  bool divide(const PictureFormat& to, int threads);

  PictureFormat from;
  std::vector<Band> parts;
  std::unique_ptr<ThreadTeam> team;
};

}  // namespace zeva
