#include "enc_base.h"

#include "av_error.h"
#include "logger.h"

namespace zeva {

bool EncBase::write(OutputStream& ost, const char* kind) {
  ost.pkt->stream_index = ost.st->index;
  const int result = writer->write_packet(ost.enc->time_base, ost.pkt.get(), true);
  if (result < 0 && !refusing) {
    ZEVA_LOG(kLogError, "[write-packet] error while writing %s frame: ret=%d, %s", kind, result,
             av_error_text(result));
  }
  refusing = result < 0;
  return !refusing;
}

}  // namespace zeva
