#pragma once

#include "platform/host/ProcessVisibility.h"

namespace meridal {

/// A Mac shows the process table to everybody.
class OpenProcessTable final : public ProcessVisibility {
public:
    std::optional<ProcessRestriction> restriction() override { return std::nullopt; }
    std::optional<std::uint32_t> ownerOf(std::int32_t) override { return std::nullopt; }
};

} // namespace meridal
