// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Kernel.h"

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Power.h"

#include <dlfcn.h>

#include <cerrno>

namespace meridal::test {

Kernel& Kernel::current()
{
    static Kernel kernel;
    return kernel;
}

void Kernel::answered(const std::string& call) const
{
    if (const auto happens = meanwhile) {
        happens(call);
    }
}

SimulatedProcess* Kernel::ask(std::int32_t pid, bool ofOwnUserOnly, bool asZombie)
{
    const auto found = processes.find(pid);
    if (found == processes.end() || (found->second.status == SZOMB && !asZombie)) {
        errno = ESRCH;
        return nullptr;
    }
    if (ofOwnUserOnly && user != 0 && found->second.user != user) {
        errno = EPERM;
        return nullptr;
    }
    return &found->second;
}

std::string argumentArea(const std::string& path, const std::vector<std::string>& arguments)
{
    const auto count = static_cast<std::int32_t>(arguments.size());
    std::string area(reinterpret_cast<const char*>(&count), sizeof count);
    area += path + std::string(4, '\0');
    for (const std::string& argument : arguments) {
        area += argument + '\0';
    }
    return area + "HOME=/var/root" + '\0';
}

int refuseWith(int code)
{
    errno = code;
    return -1;
}

} // namespace meridal::test

using meridal::test::Kernel;
using meridal::test::Ledger;

extern "C" {

void* openOnMac(const char* path, int)
{
    Ledger::current().call("dlopen");
    const auto found = Kernel::current().libraries.find(path);
    return found == Kernel::current().libraries.end() ? nullptr : &found->second;
}

void* lookUpOnMac(void* library, const char* symbol)
{
    if (library == RTLD_DEFAULT) {
        return meridal::test::privatePowerCall(symbol);
    }
    const auto& symbols = *static_cast<const std::map<std::string, void*>*>(library);
    const auto found = symbols.find(symbol);
    return found == symbols.end() ? nullptr : found->second;
}
}
