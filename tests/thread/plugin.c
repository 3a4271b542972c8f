/* A module for the dso tests: one exported function with a known result. */
int orlix_test_plugin_answer(int x) { return 2 * x + 1; }
