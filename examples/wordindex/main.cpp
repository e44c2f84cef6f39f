// wordindex - counts words with several processes that share one heap.

#include <vorn/vorn.hpp>

#include "build_index.h"
#include "messages.h"
#include "worker.h"

#include <cstdio>
#include <cwchar>
#include <fcntl.h>
#include <io.h>

namespace {

int Run(int count, wchar_t** arguments)
{
    if (count == 2 && std::wcscmp(arguments[1], wordindex::kWorkerArgument) == 0)
        return wordindex::RunWorker();
    wordindex::Options options;
    if (!wordindex::ParseOptions(count, arguments, &options)) return 2;
    if (options.help) {
        std::fputs(wordindex::kUsage, stdout);
        return 0;
    }
    return options.answerOnly ? wordindex::AskImage(options) : wordindex::BuildIndex(options);
}

}  // namespace

int wmain(int count, wchar_t** arguments)
{
    // Lines end as they are written, also in a pipe.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    const VornStatus started = VornInitialize();
    if (started != VORN_OK) {
        wordindex::Complain(L"the library does not start", started);
        return 2;
    }
    int code = 2;
    try {
        code = Run(count, arguments);
    } catch (const vorn::Exception& error) {
        std::fprintf(stderr, "wordindex: %s\n", error.What() != nullptr ? error.What() : "out of memory");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "wordindex: %s\n", error.what());
    }
    VornTerminate();
    return code;
}
