#define ASYNC_TARGETS kTargetsO2
#include "async_targets.inc"
