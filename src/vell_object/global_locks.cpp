// The process-wide locks that guard the library's singletons.
#include "vell/objects.h"

namespace VELL_2_13 {

// Constructed ahead of every other static object of the library (lowest
// initialisation priority available to user code) and destroyed after them, so
// that a singleton created during static initialisation or used during static
// destruction always finds its lock alive.
__attribute__((init_priority(101))) VellLock g_checkSumCalcLock;
__attribute__((init_priority(101))) VellLock g_messageMgrLock;
__attribute__((init_priority(101))) VellLock g_resoulutionContextMgrLock;

} // namespace VELL_2_13
