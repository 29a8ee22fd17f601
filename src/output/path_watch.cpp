#include "path_watch.h"

#include "logger.h"
#include "zeva/status.h"

namespace zeva {

void PathWatch::look_at_movie(PathState state, const std::string& url, const Report& report) {
  if (movie_gone) return;
  movie_gone = tell("'" + url + "'", state, "the movie is finished under its new name", report);
}

void PathWatch::look_at_index(PathState state, const std::string& path, const std::string& url,
                              const Report& report) {
  if (index_gone) return;
  index_gone = tell("the index '" + path + "' of '" + url + "'", state,
                    "a repair needs it by its new name", report);
}

bool PathWatch::tell(const std::string& what, PathState state, const char* renamed,
                     const Report& report) {
  if (state == PathState::kSame) return false;
  const std::string text =
      what + (state == PathState::kDeleted
                  ? " was deleted while it is recorded: it is lost as soon as it is closed"
                  : std::string(" was renamed while it is recorded: ") + renamed);
  ZEVA_LOG(kLogError, "%s", text.c_str());
  if (report) report(kZevaStatusFileGone, text);
  return true;
}

}  // namespace zeva
