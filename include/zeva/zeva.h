// Everything a host needs of ZEVALib: log control, classic recording, packet recording, repair.
#pragma once

#include "zeva/log.h"         // IWYU pragma: export
#include "zeva/movie_info.h"  // IWYU pragma: export
#include "zeva/options.h"     // IWYU pragma: export
#include "zeva/outputs.h"     // IWYU pragma: export
#include "zeva/packet.h"      // IWYU pragma: export
#include "zeva/record.h"      // IWYU pragma: export
#include "zeva/repair.h"      // IWYU pragma: export
#include "zeva/status.h"      // IWYU pragma: export
