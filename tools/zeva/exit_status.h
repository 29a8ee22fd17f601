// How the command ends.
#pragma once

namespace zeva_tool {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

}  // namespace zeva_tool
