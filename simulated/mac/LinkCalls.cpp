// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"

#include <ifaddrs.h>
#include <net/if_dl.h>

#include <algorithm>
#include <list>
#include <memory>

using namespace meridal::test;

namespace {

/// What one answer is made of: an address for each interface, before it one of another family.
struct Links {
    struct Link {
        ifaddrs entry{};
        std::string name;
        sockaddr_dl address{};
    };
    std::list<Link> all;

    void add(const std::string& name, unsigned short family, const std::vector<std::uint8_t>& octets)
    {
        Link& link = all.emplace_back();
        link.name = name;
        link.address.sdl_family = family;
        link.address.sdl_alen = static_cast<unsigned char>(octets.size());
        std::copy(octets.begin(), octets.end(), link.address.sdl_data);
        link.entry.ifa_name = link.name.data();
        link.entry.ifa_addr = reinterpret_cast<sockaddr*>(&link.address);
    }
};

} // namespace

extern "C" {

int getifaddrs(ifaddrs** list) noexcept
{
    if (Ledger::current().call("getifaddrs")) {
        return -1;
    }
    auto links = std::make_unique<Links>();
    links->add("gone", AF_LINK, {});
    links->all.back().entry.ifa_addr = nullptr;
    for (const auto& [name, octets] : Kernel::current().links) {
        links->add(name, AF_INET, {});
        links->add(name, AF_LINK, octets);
    }
    for (auto link = links->all.begin(); std::next(link) != links->all.end(); ++link) {
        link->entry.ifa_next = &std::next(link)->entry;
    }
    links->all.front().entry.ifa_data = links.get();
    Ledger::current().opened("list of addresses");
    *list = &links.release()->all.front().entry;
    return 0;
}

void freeifaddrs(ifaddrs* list) noexcept
{
    Ledger::current().closed("list of addresses");
    delete static_cast<Links*>(list->ifa_data);
}
}
