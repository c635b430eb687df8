// SPDX-License-Identifier: Apache-2.0
#include "base/SlowWork.h"
#include "platform/formats/AskedAside.h"
#include "platform/macos/kernel/SystemCallback.h"
#include "platform/macos/machine/MacAdapters.h"

#include <CoreGraphics/CGBase.h>
#include <dlfcn.h>

#include <array>
#include <cstdint>
#include <utility>

namespace meridal {

namespace {

using MainConnection = int (*)();
using PerformanceData = std::int32_t (*)(int connection, CGFloat*, CGFloat*, CGFloat*, CGFloat*);

struct Functions {
    MainConnection mainConnection = nullptr;
    PerformanceData performanceData = nullptr;
};

/// Opened at the first question only: drawing libraries have no place in a daemon that nobody asks for a frame rate.
const Functions& functions()
{
    static const Functions found = [] {
        Functions result;
        if (void* library = dlopen("/System/Library/Frameworks/CoreGraphics.framework/CoreGraphics", RTLD_LAZY)) {
            result.mainConnection = reinterpret_cast<MainConnection>(dlsym(library, "CGSMainConnectionID"));
            result.performanceData = reinterpret_cast<PerformanceData>(dlsym(library, "CGSGetPerformanceData"));
        }
        return result;
    }();
    return found;
}

/// The window server answers from another process, when it has the time.
std::optional<double> readFrameRate(Limitations& limitations)
{
    const auto refuse = [&limitations](const char* reason) -> std::optional<double> {
        limitations.set("frame-rate", reason);
        return std::nullopt;
    };
    if (!functions().mainConnection || !functions().performanceData) {
        return refuse("this system has no performance data of the window server");
    }
    const int connection = functions().mainConnection();
    if (connection == 0) {
        return refuse("no connection to the window server: the daemon runs outside of any login session");
    }
    std::array<CGFloat, 4> figures{}; // the frame rate, then three of unknown meaning
    if (functions().performanceData(connection, &figures[0], &figures[1], &figures[2], &figures[3]) != 0) {
        return refuse("the window server gave no performance data");
    }
    constexpr double highestCredible = 1'000;
    if (!(figures[0] >= 0 && figures[0] <= highestCredible)) {
        return refuse("the window server's performance data made no sense");
    }
    limitations.clear("frame-rate");
    return figures[0];
}

class WindowServerDisplayInfo final : public DisplayInfo {
public:
    WindowServerDisplayInfo(std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work)
        : rate_(
            std::move(work),
            [limitations = std::move(limitations)] {
                std::optional<double> rate;
                runCallback([&] { rate = readFrameRate(*limitations); });
                return rate;
            },
            false)
    {
    }
    std::optional<double> frameRate() override { return rate_.ask().value_or(std::nullopt); }

private:
    AskedAside<std::optional<double>> rate_;
};

} // namespace

std::unique_ptr<DisplayInfo> makeWindowServerDisplayInfo(
    std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work)
{
    return std::make_unique<WindowServerDisplayInfo>(std::move(limitations), std::move(work));
}

} // namespace meridal
