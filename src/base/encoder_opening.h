// Choosing and opening the encoders of a recording.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "enc_base.h"
#include "options.h"
#include "output_opening.h"
#include "status.h"
#include "zeva/movie_info.h"

namespace ZV {
class ZV_AVWriter;
}

namespace zeva {

// The host asked for what cannot be; `fault` names it.
Status refused(const std::string& fault);

// Takes the encoders that the host names for the streams that there are to be.
Status choose_named_codecs(const MovieInfo& info, const Options& options, ZV::ZV_AVWriter& writer,
                           CodecChoice& codecs);

// A movie without its pictures or its sound is not what the host asked for.
Status no_encoder(AVCodecID codec);
// A failure that `option` may have caused names it.
Status not_opened(const Status& opened, const std::string& option);

// Makes the encoder of a stream of `codec` and opens it. Packets go to `writer`.
template <typename Encoder>
Status open_encoder(NewStream stream, AVCodecID codec, const MovieInfo& info,
                    const std::string& option, BaseWriter& writer, const EncBase::Tell& tell,
                    std::unique_ptr<Encoder>& encoder) {
  if (!stream.fault.empty()) return refused(stream.fault);
  if (!stream.encoder) return no_encoder(codec);
  auto made = std::make_unique<Encoder>(std::move(stream), &writer, tell);
  Status opened = made->open(info);
  if (!opened.ok) return not_opened(opened, option);
  encoder = std::move(made);
  return opened;
}

}  // namespace zeva
