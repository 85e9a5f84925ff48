#pragma once

// The host's own header, and the event-only open where the host has none: as on the platform, what
// can be watched through it can be read as well.
#include_next <fcntl.h>

#ifndef O_EVTONLY
#define O_EVTONLY O_RDONLY
#endif
