// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/BusConnection.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <systemd/sd-bus.h>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint64_t answerPatience = 20'000'000; // µs

struct BusError {
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    std::string message(int negativeError) const
    {
        return error.message ? error.message : std::strerror(-negativeError);
    }

    sd_bus_error error = {};
};

ErrorCode codeOf(const sd_bus_error& error)
{
    const bool denied = sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED)
        || sd_bus_error_has_name(&error, SD_BUS_ERROR_AUTH_FAILED)
        || sd_bus_error_has_name(&error, "org.freedesktop.NetworkManager.PermissionDenied");
    return denied ? ErrorCode::NotPermitted : ErrorCode::Unavailable;
}

BusMessage owned(sd_bus_message* message) { return {message, &sd_bus_message_unref}; }

} // namespace

int openBus(const std::string& address, sd_bus** bus)
{
    if (address.empty()) {
        return sd_bus_open_system(bus);
    }
    int result = sd_bus_new(bus);
    if (result >= 0) {
        result = sd_bus_set_address(*bus, address.c_str());
    }
    if (result >= 0) {
        result = sd_bus_set_bus_client(*bus, 1);
    }
    return result >= 0 ? sd_bus_start(*bus) : result;
}

BusConnection::BusConnection(const std::string& address)
{
    sd_bus* bus = nullptr;
    const int result = openBus(address, &bus);
    const std::shared_ptr<sd_bus> opened(bus, &sd_bus_close_unref);
    if (result >= 0) {
        bus_ = opened;
    }
}

bool BusConnection::hasOwner(const char* service)
{
    if (!bus_) {
        return false;
    }
    sd_bus_creds* owner = nullptr;
    const int result = sd_bus_get_name_creds(bus_.get(), service, 0, &owner);
    sd_bus_creds_unref(owner);
    return result >= 0;
}

Result<BusMessage> BusConnection::call(const Method& method, const Arguments& arguments, std::string* errorName)
{
    if (!bus_) {
        return unexpected(ErrorCode::Unavailable, "the system bus is not there");
    }
    sd_bus_message* made = nullptr;
    int result = sd_bus_message_new_method_call(
        bus_.get(), &made, method.service, method.object.c_str(), method.interface, method.name);
    const BusMessage question = owned(made);
    if (result >= 0 && arguments) {
        result = arguments(*question);
    }
    if (result < 0) {
        return unexpected(ErrorCode::Internal, std::string("cannot ask over the bus: ") + std::strerror(-result));
    }
    BusError error;
    sd_bus_message* answer = nullptr;
    result = sd_bus_call(bus_.get(), question.get(), answerPatience, &error.error, &answer);
    if (result < 0) {
        if (errorName) {
            *errorName = error.error.name ? error.error.name : "";
        }
        return unexpected(codeOf(error.error), error.message(result));
    }
    return owned(answer);
}

Result<std::string> BusConnection::textProperty(const Method& property, const char* type)
{
    if (!bus_) {
        return unexpected(ErrorCode::Unavailable, "the system bus is not there");
    }
    BusError error;
    sd_bus_message* answer = nullptr;
    int result = sd_bus_get_property(bus_.get(), property.service, property.object.c_str(), property.interface,
        property.name, &error.error, &answer, type);
    const BusMessage message = owned(answer);
    const char* text = nullptr;
    if (result >= 0) {
        result = sd_bus_message_read_basic(message.get(), type[0], &text);
    }
    if (result < 0 || !text) {
        return unexpected(codeOf(error.error), error.message(result < 0 ? result : -EPROTO));
    }
    return std::string(text);
}

} // namespace meridal
