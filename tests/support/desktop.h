#pragma once

// All that drives the simulated desktop.
#include "control/applications.h"
#include "control/calls.h"
#include "control/desktop.h"
#include "control/displays.h"
#include "control/input.h"
#include "control/kernel_queue.h"
#include "control/launches.h"
#include "control/objects.h"
#include "control/permissions.h"
#include "control/sound.h"
