// A plug-in for the loader's tests: one exported C function.
extern "C" __attribute__((visibility("default"))) int kelva_test_plugin_twice_plus_one(int value) {
    return 2 * value + 1;
}
