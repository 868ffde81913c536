// The text container that message objects write into.
#include "vell/validation.h"

namespace VELL_2_13 {

void MsgContainer::put(const char *text) { m_text = text ? text : ""; }

const char *MsgContainer::get() { return m_text.empty() ? nullptr : m_text.c_str(); }

} // namespace VELL_2_13
