// The shared module's own translation unit. The module is the whole static
// core linked as one archive; what it exports is what the core marks with
// ZEMO_API: the entry points of frame/module.h, those of the performance
// counters (perfcounters/perf_module.cpp) and the runtime functions.
#include "frame/module.h"
