// module.cpp - what happens when the module is loaded, when threads end, and when it is unloaded.
//
// All of it runs under the system's loader lock, so nothing here waits for another thread. The handle
// registries are not made here but by their static initialisers, which run before process attach.

#include "core/win32.h"

#include "thread/static_init_lock.h"
#include "thread/terminate_handler.h"
#include "thread/thread_lifecycle.h"

using namespace vorn::detail;

namespace {

bool attached = false;

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            if (!CreateThreadRecordKey()) return FALSE;
            CreateStaticInitLock();
            attached = true;
            return TRUE;
        case DLL_THREAD_DETACH:
            RunThreadExitCleanup();
            return TRUE;
        case DLL_PROCESS_DETACH:
            // The C runtime's start-up code follows an attach that failed with a detach.
            if (!attached) return TRUE;
            if (reserved != nullptr) {
                NoteProcessEnd();
            } else {
                RemoveTerminateHandler();
            }
            RunThreadExitCleanup();
            DeleteThreadRecordKey();
            DeleteStaticInitLock();
            return TRUE;
        default:
            return TRUE;
    }
}
