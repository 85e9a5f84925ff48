#pragma once

#include <CoreAudio/AudioHardware.h>
