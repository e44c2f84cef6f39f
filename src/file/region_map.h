// region_map.h - the mapped regions by the address at which their view starts.
//
// The links are in the regions themselves, so that taking a region in needs no memory and cannot fail.
// Not synchronised: region.cpp holds the region lock.
#ifndef VORN_FILE_REGION_MAP_H
#define VORN_FILE_REGION_MAP_H

#include "file/region.h"

namespace vorn::detail {

class RegionMap {
public:
    constexpr RegionMap() noexcept = default;
    RegionMap(const RegionMap&) = delete;
    RegionMap& operator=(const RegionMap&) = delete;

    // The region's view must not be in the map yet.
    void Insert(Region* region) noexcept
    {
        Region*& head = BucketOf(region->view);
        region->nextInBucket = head;
        head = region;
    }

    // Takes the region whose view starts at `view` out of the map; null when there is none.
    Region* Remove(const void* view) noexcept
    {
        for (Region** link = &BucketOf(view); *link != nullptr; link = &(*link)->nextInBucket) {
            Region* region = *link;
            if (region->view != view) continue;
            *link = region->nextInBucket;
            return region;
        }
        return nullptr;
    }

private:
    static constexpr uintptr_t kGranularityBits = 16;  // views start on 64 KiB boundaries
    static constexpr size_t kBuckets = 1024;

    Region*& BucketOf(const void* view) noexcept
    {
        return buckets_[(reinterpret_cast<uintptr_t>(view) >> kGranularityBits) % kBuckets];
    }

    Region* buckets_[kBuckets] = {};
};

}  // namespace vorn::detail

#endif
