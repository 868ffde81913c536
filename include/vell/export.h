// Symbol export control for the vell shared library.
#pragma once

#define VELL_API __attribute__((visibility("default")))
