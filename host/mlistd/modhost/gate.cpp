#include "host/mlistd/modhost/gate.h"

std::optional<DeliveryGate::Pass> DeliveryGate::enter(const std::string &list,
                                                      std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::unique_lock lock(mutex_);
    const auto entry = turns_.try_emplace(list).first;
    if (!entry->second) entry->second = std::make_unique<Turn>();
    Turn &turn = *entry->second;

    /* The list first: who waits for it must not keep a place from others. */
    ++turn.waiting;
    const bool my_turn = turn.changed.wait_until(lock, deadline, [&] { return !turn.busy; });
    --turn.waiting;
    if (!my_turn) {
        give_up_turn(entry);
        return std::nullopt;
    }
    turn.busy = true;
    if (!place_free_.wait_until(lock, deadline, [&] { return free_ > 0; })) {
        turn.busy = false;
        give_up_turn(entry);
        return std::nullopt;
    }
    --free_;
    return Pass(*this, list);
}

void DeliveryGate::give_up_turn(Turns::iterator turn)
{
    if (turn->second->busy) return;
    if (turn->second->waiting > 0) {
        turn->second->changed.notify_one();
    } else {
        turns_.erase(turn);
    }
}

void DeliveryGate::leave(const std::string &list)
{
    const std::lock_guard lock(mutex_);
    ++free_;
    place_free_.notify_one();
    const auto turn = turns_.find(list);
    turn->second->busy = false;
    give_up_turn(turn);
}
