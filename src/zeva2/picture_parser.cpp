#include "picture_parser.h"

namespace zeva {
namespace {

bool is_field(const Picture& picture) {
  return picture.structure == AV_PICTURE_STRUCTURE_TOP_FIELD ||
         picture.structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
}

bool are_fields_of_one(const Picture& first, const Picture& second) {
  return is_field(first) && is_field(second) && first.structure != second.structure;
}

}  // namespace

PictureParser::PictureParser()
    : parser(av_parser_init(AV_CODEC_ID_H264)), context(avcodec_alloc_context3(nullptr)) {
  if (!is_valid()) return;
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  context->codec_id = AV_CODEC_ID_H264;
  context->codec_type = AVMEDIA_TYPE_VIDEO;
}

std::vector<Picture> PictureParser::split(const AVPacket& packet) {
  std::vector<Picture> pictures;
  const auto size_bytes = static_cast<size_t>(packet.size);
  bool first_field = false;
  for (const AccessUnitPart& part : split_access_units(packet.data, size_bytes)) {
    if (!part.has_picture) continue;
    const Picture picture = inspect(part);
    const bool second_field = first_field && are_fields_of_one(pictures.back(), picture);
    first_field = !second_field && is_field(picture);
    if (second_field) {
      pictures.back().size_bytes += picture.size_bytes;
      continue;
    }
    pictures.push_back(picture);
  }
  return pictures;
}

Picture PictureParser::inspect(const AccessUnitPart& part) {
  uint8_t* unused = nullptr;
  int unused_bytes = 0;
  (void)av_parser_parse2(parser.get(), context.get(), &unused, &unused_bytes, part.data,
                         static_cast<int>(part.size_bytes), AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
  const bool key =
      parser->key_frame == 1 || (parser->key_frame == -1 && parser->pict_type == AV_PICTURE_TYPE_I);
  return {part.data, part.size_bytes, key, parser->picture_structure};
}

}  // namespace zeva
