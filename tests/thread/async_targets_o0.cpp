#define ASYNC_TARGETS kTargetsO0
#define ASYNC_TARGET_COUNT
#include "async_targets.inc"
