// library_record.h - the record behind a VornLibrary.
#ifndef VORN_PROC_LIBRARY_RECORD_H
#define VORN_PROC_LIBRARY_RECORD_H

#include <vorn/library.h>

#include "core/win32.h"

struct VornLibrary {
    HMODULE module;
};

#endif
