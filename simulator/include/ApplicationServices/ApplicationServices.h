#pragma once

#include <CoreGraphics/CoreGraphics.h>
#include <CoreServices/CoreServices.h>
#include <HIServices/AXUIElement.h>
