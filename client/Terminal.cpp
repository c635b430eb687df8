#include "client/Terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace meridal {

bool outputIsTerminal()
{
    const char* kind = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && kind && *kind != '\0' && std::string_view(kind) != "dumb";
}

} // namespace meridal
