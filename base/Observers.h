// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <iterator>
#include <list>
#include <memory>
#include <utility>

namespace meridal {

/// Whom to call when something changes. `Observation` is what they hold meanwhile: an interface with nothing but a
/// destructor. One queue only; observations may outlive this.
template <typename Observation>
class Observers {
public:
    /// Destroying what it gives ends it.
    [[nodiscard]] std::unique_ptr<Observation> add(std::function<void()> changed)
    {
        list_->push_back(std::make_shared<const std::function<void()>>(std::move(changed)));
        return std::make_unique<Entry>(list_, std::prev(list_->end()));
    }
    /// Calls all of them. Each may end any.
    void tell() const
    {
        const List all = *list_;
        for (const auto& changed : all) {
            (*changed)();
        }
    }
    bool empty() const { return list_->empty(); }

private:
    using List = std::list<std::shared_ptr<const std::function<void()>>>;
    class Entry final : public Observation {
    public:
        Entry(std::weak_ptr<List> list, typename List::iterator place) : list_(std::move(list)), place_(place) { }
        ~Entry() override
        {
            if (const auto list = list_.lock()) {
                list->erase(place_);
            }
        }

    private:
        std::weak_ptr<List> list_;
        typename List::iterator place_;
    };

    std::shared_ptr<List> list_ = std::make_shared<List>();
};

} // namespace meridal
