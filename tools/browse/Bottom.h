// The lines below the lists: the status, a question or what has happened, and the keys.
#ifndef TOOLS_BROWSE_BOTTOM_H
#define TOOLS_BROWSE_BOTTOM_H

#include "tools/browse/Browser.h"
#include "tools/browse/Screen.h"
#include "tools/browse/Status.h"

namespace vqreg {

void drawBottom(Screen& screen, const Browser& browser, const Status& status);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_BOTTOM_H
