#include "controller_client/ControllerAsync.h"

#include "controller_client/ControllerCalls.h"
#include "dbus_helper/Descriptor.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

namespace Controllerd
{

struct ControllerAsync::Worker
{
  public:
    struct Call
    {
        std::function<void()> work;
        std::function<void()> done;
        int timeoutMilliseconds = ControllerTimeout::none;
        ControllerFailure failure = {};
    };

    ~Worker()
    {
        if (thread_.joinable())
        {
            thread_.join();
        }
    }
    Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    Worker(Worker&&) = delete;
    Worker& operator=(Worker&&) = delete;

    int Queue(Call call)
    {
        if (over_.Get() < 0)
        {
            return -EMFILE;
        }
        const std::lock_guard lock(mutex_);
        if (!thread_.joinable() && !Begin())
        {
            return -EAGAIN;
        }
        waiting_.push_back(std::move(call));
        changed_.notify_one();
        return 0;
    }

    /// Takes a call that is over, if there is one.
    std::optional<Call> Take()
    {
        const std::lock_guard lock(mutex_);
        if (ended_ || finished_.empty())
        {
            return std::nullopt;
        }
        std::optional<Call> call = std::move(finished_.front());
        finished_.pop_front();
        if (finished_.empty())
        {
            eventfd_t count = 0;
            eventfd_read(over_.Get(), &count);
        }
        return call;
    }

    [[nodiscard]] size_t Finished()
    {
        const std::lock_guard lock(mutex_);
        return finished_.size();
    }

    /// No call begins, and nothing follows one, from now on.
    void End()
    {
        std::deque<Call> dropped; // after the lock: what the program's functions hold may have its own destructors
        const std::lock_guard lock(mutex_);
        ended_ = true;
        dropped.swap(waiting_);
        changed_.notify_one();
    }

    [[nodiscard]] int Poll() const { return over_.Get(); }

  private:
    /// Starts the thread, to which no signal of the process is ever delivered.
    bool Begin()
    {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        try
        {
            thread_ = std::thread(&Worker::Run, this);
        }
        catch (const std::system_error&) // no thread to be had
        {}
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread_.joinable();
    }

    void Run()
    {
        std::unique_lock lock(mutex_);
        while (true)
        {
            changed_.wait(lock, [this] { return ended_ || !waiting_.empty(); });
            if (ended_)
            {
                return;
            }
            Call call = std::move(waiting_.front());
            waiting_.pop_front();
            lock.unlock();
            {
                const ControllerTimeout limit(call.timeoutMilliseconds);
                Remember(ControllerFailure()); // a call without operations has none
                call.work();
                call.failure = ControllerFailure::Last();
            }
            lock.lock();
            finished_.push_back(std::move(call));
            eventfd_write(over_.Get(), 1);
        }
    }

    DbusHelper::Descriptor over_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)}; // readable while there are finished calls
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Call> waiting_;
    std::deque<Call> finished_;
    bool ended_ = false;
    std::thread thread_;
};

ControllerAsync::ControllerAsync() : worker_(std::make_shared<Worker>()) {}
ControllerAsync::~ControllerAsync() { worker_->End(); }

int ControllerAsync::Queue(std::function<void()> work, std::function<void()> done, int timeoutMilliseconds)
{
    return worker_->Queue({std::move(work), std::move(done), timeoutMilliseconds});
}

int ControllerAsync::Dispatch()
{
    const std::shared_ptr<Worker> worker = worker_; // what runs may end this object
    int count = 0;
    for (size_t left = worker->Finished(); left > 0; --left)
    {
        std::optional<Worker::Call> call = worker->Take();
        if (!call)
        {
            break;
        }
        Remember(std::move(call->failure));
        call->done();
        ++count;
    }
    return count;
}

int ControllerAsync::Descriptor() const noexcept { return worker_->Poll(); }

} // namespace Controllerd
