#pragma once

#include <CoreFoundation/CFBase.h>
#include <MacTypes.h>
