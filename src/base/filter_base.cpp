#include "zeva/record.h"

FilterBase::~FilterBase() = default;

AVFrame* FilterBase::filter(AVFrame* frame) { return frame; }

void FilterBase::filter(AVPacket* /*packet*/) {}
