/// A place for one callback that may be replaced while other threads call it, without a lock.
#ifndef PROCMGR_COMMON_CALLBACK_SLOT_H
#define PROCMGR_COMMON_CALLBACK_SLOT_H

#include <functional>
#include <memory>
#include <utility>

namespace ProcMgr {

/// Every operation may be called from any thread. A callback that was replaced lives on until its last running call
/// has returned.
template <typename Signature>
class CallbackSlot {
public:
    using Function = std::function<Signature>;

    /// Replaces the callback; an empty function empties the slot.
    void Store(Function function) {
        auto next = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
        std::atomic_store(&function_, std::shared_ptr<const Function>(std::move(next)));
    }

    /// The callback of this moment, or null. Load once, test, then call the copy.
    [[nodiscard]] std::shared_ptr<const Function> Load() const { return std::atomic_load(&function_); }

private:
    std::shared_ptr<const Function> function_;
};

}  // namespace ProcMgr

#endif
