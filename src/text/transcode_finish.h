// transcode_finish.h - the end of a conversion that a vector unit could not carry through. Without linkage:
// each file is compiled for a vector unit of its own.
#ifndef VORN_TEXT_TRANSCODE_FINISH_H
#define VORN_TEXT_TRANSCODE_FINISH_H

#include "text/transcode.h"

namespace vorn::detail {

namespace {

// What has no room, and whatever is left behind it, goes the plain way, which stops at the right character.
template <class In, class Out>
Converted Finish(Converted (*plain)(const In*, size_t, Out*, size_t), Converted done, const In* src,
                 size_t length, Out* dst, size_t room)
{
    if (done.read == length) return done;
    const Converted rest =
        plain(src + done.read, length - done.read, dst + done.written, room - done.written);
    return {done.read + rest.read, done.written + rest.written};
}

}  // namespace

}  // namespace vorn::detail

#endif
