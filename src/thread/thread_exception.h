// thread_exception.h - what unwinds a library-started thread to its start routine. Thrown only there and
// caught only there; client code sees it as an exception of a type it cannot name and must let it pass.
#ifndef VORN_THREAD_THREAD_EXCEPTION_H
#define VORN_THREAD_THREAD_EXCEPTION_H

namespace vorn::detail {

class ThreadException {};
class ThreadExceptionCancel : public ThreadException {};  // the thread was cancelled
class ThreadExceptionExit : public ThreadException {};    // VornThreadExit; the exit value is in the record

}  // namespace vorn::detail

#endif
