#pragma once

#include <CoreGraphics/CGBase.h>

// Places on the desktop in points: the origin is the main display's upper left corner, y grows
// down.

struct CGPoint {
    CGFloat x;
    CGFloat y;
};

struct CGSize {
    CGFloat width;
    CGFloat height;
};

struct CGRect {
    CGPoint origin;
    CGSize size;
};
