#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace meridal {

/// What cannot be measured or done on this machine, and why, by a short key ("disk", "responsible-pid"). Adapters write
/// it, `status` and one log line at start show it. Thread-safe.
class Limitations {
public:
    void set(std::string key, std::string reason)
    {
        const std::lock_guard lock(mutex_);
        reasons_.insert_or_assign(std::move(key), std::move(reason));
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

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> reasons_;
};

} // namespace meridal
