// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/StatCollectorBase.h"
#include "collectors/StatCollectorDelegate.h"
#include "history/SampleRecords.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

class StatCollectorItem;
struct Context;

/// Whether a look-up also finds, and where needed makes, items that serve one request.
enum class Temporary { No, Yes };

/// Base of everything that measures: items, the one-second clock, delegates, and the hooks through which a subclass
/// measures. What is to be kept over time goes to a HistoryRecorder, which a subclass that records owns.
///
/// Confined to the main queue, with one exception: with threadedUpdating(), updateStats() runs on a global queue, and
/// until it returns the items belong to it. Such a subclass serialises its own readers on queue(), and must be held by a
/// shared_ptr, which keeps it alive until a measurement in progress has ended.
class StatCollector : public StatCollectorBase, public std::enable_shared_from_this<StatCollector> {
public:
    using Updater = std::function<void(StatCollector&)>;
    using Items = std::vector<std::shared_ptr<StatCollectorItem>>;

    /// The description labels its queue.
    explicit StatCollector(Context& context, std::string description = "StatCollector");
    ~StatCollector() override;
    StatCollector(const StatCollector&) = delete;
    StatCollector& operator=(const StatCollector&) = delete;

    // Properties
    const std::string& description() const { return description_; }
    /// What a subclass says of itself; a copy goes to each item.
    Dictionary& config() { return config_; }
    const Dictionary& config() const { return config_; }
    /// Where a subclass serialises its work. Null after cleanup().
    const std::shared_ptr<Queue>& queue() const { return queue_; }
    bool enabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }
    /// Set, it ends the clock at its next turn.
    bool stopped() const { return stopped_; }
    void setStopped(bool stopped) { stopped_ = stopped; }
    /// Items came, went or changed places since a subclass last looked.
    void setChildrenChanged(bool changed) { childrenChanged_ = changed; }
    /// Whether turns of the clock are turns of the history, too.
    void setAutomaticSampleUpdates(bool automatic) { automaticSampleUpdates_ = automatic; }
    /// What a subclass calls when a measurement is finished: tells the delegates.
    const Updater& updaterFinishBlock() const { return updaterFinishBlock_; }

    // What a subclass measures and tells
    /// Measures.
    virtual void updateStats();
    /// What the clock calls; measures whatever the turn's number. Named apart from updateStats() so that overriding one
    /// does not hide the other.
    virtual void updateStatsForSequence(std::int64_t sequence);
    /// Whether the clock measures on a global queue instead of the main queue. Must not change.
    virtual bool threadedUpdating() const;
    /// Once per turn of the clock, after the measurement: for who records.
    virtual void updateHistory();
    /// Seconds between updates for a client of this protocol version.
    virtual double updateFrequencyForVersion(std::int64_t protocolVersion) const;
    /// Summary for clients.
    virtual std::optional<Dictionary> overview();
    /// A new item of the collector's kind; none in the base.
    virtual std::shared_ptr<StatCollectorItem> makeItem();
    /// Puts the items in the order of their own comparison; equal ones stay as they are.
    virtual void sort();

    // Delegates
    /// Not owned; added once however often. May be called from inside a notification.
    void addDelegate(StatCollectorDelegate& delegate);
    void removeDelegate(StatCollectorDelegate& delegate);
    /// One delegate that says yes is enough. Without any delegate it is yes, with delegates that all decline or have no
    /// opinion it is no.
    virtual bool shouldUpdateStateForSequence(std::int64_t sequence);

    // Items
    const Items& items() const { return items_; }
    /// The first item of that key, or null. With Temporary::Yes temporary items count, and a missing one is made.
    std::shared_ptr<StatCollectorItem> itemWithKey(std::string_view key, Temporary temporary = Temporary::No);
    std::shared_ptr<StatCollectorItem> itemWithKey(std::int64_t key, Temporary temporary = Temporary::No);
    /// The item of that key, lasting from now on; made when missing. Null when the collector makes no items.
    std::shared_ptr<StatCollectorItem> newItemWithKey(std::string_view key);
    /// Drops what the latest pass did not find; answers whether there was anything.
    bool removeOldItems();

    // The clock
    /// Begins to measure every second, on the whole second. Started again, it starts over.
    void startLogging();
    /// One turn of the clock.
    void updateSamplesAndLogging();
    /// Which turn that measures it is, and when.
    const sampleindexconfig& sampleIndex() const { return sampleIndex_; }
    /// Stops for good and lets go of queue and delegates; the queue stays until a measurement in progress has ended.
    virtual void cleanup();

    // Of the interface, and called by nothing here
    bool childrenChanged() const { return childrenChanged_; }
    bool automaticSampleUpdates() const { return automaticSampleUpdates_; }
    std::int64_t session() const { return session_; } ///< when it was made, whole seconds since 1970
    std::int64_t updateSequence() const { return updateSequence_; }
    bool temporary() const { return temporary_; }
    void setTemporary(bool temporary) { temporary_ = temporary; }
    bool newSession() const { return newSession_; }
    void setNewSession(bool newSession) { newSession_ = newSession; }
    bool needsUpdate() const { return needsUpdate_; }
    void setNeedsUpdate(bool needed = true) { needsUpdate_ = needed; }
    std::int64_t protocolVersion() const { return protocolVersion_; } ///< of the client being served
    void setProtocolVersion(std::int64_t version) { protocolVersion_ = version; }
    const std::shared_ptr<StatCollectorItem>& activeItem() const { return activeItem_; }
    void setActiveItem(std::shared_ptr<StatCollectorItem> item) { activeItem_ = std::move(item); }
    const Updater& updaterBlock() const { return updaterBlock_; }
    void setUpdaterBlock(Updater block) { updaterBlock_ = std::move(block); }
    void setUpdaterFinishBlock(Updater block) { updaterFinishBlock_ = std::move(block); }
    void itemLoadedValues(StatCollectorItem& item);
    /// A set of item keys joined with "|"; absent when empty.
    const std::optional<std::string>& selectionKey() const { return selectionKey_; }
    void addSelectionKeyItem(std::string_view key);
    void removeSelectionKeyItem(std::string_view key);
    virtual void fillGaps() { }
    /// What a client still lacks that has everything up to an identifier.
    virtual std::optional<Value> sampleItemsSinceID(std::uint64_t, StorageIndex) { return std::nullopt; }
    virtual Value attributeFromAttributes(const Value&) { return nullptr; }

protected:
    Context& context() const { return context_; }
    /// The items themselves, for subclasses that order or replace them.
    Items& mutableItems() { return items_; }
    /// Tells the delegates that items came or went.
    void tellChildrenChanged();

private:
    template <typename Call>
    void forEachDelegate(Call call);
    void notifyUpdated();
    void measureOnGlobalQueue(std::shared_ptr<StatCollector> self, Task finish);
    void finishTurn();
    void advanceClock();
    void scheduleTurn(double seconds);

    Context& context_;
    std::string description_;
    Dictionary config_ = Dictionary::object();
    sampleindexconfig sampleIndex_{.sampleID = 1};
    std::vector<StatCollectorDelegate*> delegates_; ///< null where one was removed during a notification
    int notifying_ = 0;                             ///< how many notifications are under way, one inside another
    Updater updaterBlock_;
    Updater updaterFinishBlock_;
    std::shared_ptr<Queue> queue_;
    Items items_;
    std::shared_ptr<StatCollectorItem> activeItem_;
    std::optional<std::string> selectionKey_;
    std::int64_t session_ = 0;
    std::int64_t updateSequence_ = 0;
    std::int64_t protocolVersion_ = 0;
    bool temporary_ = false;
    bool enabled_ = true;
    bool newSession_ = false;
    bool stopped_ = false;
    bool automaticSampleUpdates_ = true;
    bool needsUpdate_ = false;
    bool childrenChanged_ = false;
    bool measuring_ = false; ///< a threaded measurement is in progress
    bool cleanedUp_ = false;

    Lifetime lifetime_;
    Lifetime clock_; ///< ends when the clock is started over
};

} // namespace meridal
