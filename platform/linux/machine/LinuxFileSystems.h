// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"
#include "platform/host/FileSystems.h"
#include "platform/linux/kernel/KeptFile.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace meridal {

/// The mount table and what each file system says of itself, asked where it may hang: one that has not answered yet is
/// not asked again.
class LinuxFileSystems final : public FileSystems {
public:
    LinuxFileSystems(const std::filesystem::path& root, std::unique_ptr<SlowWork> work);
    ~LinuxFileSystems() override;

    std::vector<FileSystemRecord> read() override;

private:
    struct Answer;

    const std::filesystem::path root_;
    KeptFile table_;
    KeptFile systemTable_; ///< of the machine's first process
    std::unique_ptr<SlowWork> work_;
    std::map<std::string, std::shared_ptr<Answer>> underWay_; ///< by mount point
};

} // namespace meridal
