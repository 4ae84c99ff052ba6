// Load and unload entries.
//
// The library keeps no state of its own and every table is a constant, so there is nothing to set
// up and nothing to release; the entries exist because the dynamic linker is told to call them.

extern "C" {
int pdcInit();
void pdcFini();
}

int pdcInit() {
    return 1;
}

void pdcFini() {}
