// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace meridal {

/// What cannot be measured or done on this machine, and why, by a short key ("disk", "responsible-pid"). Adapters write
/// it, `status` and one log line at start show it. Thread-safe.
class Limitations {
public:
    using Listener = std::function<void(const std::string& key, const std::string& reason)>;

    void set(std::string key, std::string reason)
    {
        Listener listener;
        {
            const std::lock_guard lock(mutex_);
            reasons_.insert_or_assign(key, reason);
            if (listener_ && told_.insert(key).second) {
                listener = listener_;
            }
        }
        if (listener) {
            listener(key, reason);
        }
    }
    /// The same for what this machine has not got, as opposed to what it refuses: nothing that somebody should look after.
    void setAbsent(const std::string& key, std::string reason)
    {
        {
            const std::lock_guard lock(mutex_);
            absent_.insert(key);
        }
        set(key, std::move(reason));
    }
    bool isAbsent(const std::string& key) const
    {
        const std::lock_guard lock(mutex_);
        return absent_.contains(key);
    }
    void clear(const std::string& key)
    {
        const std::lock_guard lock(mutex_);
        reasons_.erase(key);
    }
    std::map<std::string, std::string> all() const
    {
        const std::lock_guard lock(mutex_);
        return reasons_;
    }

    /// Answers all there are, and tells the listener of every other one when it is first set: some show only once a
    /// service has answered or has gone. Called on the thread that sets it. An empty listener ends it.
    std::map<std::string, std::string> listen(Listener listener)
    {
        const std::lock_guard lock(mutex_);
        listener_ = std::move(listener);
        for (const auto& [key, reason] : reasons_) {
            told_.insert(key);
        }
        return reasons_;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> reasons_;
    std::set<std::string> absent_; ///< keys of what the machine has not got
    std::set<std::string> told_;   ///< keys that the listener knows
    Listener listener_;
};

} // namespace meridal
