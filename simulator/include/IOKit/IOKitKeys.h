#pragma once

// The plane of the registry in which each entry stands below the one that provides for it.
#define kIOServicePlane "IOService"
