// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Observers.h"
#include "platform/host/Disks.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// A disk that answers as a test tells it, and counts what it is asked. Lives on in the hands of those who talk to it.
struct FakeDisk {
    DiskRecord record;
    std::optional<std::int64_t> requests; ///< by everybody
    DiskPower power = DiskPower::Awake;
    bool supported = true;
    bool denied = false;
    std::string database;
    std::optional<bool> failing = false;
    std::optional<SMARTPage> data;
    std::optional<SMARTPage> thresholds;
    std::optional<SMARTPage> identity;
    std::optional<SMARTPage> health;
    std::optional<SMARTPage> controller;
    std::function<void()>
        beforeAnswer;                 ///< runs in each question about figures: time that passes, a plug that is pulled
    std::map<std::string, int> asked; ///< questions, by name
    int closed = 0;

    int questions() const
    {
        return std::accumulate(
            asked.begin(), asked.end(), 0, [](int sum, const auto& entry) { return sum + entry.second; });
    }
    /// Questions that would spin it up.
    int wakingQuestions() const { return questions() - (asked.contains("powerMode") ? asked.at("powerMode") : 0); }
};

class FakeSMARTDevice final : public SMARTDevice {
public:
    explicit FakeSMARTDevice(std::shared_ptr<FakeDisk> disk) : disk_(std::move(disk)) { }

    DiskPower powerMode() override
    {
        ++disk_->asked["powerMode"];
        return disk_->power;
    }
    bool open() override
    {
        ++disk_->asked["open"];
        return disk_->supported;
    }
    void close() override { ++disk_->closed; }
    bool isDenied() const override { return disk_->denied; }
    std::string driveDatabase() const override
    {
        ++disk_->asked["driveDatabase"];
        return disk_->database;
    }
    bool enableOperations(bool) override { return note("enableOperations"); }
    bool enableAutosave(bool) override { return note("enableAutosave"); }
    std::optional<bool> isFailing() override { return answer("isFailing", disk_->failing); }
    std::optional<SMARTPage> readData() override { return answer("readData", disk_->data); }
    std::optional<SMARTPage> readThresholds() override { return answer("readThresholds", disk_->thresholds); }
    std::optional<SMARTPage> identify() override { return answer("identify", disk_->identity); }
    std::optional<SMARTPage> readHealthLog() override { return answer("readHealthLog", disk_->health); }
    std::optional<SMARTPage> identifyController() override { return answer("identifyController", disk_->controller); }

private:
    bool note(const char* question)
    {
        ++disk_->asked[question];
        return true;
    }
    template <typename Answer>
    Answer answer(const char* question, const Answer& given)
    {
        note(question);
        if (const auto hook = disk_->beforeAnswer) { // a copy: it may take itself away
            hook();
        }
        return given;
    }

    std::shared_ptr<FakeDisk> disk_;
};

/// Disks that a test plugs in.
class FakeDisks final : public Disks {
public:
    std::vector<DiskRecord> disks() override
    {
        ++searches;
        std::vector<DiskRecord> found;
        for (const auto& disk : plugged) {
            found.push_back(disk->record);
        }
        return found;
    }
    std::optional<std::int64_t> requests(const DiskRecord& disk) override
    {
        const auto found = at(disk);
        return found ? found->requests : std::nullopt;
    }
    std::unique_ptr<SMARTDevice> device(const DiskRecord& disk) override
    {
        const auto found = at(disk);
        return found ? std::make_unique<FakeSMARTDevice>(found) : nullptr;
    }
    std::unique_ptr<Observation> observe(std::function<void()> changed) override
    {
        return observers.add(std::move(changed));
    }

    std::vector<std::shared_ptr<FakeDisk>> plugged;
    Observers<Observation> observers;
    int searches = 0;

private:
    std::shared_ptr<FakeDisk> at(const DiskRecord& record) const
    {
        const auto found = std::find_if(
            plugged.begin(), plugged.end(), [&](const auto& disk) { return disk->record.path == record.path; });
        return found == plugged.end() ? nullptr : *found;
    }
};

} // namespace meridal::test
