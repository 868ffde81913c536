// Internal shorthand for assertion reports.
#pragma once

#include "vell/platform.h"

// Reports a programming or configuration fault of the caller; never aborts.
#define VELL_ASSERT_REPORT(message, unit) ::VELL_2_13::platform::reportAssertion(message, unit, __LINE__)
