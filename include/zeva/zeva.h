// Everything a host needs of ZEVALib: log control, classic recording and repair.
#pragma once

#include "zeva/log.h"         // IWYU pragma: export
#include "zeva/movie_info.h"  // IWYU pragma: export
#include "zeva/record.h"      // IWYU pragma: export
#include "zeva/repair.h"      // IWYU pragma: export
