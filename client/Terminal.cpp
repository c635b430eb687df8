#include "client/Terminal.h"

#include <spdlog/sinks/ansicolor_sink.h>

namespace meridal {

// spdlog's console sink already answers the question for every host; nothing is logged through it.
bool outputIsTerminal()
{
    return spdlog::sinks::ansicolor_stdout_sink_st(spdlog::color_mode::automatic).should_color();
}

} // namespace meridal
