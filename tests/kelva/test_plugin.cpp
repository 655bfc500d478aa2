// A plug-in for the loader's tests: one exported C function.
#include "kelva/base/PluginExport.h"

extern "C" KELVA_PLUGIN_EXPORT int kelva_test_plugin_twice_plus_one(int value) { return 2 * value + 1; }
