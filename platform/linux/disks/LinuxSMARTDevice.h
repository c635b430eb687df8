// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Disks.h"
#include "platform/linux/disks/DiskHelper.h"
#include "platform/linux/kernel/RootFolder.h"

#include <optional>
#include <string>

namespace meridal {

/// A disk that meridal-disks asks for us (DiskReader is what does it there). What would change a disk cannot be asked for.
class LinuxSMARTDevice final : public SMARTDevice {
public:
    LinuxSMARTDevice(RootFolder root, const DiskRecord& disk, DiskHelperPlace helper, bool insist);

    DiskPower powerMode() override;
    bool open() override { return true; }
    void close() override { helper_.stop(); }
    bool isDenied() const override;
    std::string driveDatabase() const override;

    bool enableOperations(bool) override { return false; }
    bool enableAutosave(bool) override { return false; }
    std::optional<bool> isFailing() override;
    std::optional<SMARTPage> readData() override { return readPage(DiskVerb::Page, DiskPage::Data); }
    std::optional<SMARTPage> readThresholds() override { return readPage(DiskVerb::Page, DiskPage::Thresholds); }
    std::optional<SMARTPage> identify() override { return readPage(DiskVerb::Identify); }
    std::optional<SMARTPage> readHealthLog() override { return readPage(DiskVerb::Page, DiskPage::Health); }
    std::optional<SMARTPage> identifyController() override { return readPage(DiskVerb::Identify); }

private:
    DiskReply ask(DiskVerb verb, DiskPage page = DiskPage::None);
    std::optional<SMARTPage> readPage(DiskVerb verb, DiskPage page = DiskPage::None) { return ask(verb, page).page; }

    RootFolder root_;
    DiskHelper helper_;
    bool spins_;
    bool insist_;
    bool shortCommands_ = false;
    int error_ = 0; ///< of what it was asked last
};

} // namespace meridal
