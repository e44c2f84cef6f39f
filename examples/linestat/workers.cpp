#include "workers.h"

#include <algorithm>
#include <utility>

namespace linestat {

namespace {

// Hands out the numbers from 0 up to a limit, each to one thread.
class Queue {
public:
    explicit Queue(size_t limit) : limit_(limit) {}
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue() { VornMutexDestroy(&mutex_); }

    bool Take(size_t* number)
    {
        if (VornMutexLock(&mutex_) != VORN_OK) return false;
        const bool taken = next_ < limit_;
        if (taken) *number = next_++;
        VornMutexUnlock(&mutex_);
        return taken;
    }

private:
    VornMutex* mutex_ = VORN_MUTEX_INITIALIZER;  // guards next_; created by the first lock
    size_t next_ = 0;
    const size_t limit_;
};

struct Work {
    const std::vector<Name>& names;
    std::vector<FileFacts> facts;  // each element written by the thread that took its number
    Queue queue;

    explicit Work(const std::vector<Name>& all) : names(all), facts(all.size()), queue(all.size()) {}
};

void* WorkUntilDone(void* argument)
{
    Work& work = *static_cast<Work*>(argument);
    size_t number = 0;
    while (work.queue.Take(&number)) {
        const Name& name = work.names[number];
        if (name.status == VORN_OK) {
            work.facts[number] = GatherFacts(name.path);
        } else {
            work.facts[number].status = name.status;
        }
    }
    return nullptr;
}

}  // namespace

std::vector<FileFacts> GatherAll(const std::vector<Name>& names, unsigned threads)
{
    Work work(names);
    std::vector<VornThread*> started;
    for (size_t i = 0; i < std::min<size_t>(threads, names.size()); ++i) {
        VornThread* thread = nullptr;
        if (VornThreadCreate(&thread, nullptr, &WorkUntilDone, &work) != VORN_OK) break;
        started.push_back(thread);
    }
    // Where no thread could be started, this one does what is to be done.
    if (started.empty()) WorkUntilDone(&work);
    for (VornThread* thread : started) VornThreadJoin(thread, nullptr);
    return std::move(work.facts);
}

}  // namespace linestat
