// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/DrmDisplayInfo.h"

#include "platform/linux/kernel/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <vector>

namespace meridal {

namespace {

// The kernel's interface to DRM devices (include/uapi/drm/drm.h), as far as it is used here: a stable part of the
// system-call interface whose header is not installed with the C library's everywhere.
constexpr std::uint32_t relative = 1;   // _DRM_VBLANK_RELATIVE
constexpr std::uint32_t crtcShift = 1;  // _DRM_VBLANK_HIGH_CRTC_SHIFT
constexpr std::uint32_t crtcCount = 32; // what the five bits of _DRM_VBLANK_HIGH_CRTC_MASK hold

struct BlankRequest {
    std::uint32_t type;
    std::uint32_t sequence;
    unsigned long signal;
};
struct BlankReply {
    std::uint32_t type;
    std::uint32_t sequence;
    long seconds;
    long microseconds;
};
union WaitBlank {
    BlankRequest request;
    BlankReply reply;
};
constexpr unsigned long waitBlank = _IOWR('d', 0x3a, WaitBlank);  // DRM_IOCTL_WAIT_VBLANK
constexpr unsigned long dropMaster = _IO('d', 0x1f);              // DRM_IOCTL_DROP_MASTER
constexpr unsigned long authenticate = _IOW('d', 0x11, unsigned); // DRM_IOCTL_AUTH_MAGIC

/// Only a card's master is let into this call, which then finds nobody with the number 0.
bool isMasterOf(const Descriptor& card)
{
    unsigned nobody = 0;
    return ::ioctl(card.get(), authenticate, &nobody) == 0 || errno == EINVAL;
}

/// Keeps the cards open: closing the last descriptor of a card makes the kernel set the text console up again.
class Cards {
public:
    explicit Cards(std::filesystem::path folder) : folder_(std::move(folder)) { }

    std::optional<VerticalBlank> read()
    {
        if (active_) {
            if (const auto blank = ask(active_->card, active_->crtc)) {
                return blank;
            }
            active_.reset();
        }
        openCards();
        for (std::size_t card = 0; card < cards_.size(); ++card) {
            for (std::uint32_t crtc = 0; crtc < crtcCount; ++crtc) {
                if (const auto blank = ask(card, crtc)) {
                    active_ = Display{card, crtc};
                    return blank;
                }
            }
        }
        return std::nullopt;
    }

private:
    struct Display {
        std::size_t card;
        std::uint32_t crtc;
    };

    void openCards()
    {
        constexpr int most = 16;
        if (!cards_.empty() || isInTheWay_) {
            return;
        }
        for (int number = 0; number < most; ++number) {
            Descriptor card(::open((folder_ / ("card" + std::to_string(number))).c_str(), O_RDWR | O_CLOEXEC));
            if (card) {
                // Whoever opens a card first is its master, whom a display server could not take the place of.
                ::ioctl(card.get(), dropMaster, 0);
                if (isMasterOf(card)) { // before Linux 5.8 only CAP_SYS_ADMIN gives that up; closing it does
                    isInTheWay_ = true;
                } else {
                    cards_.push_back(std::move(card));
                }
            }
        }
    }

    /// Asks for the counter as it stands: zero blanks from now is answered at once. A CRTC that is off, or is not
    /// there, fails.
    std::optional<VerticalBlank> ask(std::size_t card, std::uint32_t crtc) const
    {
        WaitBlank wait{.request = {.type = relative | crtc << crtcShift, .sequence = 0, .signal = 0}};
        if (::ioctl(cards_[card].get(), waitBlank, &wait) != 0) {
            return std::nullopt;
        }
        return VerticalBlank{
            .display = card * crtcCount + crtc,
            .count = wait.reply.sequence,
            .time = static_cast<double>(wait.reply.seconds) + static_cast<double>(wait.reply.microseconds) / 1e6,
        };
    }

    std::filesystem::path folder_;
    std::vector<Descriptor> cards_;
    bool isInTheWay_ = false; ///< would keep a display server away: not to be tried again
    std::optional<Display> active_;
};

} // namespace

DrmDisplayInfo::DrmDisplayInfo(const std::filesystem::path& root)
    : readBlank_([cards = std::make_shared<Cards>(root / "dev/dri")] { return cards->read(); })
{
}

DrmDisplayInfo::DrmDisplayInfo(ReadBlank readBlank) : readBlank_(std::move(readBlank)) { }

std::optional<double> DrmDisplayInfo::frameRate()
{
    const auto last = last_;
    last_ = readBlank_();
    constexpr double longest = 3; // s: what was shown before is not shown now
    if (!last || !last_ || last->display != last_->display || last_->time <= last->time
        || last_->time > last->time + longest) {
        return std::nullopt;
    }
    constexpr std::uint32_t half = 1U << 31;
    const std::uint32_t frames = last_->count - last->count; // right across the wrap
    if (frames >= half) {                                    // the counter began again
        return std::nullopt;
    }
    return static_cast<double>(frames) / (last_->time - last->time);
}

} // namespace meridal
