// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/OwnedDescriptor.h"

#include "platform/macos/kernel/SystemCallback.h"

#include <dispatch/dispatch.h>
#include <unistd.h>

#include <utility>

namespace meridal {

namespace {

class OwnedDescriptor final : public Watch {
public:
    OwnedDescriptor(int descriptor, Task task)
        : task_(std::make_shared<Task>(std::move(task)))
        , source_(dispatch_source_create(
              DISPATCH_SOURCE_TYPE_READ, static_cast<std::uintptr_t>(descriptor), 0, dispatch_get_main_queue()))
    {
        if (!source_) {
            ::close(descriptor);
            return;
        }
        // Weakly: an event that is under way when the owner has gone finds nothing to do.
        const std::weak_ptr<Task> weakTask = task_;
        dispatch_source_set_event_handler(source_, ^{
            if (const auto kept = weakTask.lock()) { // it may end its own watch
                runCallback(*kept);
            }
        });
        dispatch_source_set_cancel_handler(source_, ^{ ::close(descriptor); });
        dispatch_resume(source_);
    }
    ~OwnedDescriptor() override
    {
        if (source_) {
            dispatch_source_cancel(source_);
        }
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

private:
    std::shared_ptr<Task> task_;
    dispatch_source_t source_;
};

} // namespace

std::unique_ptr<Watch> watchOwned(int descriptor, Task task)
{
    return std::make_unique<OwnedDescriptor>(descriptor, std::move(task));
}

} // namespace meridal
