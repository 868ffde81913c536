// Everything a host of the vell library needs.
#pragma once

#include "vell/callback_lifetime.h"
#include "vell/callbacks.h"
#include "vell/context.h"
#include "vell/debug_files.h"
#include "vell/directory_index.h"
#include "vell/elf_identity.h"
#include "vell/file_search.h"
#include "vell/http_retriever.h"
#include "vell/objects.h"
#include "vell/platform.h"
#include "vell/library_catalogs.h"
#include "vell/results.h"
#include "vell/search_env.h"
#include "vell/search_observer.h"
#include "vell/search_steps.h"
#include "vell/validation.h"
