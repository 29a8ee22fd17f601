// Everything a host needs of ZEVALib: log control, classic recording, packet recording.
#pragma once

#include "zeva/log.h"         // IWYU pragma: export
#include "zeva/movie_info.h"  // IWYU pragma: export
#include "zeva/packet.h"      // IWYU pragma: export
#include "zeva/record.h"      // IWYU pragma: export
