// heap_image.h - reading a heap's image into an existing heap, the target.
// Works on a base address and on a source of bytes: no locks, no handles, no system calls.
// The caller is inside the target. Nothing outside src/heap includes this.
//
// An image is the area of a heap byte for byte. It is trusted no more than any area: what it says is
// checked before it is followed. A load that fails leaves the target as far as it got.
#ifndef VORN_HEAP_HEAP_IMAGE_H
#define VORN_HEAP_HEAP_IMAGE_H

#include <vorn/status.h>

#include "heap/heap_area.h"

namespace vorn::detail {

// Where the image's bytes come from, in order.
class ImageSource {
public:
    // Reads up to `size` bytes; fewer only at the end. A status other than VORN_OK ends the load.
    virtual VornStatus Read(void* buffer, uint32_t size, uint32_t* read) = 0;

protected:
    ~ImageSource() = default;
};

// Loads an image of `imageSize` bytes. The target keeps its size, its name, its counters of users and
// handles, and its tree root; the space by which it is larger than the image becomes free.
// VORN_OK; VORN_E_NO_MEMORY the image is larger than the target, or no memory or no block for the name;
// VORN_E_READ fewer bytes than expected; VORN_E_BAD_IMAGE not an image; VORN_E_HEAP_CORRUPT a damaged image
// or target; or the source's status.
VornStatus LoadHeapImage(const HeapArea& target, uint32_t imageSize, ImageSource& source);

}  // namespace vorn::detail

#endif
