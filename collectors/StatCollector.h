#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/StatCollectorBase.h"
#include "collectors/StatCollectorDelegate.h"
#include "database/SqlValue.h"
#include "database/TableSchema.h"
#include "history/HistoryStatements.h"
#include "history/SampleStorages.h"
#include "history/WallClockGuard.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
class LongTermThinning;
class SQLiteConnection;
class StatCollectorItem;
struct Context;
struct HistoryPage;
struct HistoryPageQuestion;
struct HistoryReadPlan;
struct StoredHistory;
struct StoredStorage;

/// Who holds the values of a collector's samples.
enum class StorageType : int {
    Collector = 1,
    Items = 2, ///< the collector then keeps identifiers and times only
};

/// Whether a look-up also finds, and where needed makes, items that serve one request.
enum class Temporary { No, Yes };

/// What a kind of collector states about itself, in one place: the constructor of its class.
struct StatCollectorTraits {
    std::string description = "StatCollector"; ///< label of its queue
    std::size_t sampleCount = 0;               ///< values per sample, at most maximumValues
    StorageType storageType = StorageType::Collector;
    StorageLayout layout = {};
};

/// Base of everything that measures: items, sample storages, the one-second clock, delegates, and the hooks through
/// which a subclass produces samples and the database keeps them.
///
/// Confined to the main queue, with one exception: with threadedUpdating(), updateStats() runs on a global queue, and
/// until it returns the storages and items belong to it. Such a subclass serialises its own readers on queue(), and
/// must be held by a shared_ptr, which keeps it alive until a measurement in progress has ended.
class StatCollector : public StatCollectorBase, public std::enable_shared_from_this<StatCollector> {
public:
    using Updater = std::function<void(StatCollector&)>;
    using Items = std::vector<std::shared_ptr<StatCollectorItem>>;

    explicit StatCollector(Context& context, StatCollectorTraits traits = {});
    ~StatCollector() override;
    StatCollector(const StatCollector&) = delete;
    StatCollector& operator=(const StatCollector&) = delete;

    // Properties
    std::size_t sampleValueCount() const { return sampleValueCount_; }
    StorageType storageType() const { return storageType_; }
    const std::string& description() const { return description_; }
    /// How entries of incoming samples map onto value slots, and values onto published keys.
    Dictionary& config() { return config_; }
    const Dictionary& config() const { return config_; }
    /// Where a subclass serialises its work. Null after cleanup().
    const std::shared_ptr<Queue>& queue() const { return queue_; }
    /// When it was made, whole seconds since 1970.
    std::int64_t session() const { return session_; }
    bool enabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }
    bool temporary() const { return temporary_; }
    void setTemporary(bool temporary) { temporary_ = temporary; }
    /// Set, it ends the clock at its next turn.
    bool stopped() const { return stopped_; }
    void setStopped(bool stopped) { stopped_ = stopped; }
    bool newSession() const { return newSession_; }
    /// Items came, went or changed places since a subclass last looked.
    bool childrenChanged() const { return childrenChanged_; }
    void setChildrenChanged(bool changed) { childrenChanged_ = changed; }
    /// Of the client being served.
    std::int64_t protocolVersion() const { return protocolVersion_; }
    /// What a subclass calls when a measurement is finished: tells the delegates, unless replaced.
    const Updater& updaterFinishBlock() const { return updaterFinishBlock_; }

    // Database
    bool databaseEnabled() const { return databaseEnabled_; }
    bool preparedDatabase() const { return preparedDatabase_; }
    void setDbTablePrefix(std::string prefix) { dbTablePrefix_ = std::move(prefix); }
    /// History files; empty while the collector has none.
    const std::string& dbpath() const { return dbpath_; }
    void setDbpath(std::string path) { dbpath_ = std::move(path); }
    const std::string& dbpathLong() const { return dbpathLong_; }
    void setDbpathLong(std::string path) { dbpathLong_ = std::move(path); }
    /// Opens the file, once; answers whether anything had to be migrated.
    virtual bool prepareDatabase();
    /// Brings older tables up to date; nothing to do in the base.
    virtual bool migrateDatabase();
    /// The history table of a storage: its prefix, dbTablePrefix() and "history", or "idhistory" when the values are the
    /// items'. None for the live storage. Names are built once.
    std::optional<std::string> tableAtIndex(StorageIndex index);
    /// The table that holds the items' values; none when the samples are the collector's.
    std::optional<std::string> itemTableAtIndex(StorageIndex index);
    /// Makes the tables of a storage where they are missing. Answers `result`, or true when one had to be made.
    bool checkIfTablesExist(StorageIndex index, SQLiteConnection& database, bool result);
    /// Queues a sample for its table, and its items' for theirs. Without a database it goes nowhere.
    virtual void insertSampleIntoTableAtIndex(const Dictionary& sample, StorageIndex index);
    /// Writes what is queued for both files.
    virtual void runDatabaseQueue();
    /// Queues the removal of rows older than the newest 603 samples with a measurement, and of empty ones older than the
    /// newest 603 of all.
    virtual void removeOldSamplesAtIndex(StorageIndex index);
    /// The newest 603 rows of a table in dbpath(), oldest first. This and the next five wait for the file: for start-up.
    std::vector<Dictionary> samplesFromTable(const std::string& table);
    /// The rows of the 603 identifiers up to this one, oldest first.
    std::vector<Dictionary> samplesFromTable(const std::string& table, double identifier);
    /// The newest row of the long-term table.
    virtual std::optional<Dictionary> lastLongTermSample();
    /// Reads stored rows back into memory.
    virtual void loadPreviousSamples();
    void loadPreviousSamplesAtIndex(StorageIndex index);
    void loadPreviousSampleItemsAtIndex(StorageIndex index);
    /// Reads one item's rows back into its storages, or the newest "hour" row into its full store. Waits for nothing: the
    /// reply comes on the main queue.
    void loadPreviousSamplesForItem(const std::shared_ptr<StatCollectorItem>& item, Task reply);

    /// Reads a page of stored samples, with what still waits to be written. Waits for nothing: the reply comes on the main
    /// queue, absent when the file cannot be read.
    void readHistory(const HistoryPageQuestion& question, std::function<void(const std::optional<HistoryPage>&)> reply);

    // What a subclass measures and tells
    /// A finished five-minute sample, which goes here and not into a ring.
    virtual void addLongTermSample(const Dictionary& sample);
    /// Measures, and stores the result with addSample or per item.
    virtual void updateStats();
    /// What the clock calls; measures whatever the turn's number. Named apart from updateStats() so that overriding one
    /// does not hide the other.
    virtual void updateStatsForSequence(std::int64_t sequence);
    virtual void fillGaps();
    /// Whether the clock measures on a global queue instead of the main queue. Must not change.
    virtual bool threadedUpdating() const;
    /// Once per turn of the clock: takes stored history up, hands finished periods over to their tables, has the tables
    /// pruned, and commits twice a minute. Does nothing in a collector whose layout has the live storage only.
    virtual void updateHistory();
    /// Seconds between updates for a client of this protocol version.
    virtual double updateFrequencyForVersion(std::int64_t protocolVersion) const;
    /// Summary for clients.
    virtual std::optional<Dictionary> overview();
    /// What a client still lacks that has everything up to an identifier.
    virtual std::optional<Value> sampleItemsSinceID(std::uint64_t sampleID, StorageIndex type);
    /// One history sample of the collector itself.
    virtual std::optional<Dictionary> historyItemForIndex(StorageIndex index);
    /// A new item of the collector's kind; none in the base.
    virtual std::shared_ptr<StatCollectorItem> makeItem();
    virtual Value attributeFromAttributes(const Value& attributes);
    /// Puts the items in the order of their own comparison; equal ones stay as they are.
    virtual void sort();

    // Delegates
    /// Not owned; added once however often. May be called from inside a notification.
    void addDelegate(StatCollectorDelegate& delegate);
    void removeDelegate(StatCollectorDelegate& delegate);
    /// One delegate that says yes is enough. Without any delegate it is yes, with delegates that all decline or have no
    /// opinion it is no.
    virtual bool shouldUpdateStateForSequence(std::int64_t sequence);
    void itemLoadedValues(StatCollectorItem& item);

    // Items
    const Items& items() const { return items_; }
    /// The first item of that key, or null. With Temporary::Yes temporary items count, and a missing one is made.
    std::shared_ptr<StatCollectorItem> itemWithKey(std::string_view key, Temporary temporary = Temporary::No);
    std::shared_ptr<StatCollectorItem> itemWithKey(std::int64_t key, Temporary temporary = Temporary::No);
    /// The item of that key, lasting from now on; made when missing. Null when the collector makes no items.
    std::shared_ptr<StatCollectorItem> newItemWithKey(std::string_view key);
    /// Drops what the latest pass did not find; answers whether there was anything.
    bool removeOldItems();

    // Storages
    /// A copy of the clock of a storage.
    std::optional<sampleindexconfig> sampleIndex(StorageIndex index) const;
    double idForInterval(StorageIndex index) const;
    /// The samples of a storage, or null.
    const SampleRing* storageForType(StorageIndex type) const;
    statsample sampleAtIndex(SlotIndex slot, StorageIndex type) const;
    std::uint64_t lastIDForType(StorageIndex type) const;
    /// The identifier from which on history is held.
    std::uint64_t lowestSampleForStorageType(StorageIndex type) const;
    /// Empties the storage, here and in every item.
    void clearStorageForType(StorageIndex type);
    /// Lets the items' full stores go.
    void freeFullStorage();

    // Samples
    /// Records a new measurement. Its identifier is its own, or the newest one + 1; one that is not newer is dropped.
    void addSample(const Dictionary& sample, StorageIndex index);
    /// Records a new measurement whatever the newest identifier.
    void addSample(const Dictionary& sample, StorageIndex index, std::uint64_t sampleID);
    /// Writes one slot without shifting.
    void addSample(const Dictionary& sample, StorageIndex index, std::uint64_t sampleID, SlotIndex slot);
    Dictionary emptySampleWithIdentifier(std::uint64_t sampleID, double time) const;

    // Figures
    /// The average of the storage's source over its latest period; "time" is now.
    Dictionary averagesForIndex(StorageIndex index) const;
    std::optional<Dictionary> historySampleForIndex(StorageIndex index);
    Dictionary historyItemsForIndex(StorageIndex index);

    // History
    /// Hands the storage's finished period over to history.
    void insertSampleWithIndex(StorageIndex index);
    /// Starts a storage's clock; nothing when it runs.
    void checkNextTimeAtIndex(StorageIndex index);

    // The clock
    /// Begins to measure every second, on the whole second. Started again, it starts over.
    void startLogging();
    /// One turn of the clock.
    void updateSamplesAndLogging();
    /// Stops for good and lets go of queue and delegates; the queue stays until a measurement in progress has ended.
    virtual void cleanup();

    // Of the interface, and called by nothing here
    std::int64_t updateSequence() const { return updateSequence_; }
    void setNewSession(bool newSession) { newSession_ = newSession; }
    bool usesSmallSamples() const { return usesSmallSamples_; }
    void setUsesSmallSamples(bool small) { usesSmallSamples_ = small; }
    bool automaticSampleUpdates() const { return automaticSampleUpdates_; }
    void setAutomaticSampleUpdates(bool automatic) { automaticSampleUpdates_ = automatic; }
    bool needsUpdate() const { return needsUpdate_; }
    void setNeedsUpdate() { needsUpdate_ = true; }
    void setNeedsUpdate(bool needed) { needsUpdate_ = needed; }
    void setProtocolVersion(std::int64_t version) { protocolVersion_ = version; }
    const std::shared_ptr<StatCollectorItem>& activeItem() const { return activeItem_; }
    void setActiveItem(std::shared_ptr<StatCollectorItem> item) { activeItem_ = std::move(item); }
    const Updater& defaultUpdaterBlock() const { return defaultUpdaterBlock_; }
    void setDefaultUpdaterBlock(Updater block) { defaultUpdaterBlock_ = std::move(block); }
    const Updater& updaterBlock() const { return updaterBlock_; }
    void setUpdaterBlock(Updater block) { updaterBlock_ = std::move(block); }
    void setUpdaterFinishBlock(Updater block) { updaterFinishBlock_ = std::move(block); }
    void enableDatabase() { databaseEnabled_ = true; }
    void setDatabaseEnabled(bool enabled) { databaseEnabled_ = enabled; }
    const std::string& dbTablePrefix() const { return dbTablePrefix_; }
    bool checkIfLongTermTablesExist(StorageIndex index, SQLiteConnection& database, bool result);
    void loadPreviousSampleItems();
    void loadPreviousSamplesForItemFull(const std::shared_ptr<StatCollectorItem>& item, Task reply);
    /// A set of item keys joined with "|"; absent when empty.
    const std::optional<std::string>& selectionKey() const { return selectionKey_; }
    void setSelectionKey(std::optional<std::string> keys) { selectionKey_ = std::move(keys); }
    void addSelectionKeyItem(std::string_view key);
    void removeSelectionKeyItem(std::string_view key);
    std::span<samplepeaks> samplePeaks() { return samplePeaks_; }
    void setIDForInterval(StorageIndex index, double sampleID);
    bool updatedForInterval(StorageIndex index) const;
    void setUpdatedForInterval(StorageIndex index, bool updated);
    double lastTimeForType(StorageIndex type) const;
    /// On a miss an empty sample of that identifier.
    statsample sampleWithIdentifier(std::uint64_t sampleID, StorageIndex type) const;
    void clearAllStorages();
    /// Whether the sum of some values of the live storage stayed below (strictly), or at or above, a value for some
    /// seconds. Negative seconds ask about the newest sample only.
    bool indexesBelowValueForTime(std::span<const std::size_t> indexes, double value, double seconds) const;
    bool indexesAboveValueForTime(std::span<const std::size_t> indexes, double value, double seconds) const;
    /// Closes the hole that sleep or a stop left, so that identifiers go on counting periods.
    void fillGapsAtIndex(StorageIndex index);

protected:
    Context& context() const { return context_; }
    /// The items themselves, for subclasses that order or replace them.
    Items& mutableItems() { return items_; }
    /// Tells the delegates that items came or went.
    void tellChildrenChanged();
    /// The file of a storage, which is opened; null without one.
    std::shared_ptr<HistoryDatabaseItem> databaseForIndex(StorageIndex index) const;
    /// A storage to write to, or null.
    SampleStorage* storage(StorageIndex index) { return sampleIndex_.find(index); }

private:
    template <typename Call>
    void forEachDelegate(Call call);
    void notifyUpdated();
    void measureOnGlobalQueue(std::shared_ptr<StatCollector> self, Task finish);
    void finishTurn();
    void advanceClock();
    void scheduleTurn(double seconds);
    /// Answers whether any item has a measurement.
    bool addSampleToItems(const Dictionary& sample, StorageIndex index);
    void pushClockToItems(const sampleindexconfig& record, StorageIndex index);

    /// The file of all coarser storages but the long-term one, and the file of that one. Each is read, and its clocks run,
    /// whatever becomes of the other.
    enum class HistoryFile : int { Short, LongTerm };
    static constexpr HistoryFile fileOf(StorageIndex index)
    {
        return index == StorageIndex::LongTerm ? HistoryFile::LongTerm : HistoryFile::Short;
    }
    /// Whether the clocks of a file's storages run. They wait until what it holds has been read: started without it, they
    /// would give identifiers out twice.
    enum class HistoryPhase { NotStarted, Loading, Running };
    struct HistoryState {
        HistoryPhase phase = HistoryPhase::NotStarted;
        double nextRead = 0; ///< monotonic s
        bool toldUnreadable = false;
    };
    HistoryState& stateOf(HistoryFile which) { return historyStates_[static_cast<std::size_t>(which)]; }

    // Clocks of the coarser storages
    bool recordsHistory() const { return sampleIndex_.size() > 1; }
    void startHistory(HistoryFile which);
    void adoptHistory(HistoryFile which, const StoredHistory& stored);
    template <typename Function>
    void forEachStorage(HistoryFile which, Function function);
    template <typename Function>
    void forEachRunningStorage(Function function);
    void continueClock(const StoredStorage& previous, StorageIndex index);
    void adoptRows(const StoredStorage& previous, StorageIndex index);
    void loadHistoryOfNewItems();
    void runHistoryClocks(double now);
    void followWallClock(sampleindexconfig& record, StorageIndex index, double now);
    bool believesWallClock(double now, double steady);
    bool isClockSynchronised() const;
    std::pair<StorageIndex, double> nextToFinish();
    void startPeriod(sampleindexconfig& record, StorageIndex index, double now);
    void skipOldPeriods(sampleindexconfig& record, StorageIndex index, double now);
    void finishPeriod(StorageIndex index);
    void insertEmptyPeriod(StorageIndex index);
    void noteMeasured(StorageIndex index, double time);
    bool itemsMeasured(const sampleindexconfig& record) const;

    // Files
    void nameTables();
    std::vector<TableSchema> historyTables(StorageIndex index);
    void declareTables(HistoryFile which);
    HistoryReadPlan readPlan();
    const HistoryStatements& statementsForIndex(StorageIndex index);
    static void addPruning(HistoryStatements& statements, const std::string& table, const std::string& itemTable);
    void thinLongTerm(double now);
    void insertRow(
        HistoryDatabaseItem& file, const InsertPlan& plan, const Dictionary& sample, std::string_view complaint);
    std::vector<Dictionary> query(StorageIndex index, const std::string& sql, const SqlValues& args);
    void addItemRows(const std::vector<Dictionary>& rows, StorageIndex index);

    Context& context_;
    std::string description_;
    StorageType storageType_;
    std::size_t sampleValueCount_;
    SampleStorages sampleIndex_;
    std::array<samplepeaks, 8> samplePeaks_ = {};
    Dictionary config_ = Dictionary::object();
    std::vector<StatCollectorDelegate*> delegates_; ///< null where one was removed during a notification
    int notifying_ = 0;                             ///< how many notifications are under way, one inside another
    Updater defaultUpdaterBlock_;
    Updater updaterBlock_;
    Updater updaterFinishBlock_;
    std::shared_ptr<Queue> queue_;
    Items items_;
    std::shared_ptr<StatCollectorItem> activeItem_;
    std::optional<std::string> selectionKey_;
    std::string dbTablePrefix_;
    std::string dbpath_;
    std::string dbpathLong_;
    std::int64_t session_ = 0;
    std::int64_t updateSequence_ = 0;
    std::int64_t protocolVersion_ = 0;
    bool usesSmallSamples_ = false;
    bool preparedDatabase_ = false;
    bool temporary_ = false;
    bool databaseEnabled_ = true;
    bool enabled_ = true;
    bool newSession_ = false;
    bool stopped_ = false;
    bool automaticSampleUpdates_ = true;
    bool needsUpdate_ = false;
    bool childrenChanged_ = false;
    bool measuring_ = false; ///< a threaded measurement is in progress
    bool cleanedUp_ = false;

    std::array<HistoryState, 2> historyStates_;
    double nextHistoryTime_ = 0;                          ///< when the next period ends, s since 1970
    double nextFlush_ = 0;                                ///< monotonic s
    std::array<double, storageCount> measuredUntil_ = {}; ///< latest item sample that is not empty, s since 1970
    /// Where the next period after the recorded ones ends, while the wall clock stands behind them, s since 1970; else 0.
    std::array<double, storageCount> recordedUntil_ = {};
    std::array<std::string, storageCount> dbTables_;
    std::array<std::string, storageCount> dbTablesItems_;
    std::array<std::unique_ptr<HistoryStatements>, storageCount> statements_;
    std::array<KeptPeriods, storageCount> kept_;
    std::shared_ptr<LongTermThinning> thinning_; ///< touched on the file's queue only
    WallClockGuard wallClock_;
    std::set<std::string> missingKeys_; ///< sample keys that have been missed, and said so
    SqlValues rowArgs_;                 ///< of the row being queued; kept for its memory

    Lifetime lifetime_;
    Lifetime clock_; ///< ends when the clock is started over
};

} // namespace meridal
