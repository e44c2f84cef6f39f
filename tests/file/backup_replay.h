// backup_replay.h - a file's named streams for the tests: real ones where the system has them, otherwise
// recorded backup data that the module gets in place of the system's.
#ifndef VORN_TESTS_FILE_BACKUP_REPLAY_H
#define VORN_TESTS_FILE_BACKUP_REPLAY_H

#include "core/win32.h"

#include "file/backup_data.h"
#include "support/import_redirect.h"

#include <string>

namespace vorn_test {

// True when this system keeps named streams and hands out backup data.
bool SystemHasNamedStreams();

// Makes the module find our entry points when it looks up BackupRead and BackupSeek. They pass on to the
// system's unless a BackupReplay is active. The module keeps what it finds, so this is done once, before its
// first search of streams, and never undone. False when the redirect cannot be made.
bool RedirectBackupLookUps();

// While it lives, every walk over backup data sees `data`, whatever the file.
class BackupReplay {
public:
    explicit BackupReplay(Bytes data);
    BackupReplay(const BackupReplay&) = delete;
    BackupReplay& operator=(const BackupReplay&) = delete;
    ~BackupReplay();

    void SetData(Bytes data) { data_ = std::move(data); }
    // Each counted from 1 over all walks; 0 for none.
    int failReadNumber = 0;
    int failSeekNumber = 0;
    int shortSeekNumber = 0;

    int Reads() const { return reads_; }
    int Seeks() const { return seeks_; }
    int Aborts() const { return aborts_; }
    // Contexts that were handed out and not released by an aborting call.
    int LiveContexts() const { return liveContexts_; }
    // False once a call asked without security or in another way than it must.
    bool CalledAsDocumented() const { return calledAsDocumented_; }

private:
    friend struct BackupEntryPoints;
    BOOL Read(BYTE* buffer, DWORD bytes, DWORD* bytesRead, BOOL abort, BOOL security, void** context);
    BOOL Seek(DWORD low, DWORD high, DWORD* lowSkipped, DWORD* highSkipped, void** context);

    Bytes data_;
    int reads_ = 0;
    int seeks_ = 0;
    int aborts_ = 0;
    int liveContexts_ = 0;
    bool calledAsDocumented_ = true;
};

}  // namespace vorn_test

#endif
