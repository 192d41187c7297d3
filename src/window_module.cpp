// What the executable finds in the module that holds the window.
#include "app/windowed_mode.h"

extern "C" int zarvoRunWindow(int *argc, char **argv)
{
    return RunWindow(*argc, argv);
}
