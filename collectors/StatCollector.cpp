// SPDX-License-Identifier: Apache-2.0
#include "collectors/StatCollector.h"

#include "collectors/StatCollectorItem.h"
#include "platform/Context.h"

#include <algorithm>
#include <utility>

namespace meridal {

StatCollector::StatCollector(Context& context, std::string description)
    : context_(context)
    , description_(std::move(description))
    , updaterFinishBlock_([](StatCollector& collector) { collector.notifyUpdated(); })
    , queue_(context.runtime.makeSerialQueue(description_))
    , session_(static_cast<std::int64_t>(context.runtime.wallTime()))
{
}

StatCollector::~StatCollector()
{
    for (const auto& item : items_) {
        item->setParent(nullptr);
    }
}

void StatCollector::cleanup()
{
    stopped_ = true;
    cleanedUp_ = true;
    clock_.end();
    std::fill(delegates_.begin(), delegates_.end(), nullptr);
    if (notifying_ == 0) {
        delegates_.clear();
    }
    if (!measuring_) {
        queue_.reset();
    }
}

// Hooks: what the base does where a subclass has nothing to add.

void StatCollector::updateStats() { }
void StatCollector::updateStatsForSequence(std::int64_t) { updateStats(); }
bool StatCollector::threadedUpdating() const { return false; }
void StatCollector::updateHistory() { }
double StatCollector::updateFrequencyForVersion(std::int64_t) const { return 2.0; }
std::optional<Dictionary> StatCollector::overview() { return std::nullopt; }
std::shared_ptr<StatCollectorItem> StatCollector::makeItem() { return nullptr; }

void StatCollector::sort()
{
    // Asked the other way round, the base comparison (which keeps every pair) puts no item before another.
    std::stable_sort(items_.begin(), items_.end(),
        [](const auto& first, const auto& second) { return second->sort(*first) == std::weak_ordering::greater; });
}

// Delegates

template <typename Call>
void StatCollector::forEachDelegate(Call call)
{
    // Delegates come and go inside the calls: those added meanwhile wait for the next notification, those removed leave
    // a null behind that the outermost notification sweeps away.
    ++notifying_;
    const std::size_t count = delegates_.size();
    for (std::size_t index = 0; index < count; ++index) {
        if (delegates_[index]) {
            call(*delegates_[index]);
        }
    }
    if (--notifying_ == 0) {
        std::erase(delegates_, nullptr);
    }
}

void StatCollector::addDelegate(StatCollectorDelegate& delegate)
{
    if (!cleanedUp_ && std::find(delegates_.begin(), delegates_.end(), &delegate) == delegates_.end()) {
        delegates_.push_back(&delegate);
    }
}

void StatCollector::removeDelegate(StatCollectorDelegate& delegate)
{
    std::replace(delegates_.begin(), delegates_.end(), &delegate, static_cast<StatCollectorDelegate*>(nullptr));
    if (notifying_ == 0) {
        std::erase(delegates_, nullptr);
    }
}

bool StatCollector::shouldUpdateStateForSequence(std::int64_t sequence)
{
    bool anybody = false;
    bool wanted = false;
    forEachDelegate([&](StatCollectorDelegate& delegate) {
        anybody = true;
        wanted = wanted || delegate.collectorShouldUpdateStateForSequence(*this, sequence).value_or(false);
    });
    return wanted || !anybody;
}

void StatCollector::itemLoadedValues(StatCollectorItem& item)
{
    forEachDelegate([&](StatCollectorDelegate& delegate) { delegate.collectorLoadedValueForItem(*this, item); });
}

void StatCollector::tellChildrenChanged()
{
    forEachDelegate([this](StatCollectorDelegate& delegate) { delegate.collectorChildrenChanged(*this); });
}

void StatCollector::notifyUpdated()
{
    const auto notify = [this] {
        forEachDelegate([this](StatCollectorDelegate& delegate) { delegate.collectorUpdatedForMode(*this, 0); });
    };
    if (threadedUpdating()) {
        context_.runtime.mainQueue().post(lifetime_.guard(notify));
    } else {
        notify();
    }
}

// Items

std::shared_ptr<StatCollectorItem> StatCollector::itemWithKey(std::string_view key, Temporary temporary)
{
    const auto match = std::find_if(items_.begin(), items_.end(),
        [&](const auto& item) { return item->key() == key && (temporary == Temporary::Yes || !item->temporary()); });
    if (match != items_.end()) {
        return *match;
    }
    if (temporary == Temporary::No) {
        return nullptr;
    }
    const auto item = newItemWithKey(key);
    if (item) {
        item->setTemporary(true);
    }
    return item;
}

std::shared_ptr<StatCollectorItem> StatCollector::itemWithKey(std::int64_t key, Temporary temporary)
{
    return itemWithKey(std::to_string(key), temporary);
}

std::shared_ptr<StatCollectorItem> StatCollector::newItemWithKey(std::string_view key)
{
    const auto match = std::find_if(items_.begin(), items_.end(), [&](const auto& item) { return item->key() == key; });
    if (match != items_.end()) {
        (*match)->setTemporary(false);
        return *match;
    }
    auto item = makeItem();
    if (item) {
        item->config().update(config_);
        item->setKey(std::string(key));
        item->setTemporary(false);
        item->setParent(this);
        items_.push_back(item);
    }
    return item;
}

bool StatCollector::removeOldItems()
{
    return std::erase_if(items_, [](const auto& item) {
        if (item->exists()) {
            return false;
        }
        item->setParent(nullptr); // somebody may still hold it
        return true;
    }) > 0;
}

namespace {

/// The keys of a "|"-separated set without one of them.
std::string keysWithout(std::string_view keys, std::string_view removed)
{
    std::string rest;
    while (!keys.empty()) {
        const std::string_view key = keys.substr(0, keys.find('|'));
        keys.remove_prefix(std::min(keys.size(), key.size() + 1));
        if (!key.empty() && key != removed) {
            rest.append(rest.empty() ? "" : "|").append(key);
        }
    }
    return rest;
}

} // namespace

void StatCollector::addSelectionKeyItem(std::string_view key)
{
    const std::string present = '|' + selectionKey_.value_or("") + '|';
    if (key.empty() || present.find('|' + std::string(key) + '|') != std::string::npos) {
        return;
    }
    selectionKey_ =
        selectionKey_ && !selectionKey_->empty() ? *selectionKey_ + '|' + std::string(key) : std::string(key);
}

void StatCollector::removeSelectionKeyItem(std::string_view key)
{
    std::string rest = keysWithout(selectionKey_.value_or(""), key);
    selectionKey_ = rest.empty() ? std::nullopt : std::optional(std::move(rest));
}

} // namespace meridal
