#include "client/screen/WallClock.h"

#include <chrono>

namespace meridal {

double wallTime() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

} // namespace meridal
