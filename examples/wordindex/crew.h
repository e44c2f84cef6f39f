// crew.h - the worker processes, seen from their parent.
#ifndef WORDINDEX_CREW_H
#define WORDINDEX_CREW_H

#include <vorn/vorn.h>

#include "shared_index.h"

#include <string>
#include <vector>

namespace wordindex {

class Crew {
public:
    explicit Crew(SharedIndex* index) : index_(index) {}
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    // Kills workers that still run.
    ~Crew();

    // Starts the workers; each finds its orders in its environment. Says which cannot be started.
    void Start(const std::wstring& heapName, uint64_t heapBytes, uint32_t workers, uint32_t threads);

    // Waits for workers to end, at most so long, and clears up behind those that ended early. Returns how
    // many still run.
    size_t Watch(uint32_t timeoutMs);
    void Kill();

    size_t Running() const;
    // A worker was killed inside the heap, which can no longer be entered.
    bool HeapIsLost() const { return heapIsLost_; }
    // Some worker did not end as it should.
    bool SomeFailed() const { return someFailed_; }

private:
    struct Worker {
        VornPPid* process;  // null once it has ended
        int32_t number;
    };

    void NoteEnd(Worker* worker);
    VornPPid* StartOne(const std::wstring& program, VornProcEnv* env, int32_t number);

    SharedIndex* index_;
    std::vector<Worker> workers_;
    bool heapIsLost_ = false;
    bool someFailed_ = false;
};

}  // namespace wordindex

#endif
