// SPDX-License-Identifier: Apache-2.0
#include "base/NotificationCenter.h"

#include "base/Value.h"

#include <atomic>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace meridal {

struct NotificationCenter::State {
    struct Observer {
        Handler handler;
        const void* object = nullptr; ///< null = whatever object posts
        std::atomic<bool> removed = false;
    };
    using Observers = std::vector<std::shared_ptr<Observer>>;
    class Registration;

    /// Those that a post reaches, in the order in which they came. A copy: observers may come and go while it is served.
    Observers matching(std::string_view name, const void* object)
    {
        const std::lock_guard lock(mutex);
        const auto found = observers.find(name);
        if (found == observers.end()) {
            return {};
        }
        Observers result;
        for (const auto& observer : found->second) {
            if (observer->object == nullptr || observer->object == object) {
                result.push_back(observer);
            }
        }
        return result;
    }

    void remove(const std::string& name, const std::shared_ptr<Observer>& observer)
    {
        const std::lock_guard lock(mutex);
        const auto found = observers.find(name);
        std::erase(found->second, observer); // not the last reference
        if (found->second.empty()) {
            observers.erase(found);
        }
    }

    std::mutex mutex;
    std::map<std::string, Observers, std::less<>> observers; ///< by name; guarded by mutex
};

class NotificationCenter::State::Registration final : public Observation {
public:
    Registration(std::shared_ptr<State> state, std::string name, std::shared_ptr<Observer> observer)
        : state_(std::move(state)), name_(std::move(name)), observer_(std::move(observer))
    {
    }

    ~Registration() override
    {
        observer_->removed = true;
        state_->remove(name_, observer_);
    }

private:
    std::shared_ptr<State> state_; // may outlive the centre
    std::string name_;
    std::shared_ptr<Observer> observer_;
};

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) { }

NotificationCenter::~NotificationCenter() = default;

std::unique_ptr<NotificationCenter::Observation> NotificationCenter::observe(
    std::string name, const void* object, Handler handler)
{
    auto observer = std::make_shared<State::Observer>();
    observer->handler = std::move(handler);
    observer->object = object;
    {
        const std::lock_guard lock(state_->mutex);
        state_->observers[name].push_back(observer);
    }
    return std::make_unique<State::Registration>(state_, std::move(name), std::move(observer));
}

void NotificationCenter::post(std::string_view name, const void* object) { post(name, object, Dictionary::object()); }

void NotificationCenter::post(std::string_view name, const void* object, const Dictionary& userInfo)
{
    for (const auto& observer : state_->matching(name, object)) {
        if (!observer->removed) {
            observer->handler(object, userInfo);
        }
    }
}

} // namespace meridal
