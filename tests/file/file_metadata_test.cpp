#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

class FileGetTime : public FileFixture {};
class FileSetTime : public FileFixture {};
class FileGetTimeByName : public FileFixture {};
class FileSetTimeByName : public FileFixture {};
class FileGetSizeByName : public FileFixture {};
class FileAttributes : public FileFixture {};
class FileReadOnly : public FileFixture {};
class FileKind : public FileFixture {};

constexpr FaultPoint kGetFileTime = {"GetFileTime", 0, kGenericFailure};
constexpr FaultPoint kSetFileTime = {"SetFileTime", 0, kGenericFailure};
constexpr FaultPoint kFileTimeToSystemTime = {"FileTimeToSystemTime", 0, ERROR_INVALID_PARAMETER};
constexpr FaultPoint kFindFirstFile = {"FindFirstFileW", kInvalidHandle, ERROR_ACCESS_DENIED};
constexpr FaultPoint kGetAttributes = {"GetFileAttributesW", 0xFFFFFFFF, ERROR_ACCESS_DENIED};
constexpr FaultPoint kSetAttributes = {"SetFileAttributesW", 0, ERROR_SHARING_VIOLATION};
constexpr FaultPoint kGetAttributesEx = {"GetFileAttributesExW", 0, ERROR_ACCESS_DENIED};

// Three times that differ in every field that counts.
constexpr VornTime kAccess = {2019, 3, 0, 14, 1, 59, 26, 535};
constexpr VornTime kModify = {2005, 12, 0, 31, 23, 58, 57, 999};
constexpr VornTime kCreate = {1999, 7, 0, 4, 12, 0, 1, 250};

SYSTEMTIME Calendar(const VornTime& time)
{
    return {time.year, time.month,  time.dayOfWeek, time.day,
            time.hour, time.minute, time.second,    time.milliseconds};
}

FILETIME FileTimeOf(const VornTime& time)
{
    const SYSTEMTIME calendar = Calendar(time);
    FILETIME result = {};
    EXPECT_TRUE(SystemTimeToFileTime(&calendar, &result));
    return result;
}

bool Same(const VornTime& a, const VornTime& b)
{
    return VornTimeCmp(&a, &b, 0) == 0;
}

// Times as SetFileTime was asked for them last; zero for those that were null.
struct TimeRequest {
    bool create, access, modify;
    FILETIME createTime, accessTime, modifyTime;
} timeRequest;

BOOL WINAPI RememberTimes(HANDLE, const FILETIME* create, const FILETIME* access, const FILETIME* modify)
{
    timeRequest = {};
    if ((timeRequest.create = create != nullptr)) timeRequest.createTime = *create;
    if ((timeRequest.access = access != nullptr)) timeRequest.accessTime = *access;
    if ((timeRequest.modify = modify != nullptr)) timeRequest.modifyTime = *modify;
    return TRUE;
}

BOOL WINAPI GiveKnownTimes(HANDLE, FILETIME* create, FILETIME* access, FILETIME* modify)
{
    *create = FileTimeOf(kCreate);
    *access = FileTimeOf(kAccess);
    *modify = FileTimeOf(kModify);
    return TRUE;
}

HANDLE WINAPI FindKnownEntry(LPCWSTR, WIN32_FIND_DATAW* entry)
{
    *entry = {};
    entry->ftCreationTime = FileTimeOf(kCreate);
    entry->ftLastAccessTime = FileTimeOf(kAccess);
    entry->ftLastWriteTime = FileTimeOf(kModify);
    entry->nFileSizeHigh = 3;
    entry->nFileSizeLow = 0x80000001;
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);  // FindClose is redirected to CloseHandle
}

DWORD attributesToGive;
DWORD attributesSet;

DWORD WINAPI GiveAttributes(LPCWSTR)
{
    return attributesToGive;
}
BOOL WINAPI IgnoreAttributes(LPCWSTR, DWORD attributes)
{
    attributesSet = attributes;
    return TRUE;
}

}  // namespace

TEST_F(FileGetTime, GivesAccessModificationAndCreationInThisOrder)
{
    VornFile* file = OpenWith(L"file", "text");
    ImportRedirect redirect("GetFileTime", &GiveKnownTimes);
    VornTime access, modify, create;
    EXPECT_EQ(VornFileGetTime(file, &access, &modify, &create), VORN_OK);
    EXPECT_TRUE(Same(access, kAccess));
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_TRUE(Same(create, kCreate));
    EXPECT_EQ(access.dayOfWeek, 4);  // 14 March 2019 was a Thursday
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileGetTime, ReadsWhatTheSystemStoredInUtc)
{
    VornFile* file = OpenWith(L"file", "text");
    void* native = nullptr;
    EXPECT_EQ(VornFileGetNativeHandle(file, &native), VORN_OK);
    const FILETIME modified = FileTimeOf(kModify);
    EXPECT_TRUE(SetFileTime(native, nullptr, nullptr, &modified));
    VornTime modify;
    EXPECT_EQ(VornFileGetTime(file, nullptr, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileGetTime, TakesNullForWhatIsNotWanted)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileGetTime(file, nullptr, nullptr, nullptr), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileGetTime, LeavesAnOutputAloneWhoseTimeCannotBeConverted)
{
    VornFile* file = OpenWith(L"file", "text");
    ImportRedirect redirect("GetFileTime", &GiveKnownTimes);
    for (long nth = 1; nth <= 3; ++nth) {
        FailingCall fail(kFileTimeToSystemTime, nth);
        VornTime times[3] = {{1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6, 7, 8}};
        const VornTime expected[3] = {kAccess, kModify, kCreate};
        EXPECT_EQ(VornFileGetTime(file, &times[0], &times[1], &times[2]), VORN_OK);
        for (long i = 0; i < 3; ++i) EXPECT_EQ(Same(times[i], expected[i]), i + 1 != nth);
        EXPECT_EQ(times[nth - 1].year, 1);
        EXPECT_EQ(times[nth - 1].milliseconds, 8);
    }
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileGetTime, ReportsUnknownHandlesAndSystemFailures)
{
    VornTime time = kAccess;
    EXPECT_EQ(VornFileGetTime(nullptr, &time, &time, &time), VORN_E_INVALID_ARG);
    VornFile* file = OpenWith(L"file", "text");
    {
        FailingCall fail(kGetFileTime);
        EXPECT_EQ(VornFileGetTime(file, &time, &time, &time), VORN_E_READ);
    }
    EXPECT_TRUE(Same(time, kAccess));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(VornFileGetTime(file, &time, &time, &time), VORN_E_INVALID_ARG);
}

TEST_F(FileSetTime, StoresAccessAndModificationTime)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSetTime(file, &kAccess, &kModify, nullptr), VORN_OK);
    VornTime access, modify;
    EXPECT_EQ(VornFileGetTime(file, &access, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(access, kAccess));
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetTime, HandsOnExactlyTheTimesGiven)
{
    VornFile* file = OpenWith(L"file", "text");
    ImportRedirect redirect("SetFileTime", &RememberTimes);
    for (int given = 0; given < 8; ++given) {
        const bool access = (given & 1) != 0, modify = (given & 2) != 0, create = (given & 4) != 0;
        timeRequest = {true, true, true, {}, {}, {}};
        const VornStatus status = VornFileSetTime(file, access ? &kAccess : nullptr,
                                                  modify ? &kModify : nullptr, create ? &kCreate : nullptr);
        if (!access && !modify) {
            EXPECT_EQ(status, VORN_E_INVALID_ARG);
            continue;
        }
        EXPECT_EQ(status, VORN_OK);
        EXPECT_EQ(timeRequest.access, access);
        EXPECT_EQ(timeRequest.modify, modify);
        EXPECT_EQ(timeRequest.create, create);
        const FILETIME times[3] = {FileTimeOf(kAccess), FileTimeOf(kModify), FileTimeOf(kCreate)};
        if (access) {
            EXPECT_EQ(std::memcmp(&timeRequest.accessTime, &times[0], sizeof(FILETIME)), 0);
        }
        if (modify) {
            EXPECT_EQ(std::memcmp(&timeRequest.modifyTime, &times[1], sizeof(FILETIME)), 0);
        }
        if (create) {
            EXPECT_EQ(std::memcmp(&timeRequest.createTime, &times[2], sizeof(FILETIME)), 0);
        }
    }
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetTime, RefusesACreationTimeAloneAndChangesNothing)
{
    VornFile* file = OpenWith(L"file", "text");
    VornTime before, after;
    EXPECT_EQ(VornFileGetTime(file, nullptr, nullptr, &before), VORN_OK);
    EXPECT_EQ(VornFileSetTime(file, nullptr, nullptr, &kCreate), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetTime(file, nullptr, nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileGetTime(file, nullptr, nullptr, &after), VORN_OK);
    EXPECT_TRUE(Same(before, after));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetTime, RefusesAnyTimeThatIsNoCalendarTimeAndChangesNothing)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSetTime(file, &kAccess, &kModify, nullptr), VORN_OK);
    VornTime bad = kAccess;
    bad.month = 13;
    EXPECT_EQ(VornFileSetTime(file, &bad, &kCreate, &kCreate), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetTime(file, &kCreate, &bad, &kCreate), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetTime(file, &kCreate, &kCreate, &bad), VORN_E_INVALID_ARG);
    VornTime access, modify;
    EXPECT_EQ(VornFileGetTime(file, &access, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(access, kAccess));
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetTime, IgnoresTheDayOfWeek)
{
    VornFile* file = OpenWith(L"file", "text");
    VornTime time = kModify;
    time.dayOfWeek = 6999;
    EXPECT_EQ(VornFileSetTime(file, nullptr, &time, nullptr), VORN_OK);
    VornTime modify;
    EXPECT_EQ(VornFileGetTime(file, nullptr, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_EQ(modify.dayOfWeek, 6);  // 31 December 2005 was a Saturday
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetTime, ReportsUnknownHandlesAndSystemFailures)
{
    EXPECT_EQ(VornFileSetTime(nullptr, &kAccess, &kModify, nullptr), VORN_E_INVALID_ARG);
    VornFile* file = OpenWith(L"file", "text");
    {
        FailingCall fail(kSetFileTime);
        EXPECT_EQ(VornFileSetTime(file, &kAccess, &kModify, nullptr), VORN_E_WRITE);
    }
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(VornFileSetTime(file, &kAccess, &kModify, nullptr), VORN_E_INVALID_ARG);
}

TEST_F(FileGetTimeByName, GivesTheTimesOfTheEntry)
{
    ImportRedirect find("FindFirstFileW", &FindKnownEntry);
    ImportRedirect close("FindClose", &CloseHandle);
    LeakWatch watch;
    VornTime access, modify, create;
    EXPECT_EQ(VornFileGetTimeByName(L"any", &access, &modify, &create), VORN_OK);
    EXPECT_TRUE(Same(access, kAccess));
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_TRUE(Same(create, kCreate));
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileGetTimeByName, WorksForFilesDirectoriesAndWildcards)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSetTime(file, nullptr, &kModify, nullptr), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    VornTime modify = {};
    EXPECT_EQ(VornFileGetTimeByName(Path(L"file").c_str(), nullptr, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(modify, kModify));
    modify = {};
    EXPECT_EQ(VornFileGetTimeByName(Path(L"f*l?").c_str(), nullptr, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_EQ(VornFileGetTimeByName(folder.Path().c_str(), &modify, nullptr, nullptr), VORN_OK);
    EXPECT_EQ(VornFileGetTimeByName(Path(L"file").c_str(), nullptr, nullptr, nullptr), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
}

TEST_F(FileGetTimeByName, ReportsWhyItCannot)
{
    VornTime time = kAccess;
    EXPECT_EQ(VornFileGetTimeByName(nullptr, &time, &time, &time), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileGetTimeByName(Path(L"missing").c_str(), &time, &time, &time), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileGetTimeByName(Path(L"no\\file").c_str(), &time, &time, &time), VORN_E_PATH_NOT_FOUND);
    FailingCall fail(kFindFirstFile);
    EXPECT_EQ(VornFileGetTimeByName(folder.Path().c_str(), &time, &time, &time), VORN_E_NOT_PERMITTED);
    EXPECT_TRUE(Same(time, kAccess));
}

TEST_F(FileSetTimeByName, SetsTheTimesAndLeavesNothingOpen)
{
    StoreBytes(Path(L"file"), "text");
    EXPECT_EQ(VornFileSetTimeByName(Path(L"file").c_str(), &kAccess, &kModify, nullptr), VORN_OK);
    LeakWatch watch;
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileSetTimeByName(Path(L"file").c_str(), &kAccess, &kModify, &kCreate), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
    VornTime modify;
    EXPECT_EQ(VornFileGetTimeByName(Path(L"file").c_str(), nullptr, &modify, nullptr), VORN_OK);
    EXPECT_TRUE(Same(modify, kModify));
    EXPECT_EQ(LoadBytes(Path(L"file")), "text");
}

TEST_F(FileSetTimeByName, ReportsAFileThatCannotBeOpenedInTheLastErrorToo)
{
    EXPECT_EQ(VornFileSetTimeByName(Path(L"missing").c_str(), &kAccess, &kModify, nullptr), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
    EXPECT_FALSE(IsThere(Path(L"missing")));
    EXPECT_EQ(VornFileSetTimeByName(nullptr, &kAccess, &kModify, nullptr), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornGetLastError(), VORN_E_PATH_NOT_FOUND);
}

TEST_F(FileSetTimeByName, ReturnsWhatTheSettingSaidAndStillCloses)
{
    StoreBytes(Path(L"file"), "text");
    LeakWatch watch;
    EXPECT_EQ(VornFileSetTimeByName(Path(L"file").c_str(), nullptr, nullptr, &kCreate), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    FailingCall fail(kSetFileTime);
    EXPECT_EQ(VornFileSetTimeByName(Path(L"file").c_str(), &kAccess, nullptr, nullptr), VORN_E_WRITE);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileSetTimeByName, SharesTheFileWithOtherOpeners)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSetTimeByName(Path(L"file").c_str(), nullptr, &kModify, nullptr), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetTimeByName, ReportsThatMemoryRanOut)
{
    StoreBytes(Path(L"file"), "text");
    FailingCall fail(kCalloc);
    EXPECT_EQ(VornFileSetTimeByName(Path(L"file").c_str(), &kAccess, &kModify, nullptr), VORN_E_NO_MEMORY);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
    EXPECT_EQ(fail.Failures(), 1);
}

TEST_F(FileGetSizeByName, GivesTheSizeOfFilesAndOfTheFirstMatch)
{
    StoreBytes(Path(L"file"), "0123456789");
    EXPECT_EQ(VornFileGetSizeByName(Path(L"file").c_str()), 10u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornFileGetSizeByName(Path(L"fi*").c_str()), 10u);
    EXPECT_EQ(VornFileGetSizeByName(folder.Path().c_str()), 0u);
}

TEST_F(FileGetSizeByName, JoinsBothHalvesAndClosesTheSearch)
{
    ImportRedirect find("FindFirstFileW", &FindKnownEntry);
    ImportRedirect close("FindClose", &CloseHandle);
    LeakWatch watch;
    EXPECT_EQ(VornFileGetSizeByName(L"any"), 0x380000001u);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileGetSizeByName, GivesTheNumberOfTheStatusForANullName)
{
    EXPECT_EQ(VornFileGetSizeByName(nullptr), 102u);
    EXPECT_EQ(VornGetLastError(), kUntouched);
}

TEST_F(FileGetSizeByName, ReportsAMissingNameInTheLastError)
{
    EXPECT_EQ(VornFileGetSizeByName(Path(L"missing").c_str()), VORN_FILE_FAILED);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileGetSizeByName(Path(L"no\\file").c_str()), VORN_FILE_FAILED);
    EXPECT_EQ(VornGetLastError(), VORN_E_PATH_NOT_FOUND);
}

TEST_F(FileAttributes, AreTheSystemsBitsAsTheyAre)
{
    StoreBytes(Path(L"file"), "text");
    const uint32_t readOnly = FILE_ATTRIBUTE_READONLY;
    EXPECT_EQ(VornFileSetAttributes(Path(L"file").c_str(), &readOnly), VORN_OK);
    uint32_t attributes = 0;
    EXPECT_EQ(VornFileGetAttributes(Path(L"file").c_str(), &attributes), VORN_OK);
    EXPECT_EQ(attributes, GetFileAttributesW(Path(L"file").c_str()));
    EXPECT_EQ(attributes & 1, 1u);
    EXPECT_EQ(VornFileGetAttributes(folder.Path().c_str(), &attributes), VORN_OK);
    EXPECT_EQ(attributes & 16, 16u);
    EXPECT_EQ(VornGetLastError(), kUntouched);
}

TEST_F(FileAttributes, OfAMissingNameAreAllBitsSet)
{
    uint32_t attributes = 5;
    EXPECT_EQ(VornFileGetAttributes(Path(L"missing").c_str(), &attributes), VORN_E_NOT_FOUND);
    EXPECT_EQ(attributes, 0xFFFFFFFFu);
    EXPECT_EQ(VornFileSetAttributes(Path(L"missing").c_str(), &attributes), VORN_E_NOT_FOUND);
    attributes = 5;
    EXPECT_EQ(VornFileGetAttributes(Path(L"no\\file").c_str(), &attributes), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(attributes, 0xFFFFFFFFu);
}

TEST_F(FileAttributes, RefuseNullPointers)
{
    uint32_t attributes = 5;
    EXPECT_EQ(VornFileGetAttributes(nullptr, &attributes), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileGetAttributes(folder.Path().c_str(), nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetAttributes(nullptr, &attributes), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetAttributes(folder.Path().c_str(), nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(attributes, 5u);
}

TEST_F(FileAttributes, ReportTheSystemsError)
{
    StoreBytes(Path(L"file"), "text");
    uint32_t attributes = 0;
    {
        FailingCall fail(kGetAttributes);
        EXPECT_EQ(VornFileGetAttributes(Path(L"file").c_str(), &attributes), VORN_E_NOT_PERMITTED);
        EXPECT_EQ(attributes, 0xFFFFFFFFu);
    }
    FailingCall fail(kSetAttributes);
    EXPECT_EQ(VornFileSetAttributes(Path(L"file").c_str(), &attributes), VORN_E_SHARING);
}

TEST_F(FileReadOnly, IsSetByOneAndClearedByEveryOtherValue)
{
    StoreBytes(Path(L"file"), "text");
    uint32_t readOnly = 55;
    EXPECT_EQ(VornFileGetReadOnly(Path(L"file").c_str(), &readOnly), VORN_OK);
    EXPECT_EQ(readOnly, 0u);
    for (uint32_t value : {0u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 1), VORN_OK);
        EXPECT_EQ(VornFileGetReadOnly(Path(L"file").c_str(), &readOnly), VORN_OK);
        EXPECT_EQ(readOnly, 1u);
        EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), value), VORN_OK);
        EXPECT_EQ(VornFileGetReadOnly(Path(L"file").c_str(), &readOnly), VORN_OK);
        EXPECT_EQ(readOnly, 0u);
    }
    EXPECT_EQ(VornGetLastError(), kUntouched);
}

TEST_F(FileReadOnly, KeepsTheOtherAttributes)
{
    ImportRedirect give("GetFileAttributesW", &GiveAttributes);
    ImportRedirect ignore("SetFileAttributesW", &IgnoreAttributes);
    attributesToGive = FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN;
    VornFileSetReadOnly(L"any", 1);
    EXPECT_EQ(attributesSet, DWORD{FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY});
    attributesToGive = attributesSet;
    VornFileSetReadOnly(L"any", 0);
    EXPECT_EQ(attributesSet, DWORD{FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN});
}

TEST_F(FileReadOnly, OfAMissingNameIsNotFoundWhateverTheReason)
{
    uint32_t readOnly = 55;
    EXPECT_EQ(VornFileGetReadOnly(Path(L"missing").c_str(), &readOnly), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileGetReadOnly(Path(L"no\\file").c_str(), &readOnly), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileSetReadOnly(Path(L"no\\file").c_str(), 1), VORN_E_NOT_FOUND);
    FailingCall fail(kGetAttributes);
    EXPECT_EQ(VornFileGetReadOnly(folder.Path().c_str(), &readOnly), VORN_E_NOT_FOUND);
    EXPECT_EQ(readOnly, 55u);
}

TEST_F(FileReadOnly, RefusesNullPointers)
{
    uint32_t readOnly = 55;
    EXPECT_EQ(VornFileGetReadOnly(nullptr, &readOnly), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileGetReadOnly(folder.Path().c_str(), nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetReadOnly(nullptr, 1), VORN_E_INVALID_ARG);
}

TEST_F(FileReadOnly, ReportsAChangeThatCannotBeMadeOrNotBeReadBack)
{
    StoreBytes(Path(L"file"), "text");
    {
        FailingCall fail(kSetAttributes);
        EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 1), VORN_E_WRITE);
    }
    FailingCall fail(kGetAttributesEx);
    EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 1), VORN_E_WRITE);
    EXPECT_EQ(fail.Failures(), 1);
}

TEST_F(FileReadOnly, ReportsAChangeThatTheAttributesDoNotShow)
{
    StoreBytes(Path(L"file"), "text");
    {
        ImportRedirect ignore("SetFileAttributesW", &IgnoreAttributes);
        EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 1), VORN_E_NOT_APPLIED);
        EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 0), VORN_OK);
    }
    EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 1), VORN_OK);
    ImportRedirect ignore("SetFileAttributesW", &IgnoreAttributes);
    EXPECT_EQ(VornFileSetReadOnly(Path(L"file").c_str(), 0), VORN_E_NOT_APPLIED);
}

TEST_F(FileKind, TellsFilesDirectoriesAndMissingNamesApart)
{
    StoreBytes(Path(L"file"), "text");
    EXPECT_EQ(VornFileExistsFile(Path(L"file").c_str()), VORN_TRUE);
    EXPECT_EQ(VornFileExistsDir(Path(L"file").c_str()), VORN_FALSE);
    EXPECT_EQ(VornFileGetType(Path(L"file").c_str()), 1u);
    EXPECT_EQ(VornFileExistsFile(folder.Path().c_str()), VORN_FALSE);
    EXPECT_EQ(VornFileExistsDir(folder.Path().c_str()), VORN_TRUE);
    EXPECT_EQ(VornFileGetType(folder.Path().c_str()), 2u);
    for (const wchar_t* name : {L"missing", L"no\\file", L"", static_cast<const wchar_t*>(nullptr)}) {
        const std::wstring path = name != nullptr && *name != 0 ? Path(name) : L"";
        const wchar_t* text = name == nullptr ? nullptr : path.c_str();
        EXPECT_EQ(VornFileExistsFile(text), VORN_FALSE);
        EXPECT_EQ(VornFileExistsDir(text), VORN_FALSE);
        EXPECT_EQ(VornFileGetType(text), 3u);
    }
    EXPECT_EQ(VornGetLastError(), kUntouched);
}

TEST_F(FileKind, AttributesThatAreAllZeroCountAsMissingButHaveAType)
{
    ImportRedirect give("GetFileAttributesW", &GiveAttributes);
    attributesToGive = 0;
    EXPECT_EQ(VornFileExistsFile(L"any"), VORN_FALSE);
    EXPECT_EQ(VornFileExistsDir(L"any"), VORN_FALSE);
    EXPECT_EQ(VornFileGetType(L"any"), 1u);
}
