// win32.h - the only file that includes <windows.h>, with its macros tamed.
#ifndef VORN_CORE_WIN32_H
#define VORN_CORE_WIN32_H

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

// Macros that would rename members and methods of ours.
#undef CreateSemaphore
#undef CreateMutex
#undef CreateEvent
#undef CreateProcess
#undef CreateFile
#undef DeleteFile
#undef GetFileAttributes
#undef SetFileAttributes
#undef GetCurrentDirectory
#undef Yield

#endif
