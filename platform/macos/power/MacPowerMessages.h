#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/PowerMessages.h"

#include <memory>

namespace meridal {

/// The messages of the root power domain, delivered on the main queue. The token is the message's own argument.
class MacPowerMessages final : public PowerMessages {
public:
    explicit MacPowerMessages(std::shared_ptr<Limitations> limitations) : limitations_(std::move(limitations)) { }

    std::unique_ptr<Registration> receive(Handler handler) override;
    void allow(Token token) override;

private:
    class Receiver;

    std::shared_ptr<Limitations> limitations_;
    Receiver* receiver_ = nullptr; ///< the one that is registered
};

} // namespace meridal
