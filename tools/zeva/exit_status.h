// How the command ends.
#pragma once

namespace zeva_tool {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitPartly = 3;  // something was brought back, but not all of it

}  // namespace zeva_tool
