// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/RareWarnings.h"
#include "collectors/sensors/ClientSensors.h"
#include "collectors/sensors/KeptSensors.h"
#include "collectors/sensors/PowerAverages.h"
#include "collectors/sensors/SensorAlarms.h"
#include "collectors/sensors/SensorConfiguration.h"
#include "collectors/sensors/SensorKeyTable.h"
#include "collectors/sensors/SensorStatCollectorItemMac.h"
#include "collectors/sensors/SensorsStatCollector.h"
#include "history/RecordedSeries.h"
#include "platform/host/SensorSource.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridal {

class PlatformController;

/// The sensors collector of both hosts. It checks which of the sensors that clients know this machine really has, makes
/// an item of each, samples them and keeps the extremes ever seen. While somebody asks, and for a minute after, that is
/// every second turn of its clock; for the record alone, every sixth; with neither the clock stands. Main queue only.
class SensorsStatCollectorMac final : public SensorsStatCollector {
public:
    using Item = SensorStatCollectorItemMac;
    using SensorItems = std::vector<std::shared_ptr<Item>>;

    /// The platform must outlive it.
    SensorsStatCollectorMac(Context& context, const PlatformController& platform);

    /// The process-wide instance, on Context::shared(). Made anew after cleanupShared().
    static SensorsStatCollectorMac& sharedSensorCollector();
    /// Ends the process-wide instance, when there is one.
    static void cleanupShared();

    // Values
    /// Whether a key names a sensor that is there. A key that the machine lacks is none.
    bool isKeyValid(const std::string& key);
    /// -1 for a key that the machine lacks; may be any float.
    float valueForSensorKey(const std::string& key);
    /// What a client's configuration gives now; always finite. Averaged power is 0 until it has been watched long enough.
    double valueForConfig(const Value& configuration, PowerDetail detail = PowerDetail::Fine);
    /// The same of each configuration of a list, as one request: each key is read once, and of more than mostKeysAsked
    /// different ones the rest count as keys that the machine lacks. So in the lists below.
    std::vector<double> valuesForConfigs(const Value& configurations, PowerDetail detail);
    float minimumForFan(const std::string& prefix); ///< "F0"; rpm
    float maximumForFan(const std::string& prefix);

    // Discovery: of what a client knows, what is there, as an array of {"type", "config", "key", "name", "value"} and,
    // where there are limits, "low" and "high". What is no array of configurations names no sensor.
    Value supportedElectricSensors(const Value& configurations);
    Value supportedFans(const Value& configurations);
    Value supportedArmSensors(const Value& configurations);
    /// Makes such entries items, or brings their items up to date. What the host tells by itself stays as the host tells
    /// it: the record and who may see it finely must not hang on what some client calls it.
    void nameForAll(const Value& entries, SensorRequest request);
    // What an ordinary user's client names is there for that user's clients, as long as it is itself
    /// Makes such entries items of the client's.
    void nameForClient(const ClientSensors::Owner& owner, const Value& entries, SensorRequest request);
    /// Lets go of what a client named.
    void forgetClient(const ClientSensors::Owner& owner);
    /// Makes what a client named there for all, and kept, as the processing of its entries would have.
    void keepForAll(const ClientSensors::Owner& owner);
    /// Replaces the values of power sensors among entries by what everybody may see.
    void averagePower(Value& entries);
    /// Makes an item of everything that the host tells by itself, and follows it from now on as chips come and go.
    void discover();
    /// Goes on with what earlier runs recorded and clients asked for in them; takes effect later. While nothing is
    /// recorded, it lists what was.
    void resumeRecord();
    /// Switched off, nothing is recorded, and read only while somebody asks and for a minute after.
    void setRecording(bool recording) { history().setRecording(recording); }
    /// Somebody looks at sensors: what is known is made new where it is old, and kept so for a while.
    void noteQuestion();
    /// For who looks without wanting more readings: where nobody has read for so long that even the record would have, what is
    /// known is made new once. Power is not, and has no value then.
    void readWhatNobodyReads();
    /// Starts to sample, once there is something to be sampled.
    void begin();

    // Items
    /// Those that are there for all, and recorded.
    SensorItems sensors() const;
    /// Those and what clients of this user named, which goes before the others of its keys.
    SensorItems sensorsFor(std::optional<std::uint32_t> uid) const;
    SensorItems allFans() const;
    /// What the host tells of a key, without limits that nobody has set; null when it tells nothing.
    const SensorRecord* recordForKey(const std::string& key) const;
    /// The kind of a sensor: the host's word, else the client's.
    std::int64_t kindOf(const Item& item) const;
    /// Whether what it reads is power, whatever a client calls it.
    bool isPower(const Item& item) const;
    /// Whether the first average of a power sensor that there is for this user is about to come.
    bool isSettling(std::optional<std::uint32_t> uid) const;
    /// For people: the host's word, else the client's, else its key.
    std::string nameOf(const Item& item) const;
    SensorAlarm alarmOf(const Item& item) const;
    /// What history is offered: of all sensors, and of those that are away.
    std::vector<HistorySeries> series() const;
    RecordedSeries& recorded() { return recorded_; }

    // Extremes
    /// Makes sure of the tables.
    void prepareDatabase();
    /// Hands changed extremes over to the database.
    void updateRecordedValues();

    // StatCollector
    std::shared_ptr<StatCollectorItem> makeItem() override;
    void updateStats() override;
    /// Every second turn.
    bool shouldUpdateStateForSequence(std::int64_t sequence) override { return sequence % 2 == 0; }
    void updateStatsForSequence(std::int64_t sequence) override;
    bool threadedUpdating() const override { return false; }
    void cleanup() override;

    static constexpr std::size_t mostItems =
        1024;                                   ///< that administrators can bring about; the host adds as many at most
    static constexpr double unprovenFor = 3600; ///< s that such a sensor may be without its first value
    static constexpr std::size_t mostWatched = 256;
    static constexpr double watchedFor = 120;          ///< s after the last question
    static constexpr double lookInterval = 10;         ///< s between looks for chips that came or went
    static constexpr double emptyInterval = 60;        ///< s, the same while there is no sensor at all
    static constexpr double askedFor = 60;             ///< s for which a question keeps the quicker rhythm
    static constexpr double flagInterval = 10;         ///< s between looks at what chips themselves say is wrong
    static constexpr std::int64_t recordTurns = 6;     ///< turns between readings for the record alone
    static constexpr std::size_t mostKeysAsked = 4096; ///< of one request

    // Of the interface, and called by nothing here
    double valueForSensor(const Item& item);
    /// The fans that fan control offers, named for it.
    SensorItems fanControlFans() const;
    /// Reads what earlier runs saw; takes effect later.
    void loadSeenLimitsForSensor(const Item& item) { loadSeenLimits({item.key().value_or("")}); }
    bool fanControlSupported() const { return fanControlSupported_; }
    void setFanControlSupported(bool supported) { fanControlSupported_ = supported; }
    bool loadedIntelSensors() const { return loadedIntelSensors_; }
    void setLoadedIntelSensors(bool loaded) { loadedIntelSensors_ = loaded; }
    bool startedIntelSensors() const { return startedIntelSensors_; }
    void setStartedIntelSensors(bool started) { startedIntelSensors_ = started; }
    bool intelEnergyEnabled() const { return intelEnergyEnabled_; }
    void setIntelEnergyEnabled(bool enabled) { intelEnergyEnabled_ = enabled; }
    bool intelSensorsPrepared() const { return intelSensorsPrepared_; }
    void setIntelSensorsPrepared(bool prepared) { intelSensorsPrepared_ = prepared; }
    Dictionary& intelFrequencySensors() { return intelFrequencySensors_; }

private:
    /// A power figure that is no item's and that somebody asks for.
    struct Watched {
        SensorConfiguration configuration;
        double lastAsked = 0; ///< monotonic s
    };
    /// A sensor that the host names.
    struct Named {
        SensorRecord record;     ///< without limits that nobody has set
        SensorLimits told;       ///< all that the host tells
        SensorFlags meaningless; ///< of limits that nobody has set
    };
    /// A temperature by its name, as clients know sensors of Apple silicon.
    struct Service {
        std::string name;
        std::string source; ///< what the host calls it
        std::string label;  ///< for people
        bool isMean = false;
        bool disturbs = false;
    };
    enum class Finder { Host, Client, Record };
    enum class Reading { All, WithoutPower };

    /// While it lasts, each key is read once. Inside another one it changes nothing.
    class OneReading {
    public:
        explicit OneReading(SensorsStatCollectorMac& collector);
        ~OneReading();
        OneReading(const OneReading&) = delete;
        OneReading& operator=(const OneReading&) = delete;

    private:
        SensorsStatCollectorMac& collector_;
        bool isOuter_;
    };

    // Readings
    double valueForKey(const std::string& key);
    SensorReading readingOf(const std::string& key);
    SensorReading readSource(const std::string& source);
    void readAhead(const std::vector<std::string>& sources);
    void noteFailure(const std::string& source, const std::string& failure);
    void readAhead(const SensorItems& items);
    std::string sourceOf(const std::string& key) const;
    std::optional<double> fanFigure(const std::string& key) const;
    bool isThere(const std::string& key);
    bool isAsked() const;
    void measure(Reading what);
    void lookAtFlags(double now);
    std::optional<double> read(const SensorConfiguration& configuration);
    double valueNow(const SensorConfiguration& configuration);
    double averagedPower(const SensorConfiguration& configuration);
    bool isPower(const SensorConfiguration& configuration) const;
    bool isPowerKey(const std::string& key) const;
    void dropUnproven();
    void rest();
    bool isLeftAlone(const Item& item) const;
    std::optional<double> readItem(const Item& item);
    enum class Sampling { Turn, Asked };
    void sample(Item& item, double now, Sampling why);
    void sampleWatched(double now);
    void watch(const SensorConfiguration& configuration);

    // Discovery
    Value electricEntry(const SensorConfiguration& understood, const Value& given);
    std::optional<Value> fanEntry(std::size_t number, const Value& configurations);
    void process(const Value& entries, SensorRequest request, Finder finder);
    void takeExtremes(Item& item);
    void keep(const Item& item, SensorRequest request);
    bool isDouble(const Value& kept);
    void resume(KeptSensors kept);
    HistorySeries seriesOf(const Item& item) const;
    std::shared_ptr<HistoryDatabaseItem> database();
    void adopt(std::vector<SensorRecord> records);
    void adoptServices(const std::vector<SensorRecord>& records, const std::vector<std::string>& keys);
    void startToFollow();
    void follow();
    void prepareCommit();
    const Service* serviceNamed(const std::string& name) const;
    void loadSeenLimits(std::vector<std::string> keys);
    void takeSeenLimits(const std::vector<std::string>& keys, const std::vector<std::optional<SeenLimits>>& limits);

    const PlatformController& platform_;
    SensorSource& source_;
    SensorKeyTable keys_;
    PowerAverages powers_;
    std::map<std::string, Watched> watched_; ///< by identity
    std::map<std::string, Named> named_;     ///< by key
    std::vector<Service> services_;          ///< as the host tells them
    ClientSensors clients_;
    SensorAlarms alarms_; ///< by what the host calls sensors
    RecordedSeries recorded_;
    RareWarnings failures_;                      ///< of sensors, by what the host calls them
    std::map<std::string, double> failingSince_; ///< likewise; monotonic s of the first failure since it was read
    std::optional<std::unordered_map<std::string, SensorReading>> readings_; ///< while a turn or a request lasts
    std::map<std::string, double>
        unproven_; ///< administrators' sensors without a value so far: since when, monotonic s
    std::uint64_t generation_ = 0;
    double nextLook_ = 0;                ///< monotonic s
    double nextFlagLook_ = 0;            ///< monotonic s
    std::optional<double> lastAsked_;    ///< monotonic s
    std::optional<double> lastMeasured_; ///< monotonic s
    bool follows_ = false;
    bool looksLater_ = false;
    bool isLogging_ = false;
    bool rests_ = false; ///< the clock stands until somebody asks
    bool preparedDatabase_ = false;
    bool fanControlSupported_ = false;
    bool loadedIntelSensors_ = false;
    bool startedIntelSensors_ = false;
    bool intelEnergyEnabled_ = false;
    bool intelSensorsPrepared_ = false;
    Dictionary intelFrequencySensors_ = Dictionary::object();
    Lifetime sensorLifetime_;
};

} // namespace meridal
