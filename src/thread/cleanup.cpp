#include "thread/cleanup.h"

#include "core/record.h"
#include "thread/deferred_cancel.h"
#include "thread/thread_record.h"

#include <utility>

namespace vorn::detail {

struct CleanupNode {
    void (*handler)(void*);
    void* argument;
    CleanupNode* next;    // pushed before this one
    bool contextFollows;  // the argument is memory behind this node and lives as long
};

namespace {

// Contexts begin at an address that is aligned for everything.
constexpr size_t kContextOffset = (sizeof(CleanupNode) + 15) / 16 * 16;

CleanupNode* Unlink(CleanupNode** link) noexcept
{
    CleanupNode* const node = *link;
    *link = node->next;
    return node;
}

// A handler that throws ends the process: nothing can leave this function.
void RunAndFree(CleanupNode* node) noexcept
{
    const auto handler = node->handler;
    void* const argument = node->argument;
    if (node->contextFollows) {
        handler(argument);
        std::free(node);
    } else {
        std::free(node);
        handler(argument);
    }
}

void Push(void (*handler)(void*), void* argument) noexcept
{
    VornThread* const thread = VornThreadSelf();
    if (thread == nullptr) return;
    Record<CleanupNode> node;
    if (!node) return;
    node->handler = handler;
    node->argument = argument;
    node->next = thread->cleanupStack;
    thread->cleanupStack = node.Release();
}

void Dispose(CleanupNode* node, bool execute) noexcept
{
    if (execute) {
        RunAndFree(node);
    } else {
        std::free(node);
    }
}

void Pop(bool execute) noexcept
{
    VornThread* const thread = CurrentThread();
    if (thread == nullptr || thread->cleanupStack == nullptr) return;
    // A handler of the library is in use by the call that pushed it: a client that pops too often finds
    // nothing.
    if (thread->cleanupStack->contextFollows) return;
    Dispose(Unlink(&thread->cleanupStack), execute);
}

}  // namespace

void* PushCleanup(void (*handler)(void*), size_t contextSize) noexcept
{
    VornThread* const thread = VornThreadSelf();
    if (thread == nullptr) return nullptr;
    auto* const node = static_cast<CleanupNode*>(std::calloc(1, kContextOffset + contextSize));
    if (node == nullptr) return nullptr;
    node->handler = handler;
    node->argument = reinterpret_cast<char*>(node) + kContextOffset;
    node->contextFollows = true;
    node->next = std::exchange(thread->cleanupStack, node);
    return node->argument;
}

void RemoveCleanup(void* context, bool execute) noexcept
{
    VornThread* const thread = CurrentThread();
    if (thread == nullptr) return;
    for (CleanupNode** link = &thread->cleanupStack; *link != nullptr; link = &(*link)->next) {
        if ((*link)->argument != context || !(*link)->contextFollows) continue;
        Dispose(Unlink(link), execute);
        return;
    }
}

void RunCleanupHandlers(VornThread* thread) noexcept
{
    while (thread->cleanupStack != nullptr) RunAndFree(Unlink(&thread->cleanupStack));
}

void DropCleanupHandlers(VornThread* thread) noexcept
{
    while (thread->cleanupStack != nullptr) std::free(Unlink(&thread->cleanupStack));
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" void VornThreadCleanupPush(void (*handler)(void*), void* argument)
{
    if (handler == nullptr) return;
    DeferredCancel deferral;
    Push(handler, argument);
    deferral.End();
}

extern "C" void VornThreadCleanupPop(int32_t execute)
{
    // A handler that is off the stack must run: nobody else would run it.
    DeferredCancel deferral;
    Pop(execute != 0);
    deferral.End();
}
