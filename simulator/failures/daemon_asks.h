#pragma once

// Whether it is the daemon that makes the call that is under way on this thread: by the nearest
// caller that is the daemon's own code or the desktop's, which product_and_desktop.ld keeps apart.
// False for what this function does itself. Any thread.
bool daemon_asks();
