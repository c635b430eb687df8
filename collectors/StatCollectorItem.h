// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/StatCollectorBase.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

struct Context;
class StatCollector;

/// One thing that a collector tracks: a sensor, an interface, a battery, a disk. Confined to the queue on which its
/// collector measures; holds no locks.
class StatCollectorItem : public StatCollectorItemBase {
public:
    explicit StatCollectorItem(Context& context) : context_(context) { }
    StatCollectorItem(const StatCollectorItem&) = delete;
    StatCollectorItem& operator=(const StatCollectorItem&) = delete;

    /// What tells it from its siblings; absent until its collector has named it.
    const std::optional<std::string>& key() const { return key_; }
    void setKey(std::string key) { key_ = std::move(key); }
    void setAlternateKey(std::optional<std::string> key) { alternateKey_ = std::move(key); }
    /// The collector that owns it; null once that has dropped it.
    StatCollector* parent() const { return parent_; }
    void setParent(StatCollector* parent) { parent_ = parent; }
    /// Its copy of the collector's configuration.
    Dictionary& config() { return config_; }
    const Dictionary& config() const { return config_; }
    /// Made to answer one request; normal look-ups pass it over.
    bool temporary() const { return temporary_; }
    void setTemporary(bool temporary) { temporary_ = temporary; }
    /// Still found by the latest measurement. The collector clears it before a pass and drops what stays cleared.
    bool exists() const { return exists_; }
    void setExists(bool exists) { exists_ = exists; }

    /// Where this item belongs relative to another one: less = before it. The base keeps every pair as it is.
    virtual std::weak_ordering sort(const StatCollectorItem&) const { return std::weak_ordering::less; }
    /// Takes a value that comes by identifier. The base ignores it.
    virtual void addValue(const Value& value, const Value& identifier)
    {
        static_cast<void>(value);
        static_cast<void>(identifier);
    }

    // Of the interface, and called by nothing here
    const std::optional<std::string>& alternateKey() const { return alternateKey_; }
    std::int64_t protocolVersion() const { return protocolVersion_; }
    void setProtocolVersion(std::int64_t version) { protocolVersion_ = version; }
    bool slowUpdating() const { return slowUpdating_; }
    void setSlowUpdating(bool slow) { slowUpdating_ = slow; }
    /// An attribute made of others; null in the base.
    virtual Value attributeFromAttributes(const Value&) { return nullptr; }

protected:
    Context& context() const { return context_; }

private:
    Context& context_;
    std::optional<std::string> key_;
    std::optional<std::string> alternateKey_;
    StatCollector* parent_ = nullptr;
    Dictionary config_ = Dictionary::object();
    std::int64_t protocolVersion_ = 0;
    bool slowUpdating_ = false;
    bool temporary_ = false;
    bool exists_ = false;
};

} // namespace meridal
