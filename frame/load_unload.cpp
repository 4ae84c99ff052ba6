// Load and unload entries.
//
// The library keeps no state of its own and every table is a constant, so there is nothing to set
// up and nothing to release; the entries exist because the dynamic linker is told to call them.

#include "frame/variant.h"

#define onLoad VEK_INTERNAL(onLoad)
#define onUnload VEK_INTERNAL(onUnload)

extern "C" {
int onLoad();
void onUnload();
}

int onLoad() {
    return 1;
}

void onUnload() {}
