// Everything a host of the vell library needs.
#pragma once

#include "vell/callbacks.h"
#include "vell/context.h"
#include "vell/file_search.h"
#include "vell/kernel.h"
#include "vell/objects.h"
#include "vell/platform.h"
#include "vell/results.h"
#include "vell/search_env.h"
#include "vell/search_steps.h"
#include "vell/validation.h"
