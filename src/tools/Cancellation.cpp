#include "tools/Cancellation.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace velum {

struct Cancellation::State {
    std::mutex mutex;
    std::condition_variable finished;
    bool cancelled = false;
    std::uint64_t nextId = 1;
    std::map<std::uint64_t, std::function<void()>> callbacks;
    // The callback being run by cancel(), and on which thread.
    std::uint64_t runningId = 0;
    std::thread::id runningThread;
};

Cancellation::Cancellation()
    : m_state(std::make_shared<State>())
{
}

void Cancellation::cancel() const
{
    std::unique_lock lock(m_state->mutex);
    if (m_state->cancelled)
        return;
    m_state->cancelled = true;
    // One at a time, so that a registration going away meanwhile either
    // removes its callback before it starts or waits for it to end.
    while (!m_state->callbacks.empty()) {
        auto node = m_state->callbacks.extract(m_state->callbacks.begin());
        m_state->runningId = node.key();
        m_state->runningThread = std::this_thread::get_id();
        lock.unlock();
        try {
            node.mapped()();
        } catch (...) {
            // A callback only wakes someone up; it has nothing to report here.
        }
        lock.lock();
        m_state->runningId = 0;
        m_state->finished.notify_all();
    }
}

bool Cancellation::isCancelled() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->cancelled;
}

void Cancellation::throwIfCancelled() const
{
    if (isCancelled())
        throw CancelledError();
}

Cancellation::Registration Cancellation::onCancel(std::function<void()> callback) const
{
    {
        std::lock_guard lock(m_state->mutex);
        if (!m_state->cancelled) {
            const std::uint64_t id = m_state->nextId++;
            m_state->callbacks.emplace(id, std::move(callback));
            return Registration(m_state, id);
        }
    }
    callback();
    return Registration();
}

Cancellation::Registration::Registration(std::shared_ptr<State> state, std::uint64_t id)
    : m_state(std::move(state))
    , m_id(id)
{
}

Cancellation::Registration::Registration(Registration &&other) noexcept
    : m_state(std::move(other.m_state))
    , m_id(other.m_id)
{
    other.m_id = 0;
}

Cancellation::Registration &Cancellation::Registration::operator=(Registration &&other) noexcept
{
    if (this != &other) {
        release();
        m_state = std::move(other.m_state);
        m_id = other.m_id;
        other.m_id = 0;
    }
    return *this;
}

Cancellation::Registration::~Registration()
{
    release();
}

void Cancellation::Registration::release()
{
    if (!m_state)
        return;
    std::unique_lock lock(m_state->mutex);
    m_state->callbacks.erase(m_id);
    // A callback that drops its own registration must not wait for itself.
    m_state->finished.wait(lock, [&] {
        return m_state->runningId != m_id || m_state->runningThread == std::this_thread::get_id();
    });
    lock.unlock();
    m_state.reset();
    m_id = 0;
}

} // namespace velum
