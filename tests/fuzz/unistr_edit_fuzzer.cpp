// Edit scripts of UniStr against the model of the random tests.
#include "text/unistr_model.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    unistr_test::EditScript script;
    const std::string failure = script.Run({data, size});
    if (!failure.empty()) {
        std::fprintf(stderr, "%s\n", failure.c_str());
        std::abort();
    }
    return 0;
}
