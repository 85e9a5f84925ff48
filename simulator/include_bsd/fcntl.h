#pragma once

// The host's own header, and the event-only open where the host has none: a descriptor through
// which a directory can be watched, but neither read nor written.
#include_next <fcntl.h>

#ifndef O_EVTONLY
#define O_EVTONLY O_PATH
#endif
