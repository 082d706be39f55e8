/* Who may be in the module: one delivery at a time for each list, so that none waits for the
   list's lock inside, and a bounded number over all lists, because a disk serves some sixteen
   synchronising callers best and more only wait. */
#ifndef HOST_MLISTD_MODHOST_GATE_H
#define HOST_MLISTD_MODHOST_GATE_H

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class DeliveryGate
{
  public:
    explicit DeliveryGate(size_t places) : free_(places) {}

    /* Held while a delivery is in the module. */
    class Pass
    {
      public:
        Pass(DeliveryGate &gate, std::string list) : gate_(&gate), list_(std::move(list)) {}
        Pass(Pass &&other) noexcept : gate_(other.gate_), list_(std::move(other.list_))
        {
            other.gate_ = nullptr;
        }
        Pass &operator=(Pass &&) = delete;
        ~Pass()
        {
            if (gate_ != nullptr) gate_->leave(list_);
        }

      private:
        DeliveryGate *gate_;
        std::string list_;
    };

    /* Waits its turn; nothing when it has not come in time. */
    [[nodiscard]] std::optional<Pass> enter(const std::string &list,
                                            std::chrono::milliseconds patience);

  private:
    /* One list with a delivery inside or waiting. */
    struct Turn {
        bool busy = false;
        size_t waiting = 0;
        std::condition_variable changed;
    };
    using Turns = std::map<std::string, std::unique_ptr<Turn>>;

    void leave(const std::string &list);
    void give_up_turn(Turns::iterator turn);

    std::mutex mutex_;
    std::condition_variable place_free_;
    size_t free_;
    Turns turns_;
};

#endif
