#pragma once

using kern_return_t = int;
using IOReturn = kern_return_t;

#define KERN_SUCCESS 0

#define kIOReturnSuccess 0
#define kIOReturnError static_cast<IOReturn>(0xe00002bc)
#define kIOReturnNoResources static_cast<IOReturn>(0xe00002be)
#define kIOReturnExclusiveAccess static_cast<IOReturn>(0xe00002c5)
#define kIOReturnUnsupported static_cast<IOReturn>(0xe00002c7)
#define kIOReturnNotOpen static_cast<IOReturn>(0xe00002cd)
#define kIOReturnNotReady static_cast<IOReturn>(0xe00002d8)
#define kIOReturnNotPermitted static_cast<IOReturn>(0xe00002e2)
