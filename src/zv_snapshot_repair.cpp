// The exported functions of the repair: a guard each, no logic.
#include <exception>
#include <memory>

#include "logger.h"
#include "mv_repair.h"
#include "zeva/repair.h"

namespace {

using zeva::MvRepair;

MvRepair::Paths paths_of(const char* broken, const char* moov, const char* output) {
  const auto text = [](const char* path) { return path != nullptr ? path : ""; };
  MvRepair::Paths paths{text(broken), text(moov), text(output)};
  ZEVA_LOG(zeva::kLogDebug, "broken=%s, moov=%s, output=%s", paths.broken.c_str(),
           paths.moov.c_str(), paths.output.c_str());
  return paths;
}

}  // namespace

extern "C" {

void* ZEVA_StartRepair_Async(const char* broken, const char* moov, const char* output,
                             ZEVA_repair_callback progress, void* user) {
  try {
    auto repair = std::make_unique<MvRepair>(progress, user);
    repair->start(paths_of(broken, moov, output));
    return repair.release();
  } catch (const std::exception& e) {
    ZEVA_LOG(zeva::kLogError, "repair refused: %s", e.what());
    return nullptr;
  }
}

bool ZEVA_StartRepair_sync(const char* broken, const char* moov, const char* output,
                           ZEVA_repair_callback progress, void* user) {
  try {
    return MvRepair(progress, user).run(paths_of(broken, moov, output));
  } catch (const std::exception& e) {
    ZEVA_LOG(zeva::kLogError, "repair refused: %s", e.what());
    return false;
  }
}

void ZEVA_StopRepair(void** handle) {
  if (handle == nullptr || *handle == nullptr) return;
  std::unique_ptr<MvRepair> repair(static_cast<MvRepair*>(*handle));
  *handle = nullptr;
  if (!repair->stop()) *handle = repair.release();
}

bool ZEVA_Repair_IsRunning(void* handle) {
  return handle != nullptr && static_cast<const MvRepair*>(handle)->is_running();
}

}  // extern "C"
