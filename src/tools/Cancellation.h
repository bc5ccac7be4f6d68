#pragma once

// Cancelling long work: a flow's owner keeps a `Cancellation` and hands
// copies of it to the work it starts. All copies share one flag. `cancel()`
// sets it once and runs every registered callback once, so that a tool run can
// kill its child process at once instead of waiting for its next check.
//
// Work that notices the flag throws `CancelledError`; callers let it pass
// without reporting it to the user.

#include <QString>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

namespace velum {

class CancelledError : public std::exception {
public:
    const char *what() const noexcept override { return "The operation was cancelled."; }
};

class Cancellation {
    struct State;

public:
    // A fresh flag that is not set.
    Cancellation();

    // Sets the flag and runs each registered callback once, on the calling
    // thread and outside any lock. Safe from any thread; a second call does
    // nothing.
    void cancel() const;
    bool isCancelled() const;
    // Throws CancelledError when the flag is set.
    void throwIfCancelled() const;

    // Runs `callback` once when the flag is set; at once, on this thread, if it
    // already is. The callback must not block. The returned registration
    // removes the callback when it goes: after that it is never started, and a
    // call already under way on another thread is waited for.
    class Registration {
    public:
        Registration() = default;
        Registration(Registration &&other) noexcept;
        Registration &operator=(Registration &&other) noexcept;
        Registration(const Registration &) = delete;
        Registration &operator=(const Registration &) = delete;
        ~Registration();

    private:
        friend class Cancellation;
        Registration(std::shared_ptr<State> state, std::uint64_t id);
        void release();

        std::shared_ptr<State> m_state;
        std::uint64_t m_id = 0;
    };
    [[nodiscard]] Registration onCancel(std::function<void()> callback) const;

private:
    std::shared_ptr<State> m_state;
};

} // namespace velum
