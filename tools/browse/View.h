// Draws the browser on the screen: the rows that are seen, and nothing else of the store.
#ifndef TOOLS_BROWSE_VIEW_H
#define TOOLS_BROWSE_VIEW_H

#include <cstddef>

#include "tools/browse/Browser.h"
#include "tools/browse/Screen.h"
#include "tools/browse/Status.h"

namespace vqreg {

// The rows of the lists on a screen of that height.
std::size_t listHeight(int rows);

void draw(Screen& screen, const Browser& browser, const Status& status);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_VIEW_H
