#pragma once

#include "platform/host/Registry.h"
#include "platform/host/SMARTDevice.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// A registry that a test writes by hand.
class FakeRegistryEntry final : public RegistryEntry {
public:
    explicit FakeRegistryEntry(std::string path, std::shared_ptr<const FakeRegistryEntry> above = nullptr)
        : path_(std::move(path)), parent_(std::move(above))
    {
    }
    std::string path() const override { return path_; }
    Value property(std::string_view key) const override
    {
        const Value* value = find(properties, key);
        return value ? *value : Value();
    }
    Value searchChildren(std::string_view key) const override
    {
        const Value* below = find(children, key);
        return below ? *below : property(key);
    }
    RegistryEntryPtr parent() const override { return parent_; }

    Value properties = Value::object();
    Value children = Value::object(); ///< what a search below finds

private:
    std::string path_;
    std::shared_ptr<const FakeRegistryEntry> parent_;
};

class FakeRegistry final : public Registry {
public:
    std::vector<RegistryEntryPtr> entriesWithTrue(std::string_view property) override
    {
        ++searches;
        std::vector<RegistryEntryPtr> found;
        for (const auto& entry : entries) {
            if (entry->property(property) == true) {
                found.push_back(entry);
            }
        }
        return found;
    }
    std::unique_ptr<Observation> observeDisks(std::function<void()> changed) override
    {
        const auto place = observers.insert(observers.end(), std::move(changed));
        return std::make_unique<Ending>(*this, place);
    }
    void announce()
    {
        for (const auto& observer : observers) {
            observer();
        }
    }

    std::vector<std::shared_ptr<FakeRegistryEntry>> entries;
    std::list<std::function<void()>> observers;
    int searches = 0;

private:
    struct Ending final : Observation {
        Ending(FakeRegistry& owner, std::list<std::function<void()>>::iterator place)
            : registry(owner), entry(place) { }
        ~Ending() override { registry.observers.erase(entry); }
        FakeRegistry& registry;
        std::list<std::function<void()>>::iterator entry;
    };
};

/// A disk that answers as a test tells it, and counts what it is asked. Lives on in the hands of those who talk to it.
struct FakeDisk {
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
        int sum = 0;
        for (const auto& [name, count] : asked) {
            sum += count;
        }
        return sum;
    }
    /// Questions that would spin it up.
    int wakingQuestions() const
    {
        const auto harmless = asked.find("powerMode");
        return questions() - (harmless == asked.end() ? 0 : harmless->second);
    }
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

/// Disks by the path of their registry entry; others have no health interface.
class FakeSMARTDevices final : public SMARTDevices {
public:
    std::unique_ptr<SMARTDevice> deviceForEntry(const RegistryEntry& entry, SMARTKind) override
    {
        const auto found = disks.find(entry.path());
        return found == disks.end() ? nullptr : std::make_unique<FakeSMARTDevice>(found->second);
    }
    std::map<std::string, std::shared_ptr<FakeDisk>> disks;
};

} // namespace meridal::test
