#include "build_index.h"

#include "crew.h"
#include "find_files.h"
#include "image.h"
#include "messages.h"
#include "read_words.h"
#include "shared_index.h"
#include "word_split.h"

#include <chrono>
#include <csignal>
#include <cstdio>

namespace wordindex {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kWatchMs = 50;
constexpr int kGraceMs = 30000;  // for workers that were asked to stop
constexpr int kLostHeapGraceMs = 2000;

volatile std::sig_atomic_t interrupted = 0;

void NoteInterrupt(int)
{
    interrupted = 1;
}

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

uint64_t HeapBytesFor(const std::vector<FoundFile>& files, uint32_t processors)
{
    uint64_t textBytes = 0;
    uint64_t listBytes = 0;
    for (const FoundFile& file : files) {
        textBytes += file.size;
        listBytes += sizeof(FileEntry) + (file.name.size() + 1) * sizeof(wchar_t);
    }
    // Each thread holds a piece of the heap; the number of different words grows slower than the text.
    const uint64_t bytes = (uint64_t{4} << 20) + listBytes + textBytes / 2 + processors * 2 * kArenaPiece;
    constexpr uint64_t kMost = uint64_t{1} << 30;
    return bytes < kMost ? bytes : kMost;
}

std::wstring HeapName()
{
    const auto ticks = Clock::now().time_since_epoch().count();
    return L"wordindex-" + std::to_wstring(VornProcPPid2Native(VornProcGetCurrentPPid())) + L"-" +
           std::to_wstring(ticks);
}

std::string ProgressText(const IndexHeader& header, size_t workers)
{
    const uint64_t done = static_cast<uint64_t>(header.filesDone);
    const uint64_t mib = static_cast<uint64_t>(header.kibDone) / 1024;
    char percent[8];
    std::snprintf(percent, sizeof(percent), "%3u %%",
                  static_cast<unsigned>(100 * done / header.fileCount % 1000));
    return std::string(percent) + "  " + Grouped(done) + " of " + Grouped(header.fileCount) + " files, " +
           Grouped(mib) + " MiB, " + std::to_string(workers) + " workers" +
           (header.stop != 0 ? ", stopping" : "");
}

// Lets the workers work. True when every file was taken.
bool WatchWorkers(Crew* crew, SharedIndex* index, bool progress)
{
    IndexHeader& header = index->Header();
    ProgressLine line(progress);
    Clock::time_point stopped{};
    size_t running = 0;
    do {
        running = crew->Watch(kWatchMs);
        line.Draw(ProgressText(header, running));
        if (interrupted != 0) header.stop = 1;
        if (header.stop == 0) continue;
        if (stopped == Clock::time_point{}) stopped = Clock::now();
        if (SecondsSince(stopped) * 1000 > (crew->HeapIsLost() ? kLostHeapGraceMs : kGraceMs)) crew->Kill();
    } while (running != 0);
    return static_cast<uint32_t>(header.nextFile) >= header.fileCount;
}

// Says what became of files that are not in the index, or not as they should be. Returns how many are.
uint32_t ReportFiles(const WordTable& table)
{
    uint32_t counted = 0;
    uint32_t inPart = 0;
    uint32_t unread = 0;
    for (uint32_t i = 0; const FileEntry* file = table.FileAt(i); ++i) {
        const wchar_t* stored = table.NameOf(*file);
        const wchar_t* name = stored != nullptr ? stored : L"a file without a name";
        switch (file->state) {
            case kFileCounted:
                ++counted;
                break;
            case kFileIllFormed:
                ++counted;
                Complain(name, "not all of it is UTF-8; the rest is counted", VORN_E_CONVERSION);
                break;
            case kFileFailed:
                if (file->status == VORN_E_NO_MEMORY) {
                    ++inPart;
                } else if (file->status == VORN_E_STOPPED) {
                    Complain(name, "its worker was ended; it is not counted, or only in part",
                             VORN_E_STOPPED);
                } else {
                    Complain(name, file->status);
                }
                break;
            default:
                ++unread;
        }
    }
    if (inPart != 0) {
        Complain(L"files counted in part: " + std::to_wstring(inPart),
                 "the heap has no room for all words; -m makes it larger", VORN_E_NO_MEMORY);
    }
    if (unread != 0)
        Complain(L"files not counted: " + std::to_wstring(unread), "they were not read any more",
                 VORN_E_STOPPED);
    return counted;
}

void PrintWords(const std::vector<CountedWord>& words, size_t most)
{
    for (size_t i = 0; i < words.size() && i < most; ++i) {
        std::printf("%10llu  %s\n", static_cast<unsigned long long>(words[i].count),
                    Utf8(words[i].text).c_str());
    }
}

// Prints the words as the options ask. False when the table is damaged.
bool PrintIndex(const WordTable& table, const Options& options)
{
    std::vector<CountedWord> words;
    const bool sound = SortedWords(table, &words);
    PrintWords(words, options.all ? words.size() : options.topWords);
    return sound;
}

// Saves the heap, loads it again and compares what is in it.
bool SaveAndVerify(const SharedIndex& index, const std::wstring& fileName, Image* image)
{
    VornStatus status = VornHeapCheck(index.Heap());
    if (status != VORN_OK) {
        Complain(L"the shared heap", status);
        return false;
    }
    status = VornHeapSave(index.Heap(), fileName.c_str());
    if (status == VORN_OK) status = image->Load(fileName);
    if (status != VORN_OK) {
        Complain(fileName, status);
        return false;
    }
    Totals live;
    Totals loaded;
    if (!CountAll(index.Table(), &live) || !CountAll(image->Table(), &loaded) ||
        live.allWords != loaded.allWords || live.distinctWords != loaded.distinctWords)
    {
        Complain(fileName, "the image differs from the index", VORN_E_BAD_DATA);
        return false;
    }
    return true;
}

void PrintSummary(const WordTable& table, uint32_t counted, double seconds, const Options& options)
{
    Totals totals;
    CountAll(table, &totals);
    std::printf("%s files, %s MiB, %s words, %s of them different; %.2f s with %u workers of %u threads\n",
                Grouped(counted).c_str(),
                Grouped(static_cast<uint64_t>(table.Header()->kibDone) / 1024).c_str(),
                Grouped(totals.allWords).c_str(), Grouped(totals.distinctWords).c_str(), seconds,
                options.workers, options.threads);
}

// Prints the count of each word in a text. False when one is not in the table, or the text has none.
bool AnswerFor(const std::wstring& asked, const WordTable& table)
{
    bool anyWord = false;
    bool allFound = true;
    Word word;
    for (size_t position = 0; NextWord(asked.data(), asked.size(), &position, &word);) {
        const std::wstring text(word.text, word.length);
        const std::wstring folded = FoldWord(text);
        const uint64_t count = table.Find(folded.data(), static_cast<uint32_t>(folded.size()),
                                          HashWord(folded.data(), folded.size()));
        PrintWords({{folded.empty() ? text : folded, count}}, 1);
        anyWord = true;
        allFound &= count != 0;
    }
    if (!anyWord) Complain(asked, "no word is in it", VORN_E_INVALID_ARG);
    return anyWord && allFound;
}

}  // namespace

int BuildIndex(const Options& options)
{
    bool complete = true;
    std::vector<FoundFile> files;
    for (const std::wstring& word : options.words) complete &= FindFiles(word, &files);
    if (files.empty()) {
        Complain(L"no index", "there is nothing to count", VORN_E_NOT_FOUND);
        return 2;
    }

    std::signal(SIGINT, &NoteInterrupt);
    const Clock::time_point start = Clock::now();
    const std::wstring heapName = HeapName();
    const uint64_t heapBytes =
        options.heapMiB != 0 ? options.heapMiB << 20 : HeapBytesFor(files, options.workers * options.threads);
    SharedIndex index;
    const VornStatus created = index.Create(heapName, heapBytes, files);
    if (created != VORN_OK) {
        Complain(L"a heap of " + std::to_wstring(heapBytes >> 20) + L" MiB for " +
                     std::to_wstring(files.size()) + L" files",
                 created);
        return 2;
    }
    Crew crew(&index);
    crew.Start(heapName, heapBytes, options.workers, options.threads);
    complete &= WatchWorkers(&crew, &index, options.progress);
    complete &= !crew.SomeFailed();
    const double seconds = SecondsSince(start);

    const uint32_t counted = ReportFiles(index.Table());
    if (interrupted != 0) Complain(L"interrupted", "the index holds what was counted so far", VORN_E_STOPPED);
    if (!options.all) PrintSummary(index.Table(), counted, seconds, options);
    if (crew.HeapIsLost()) {
        Complain(options.image, "not written, since a worker was ended inside the heap", VORN_E_HEAP_LOCK);
        PrintIndex(index.Table(), options);
        return 2;
    }
    Image image;
    if (!SaveAndVerify(index, options.image, &image)) return 2;
    if (!options.all) std::printf("saved as %s, loaded again and verified\n", Utf8(options.image).c_str());
    PrintIndex(image.Table(), options);
    return complete && counted == files.size() ? 0 : 1;
}

int AskImage(const Options& options)
{
    Image image;
    const VornStatus status = image.Load(options.image);
    if (status != VORN_OK) {
        Complain(options.image, status);
        return 2;
    }
    if (options.words.empty()) {
        if (PrintIndex(image.Table(), options)) return 0;
        Complain(options.image, "the index is damaged", VORN_E_BAD_DATA);
        return 2;
    }
    bool allFound = true;
    for (const std::wstring& asked : options.words) allFound &= AnswerFor(asked, image.Table());
    return allFound ? 0 : 1;
}

}  // namespace wordindex
