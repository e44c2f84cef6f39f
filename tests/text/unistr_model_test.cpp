// UniStr against a model in long random edit scripts.
#include "text/unistr_model.h"

#include <gtest/gtest.h>
#include <random>

TEST(UniStrModel, RandomEditsOverEveryOverloadKeepTextAndCapacity)
{
    const unsigned seed = std::random_device()();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    uint64_t steps = 0;
    for (int run = 0; run < 40; ++run) {
        std::vector<uint8_t> bytes(20000);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
        unistr_test::EditScript script;
        ASSERT_EQ(script.Run({bytes.data(), bytes.size()}), "") << "run " << run << " of seed " << seed;
        steps += script.Steps();
    }
    std::printf("%llu steps\n", static_cast<unsigned long long>(steps));
}
