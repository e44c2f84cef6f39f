// An arbitrary area, then a sequence of operations on it. The first bytes choose what the area is: wholly
// the input's, or a sound heap with some of its bytes replaced. Whatever it says, every operation must end
// and touch nothing outside the area, which lies in a block of exactly its size.

#include "fuzz/heap_input.h"

#include <memory>

using namespace vorn::detail;
using namespace heap_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t dataSize)
{
    Input input(data, dataSize);
    const uint64_t size = kSmallestArea + input.Number(2) % 4096;
    const bool sound = input.Number(1) % 4 != 0;
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[size]());
    if (sound) {
        uint64_t payloads[kPayloads];
        FillSoundHeap(bytes.get(), size, input, payloads);
        Damage(bytes.get(), size, input, 7);
    } else {
        input.Bytes(bytes.get(), input.Left() < size ? input.Left() / 2 : size);
        const uint64_t total = size & ~uint64_t{1};
        if (input.Number(1) % 8 != 0) std::memcpy(bytes.get() + 8, &total, 8);
    }

    const HeapArea area(bytes.get(), size);
    if (!area) return 0;
    bool stillSound = CheckHeap(area).fault == HeapFault::kNone;
    uint64_t last = 0;
    for (int steps = 0; steps < 64 && !input.Empty(); ++steps) {
        uint64_t value = 0;
        VornStatus status = VORN_OK;
        switch (input.Number(1) % 8) {
            case 0:
            case 1:
                status = AllocateBlock(area, input.Number(2) % 1500, &last);
                break;
            case 2:
                status = ReleaseBlock(area, last);
                break;
            case 3:
            case 4:
                status = ReleaseBlock(area, input.Number(2));
                break;
            case 5:
                LargestRequest(area, &value);
                SumFreeTree(area, &value);
                break;
            case 6:
                status = AllocateBlock(area, input.Number(8), &last);
                break;
            case 7:
                bytes[input.Number(2) % size] = static_cast<uint8_t>(input.Number(1));
                stillSound = CheckHeap(area).fault == HeapFault::kNone;
                break;
        }
        // What the check calls sound must stay sound under operations that succeed.
        if (status == VORN_OK && stillSound) Require(CheckHeap(area).fault == HeapFault::kNone);
        if (status == VORN_E_HEAP_CORRUPT) stillSound = false;
        if (HeapArea(bytes.get(), size).TotalSize() != area.TotalSize()) return 0;
    }
    return 0;
}
