#include "av_error.h"

namespace zeva {

const char* av_error_text(int code) {
  thread_local char text[128];
  av_strerror(code, text, sizeof text);
  return text;
}

int release_held_buffers(AVFrame* frame, int own_refs) {
  if (frame->buf[0] == nullptr || av_buffer_get_ref_count(frame->buf[0]) <= own_refs) {
    return own_refs;
  }
  const int result = av_frame_make_writable(frame);
  return result < 0 ? result : 1;
}

}  // namespace zeva
