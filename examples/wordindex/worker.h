// worker.h - a worker process: its threads take file after file and add their words to the index.
#ifndef WORDINDEX_WORKER_H
#define WORDINDEX_WORKER_H

namespace wordindex {

// The variables by which the parent tells a worker what to do.
constexpr wchar_t kHeapVariable[] = L"WORDINDEX_HEAP";
constexpr wchar_t kSizeVariable[] = L"WORDINDEX_HEAP_BYTES";
constexpr wchar_t kWorkerVariable[] = L"WORDINDEX_WORKER";
constexpr wchar_t kThreadsVariable[] = L"WORDINDEX_THREADS";
constexpr wchar_t kParentVariable[] = L"WORDINDEX_PARENT";

// The argument that makes the program a worker.
constexpr wchar_t kWorkerArgument[] = L"--worker";

// Returns the process's exit code: 0, or a status.
int RunWorker();

}  // namespace wordindex

#endif
