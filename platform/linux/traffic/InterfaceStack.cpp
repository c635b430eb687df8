// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/InterfaceStack.h"

#include "platform/linux/kernel/NetlinkAttributes.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace meridal {

namespace {

constexpr std::size_t dumpSize = 32 << 10; // what the kernel fills at the most in one go

double stackTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Kinds of interfaces whose packets pass through the one below unchanged. Tunnels put theirs into packets of their own,
/// and the "link" of a veth is its other end.
bool passesThrough(std::string_view kind)
{
    return kind == "vlan" || kind == "macvlan" || kind == "macvtap" || kind == "ipvlan" || kind == "ipvtap";
}

std::string kindOf(const nlattr& information)
{
    std::string kind;
    forEachNested(information, [&kind](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == IFLA_INFO_KIND) {
            kind = netlinkText(attribute);
        }
    });
    return kind;
}

/// Multicast and broadcast belong to no interface, and are counted on each.
bool isForOne(const SocketFlow& flow)
{
    const std::uint8_t first = flow.local[0];
    return flow.isIPv6 ? first != 0xFF : first < 224;
}

} // namespace

void InterfaceStack::Closer::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

InterfaceStack::InterfaceStack() = default;

InterfaceStack::~InterfaceStack() = default;

void InterfaceStack::expire(double age) { isFresh_ = isFresh_ && stackTime() - readAt_ < age; }

bool InterfaceStack::isCarried(const SocketFlow& flow)
{
    if (!isFresh_) {
        read();
    }
    const auto link = links_.find(flow.interface);
    if (link == links_.end() || !link->second.carries || !isForOne(flow)) {
        return false;
    }
    const auto& addresses = link->second.addresses;
    return std::find(addresses.begin(), addresses.end(), flow.local) == addresses.end() && isOwn(flow.local);
}

bool InterfaceStack::isForwarded(const SocketFlow& flow)
{
    if (!isFresh_) {
        read();
    }
    return isForOne(flow) && !own_.empty() && !isOwn(flow.local);
}

bool InterfaceStack::isOwn(const Address& address) const
{
    return std::find(own_.begin(), own_.end(), address) != own_.end();
}

void InterfaceStack::read()
{
    isFresh_ = true;
    readAt_ = stackTime();
    links_.clear();
    own_.clear();
    buffer_.resize(dumpSize);
    if (!dump(RTM_GETLINK, AF_UNSPEC, &InterfaceStack::readLink)
        || !dump(RTM_GETADDR, AF_UNSPEC, &InterfaceStack::readAddress)) {
        socket_.reset(); // unread answers would be taken for the next ones
    }
}

bool InterfaceStack::dump(std::uint16_t type, unsigned char family, void (InterfaceStack::*visit)(const nlmsghdr&))
{
    if (!socket_) {
        socket_.reset(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
        if (!socket_ || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
            return false;
        }
        const timeval patience{.tv_sec = 1, .tv_usec = 0};
        ::setsockopt(mnl_socket_get_fd(socket_.get()), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
    nlmsghdr& header = *mnl_nlmsg_put_header(buffer_.data());
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    static_cast<rtgenmsg*>(mnl_nlmsg_put_extra_header(&header, sizeof(rtgenmsg)))->rtgen_family = family;
    if (mnl_socket_sendto(socket_.get(), &header, header.nlmsg_len) < 0) {
        return false;
    }
    while (true) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
        if (size <= 0) {
            return false;
        }
        int left = static_cast<int>(size);
        const auto* answer = reinterpret_cast<const nlmsghdr*>(buffer_.data());
        for (; mnl_nlmsg_ok(answer, left); answer = mnl_nlmsg_next(answer, &left)) {
            if (answer->nlmsg_type == NLMSG_DONE) {
                return true;
            }
            if (answer->nlmsg_type == NLMSG_ERROR) {
                return false;
            }
            (this->*visit)(*answer);
        }
    }
}

void InterfaceStack::readLink(const nlmsghdr& header)
{
    if (mnl_nlmsg_get_payload_len(&header) < sizeof(ifinfomsg)) {
        return;
    }
    const auto& message = *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&header));
    std::uint32_t below = 0;
    bool isElsewhere = false; // the number below is one of another network namespace
    std::string kind;
    forEachAttribute<ifinfomsg>(header, [&](const nlattr& attribute) {
        const auto type = mnl_attr_get_type(&attribute);
        if (type == IFLA_MASTER && mnl_attr_validate(&attribute, MNL_TYPE_U32) >= 0) {
            links_[static_cast<std::uint32_t>(message.ifi_index)].carries = true;
        } else if (type == IFLA_LINK && mnl_attr_validate(&attribute, MNL_TYPE_U32) >= 0) {
            below = mnl_attr_get_u32(&attribute);
        } else if (type == IFLA_LINK_NETNSID) {
            isElsewhere = true;
        } else if (type == IFLA_LINKINFO) {
            kind = kindOf(attribute);
        }
    });
    if (below != 0 && !isElsewhere && passesThrough(kind)) {
        links_[below].carries = true;
    }
}

void InterfaceStack::readAddress(const nlmsghdr& header)
{
    if (mnl_nlmsg_get_payload_len(&header) < sizeof(ifaddrmsg)) {
        return;
    }
    const auto& message = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&header));
    const auto link = links_.find(message.ifa_index);
    forEachAttribute<ifaddrmsg>(header, [&](const nlattr& attribute) {
        const auto type = mnl_attr_get_type(&attribute);
        const std::size_t size = mnl_attr_get_payload_len(&attribute);
        // IPv4 has its own address in the one and the other end's in the other where they differ.
        if ((type == IFA_LOCAL || (type == IFA_ADDRESS && message.ifa_family == AF_INET6)) && size <= sizeof(Address)) {
            Address address = {};
            std::memcpy(address.data(), mnl_attr_get_payload(&attribute), size);
            own_.push_back(address);
            if (link != links_.end()) { // else nothing stands on it, so nobody will ask
                link->second.addresses.push_back(address);
            }
        }
    });
}

} // namespace meridal
